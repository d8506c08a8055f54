#!/usr/bin/env bash
# The man page renders without a warning, under both names, and its examples come out as they are typed.
. "${BASH_SOURCE[0]%/*}/support.sh"
has mandoc || has groff || skip "neither mandoc nor groff is installed"

cd "$PREFIX/share/man" || exit 1
# mdoc sets words that are a comma or a period close to the word before.
examples_of() {
    sed -n -e 's/\\&//g' -e 's/^\(\.Dl \)\{0,1\}\(\$ \)/\2/p' "man1/$1.1"
}
examples=$(examples_of tarnwell)
sections=(NAME SYNOPSIS "SIZE MODES" FILES "EXIT STATUS" EXAMPLES)
expect_match "examples of the source" "$examples" '*$ tarnwell scan *$ tarnwell snapshot diff *'
# check_page WHAT COMMAND...
check_page() {
    local what=$1 page
    shift
    page=$("$@" 2>"$WORK/messages" | sed -e $'s/\033\\[[0-9;]*m//g' -e $'s/.\b//g')
    expect "messages of $what" "$(cat "$WORK/messages")" ""
    for section in "${sections[@]}"; do
        grep -qx "$section" <<<"$page" || fail "$what shows no section $section"
    done
    expect "examples of $what" "$(printf '%s\n' "$page" | sed -n 's/^ *\(\$ \)/\1/p')" "$examples"
}
for name in tarnwell tarnwell-cli tarnwell-tidy; do
    if [ "$name" = tarnwell-tidy ]; then
        examples=$(examples_of "$name")
        sections=(NAME SYNOPSIS COMMANDS JSON ENVIRONMENT FILES "EXIT STATUS" EXAMPLES)
    fi
    if has mandoc; then
        # Below a warning is advice, such as on pages that are not installed.
        expect "mandoc -T lint $name" "$(mandoc -T lint -W warning "man1/$name.1" 2>&1)" ""
        check_page "mandoc $name" mandoc -T utf8 -O width=120 "man1/$name.1"
    else
        note "mandoc is not installed"
    fi
    if has groff; then
        check_page "groff $name" groff -ww -mdoc -rLL=120n -T utf8 "man1/$name.1"
    else
        note "groff is not installed"
    fi
done
finish
