#!/usr/bin/env bash
# The man page renders without a warning, under both names.
. "${BASH_SOURCE[0]%/*}/support.sh"
has mandoc || has groff || skip "neither mandoc nor groff is installed"

cd "$PREFIX/share/man" || exit 1
# page RENDERER NAME COMMAND...
check_page() {
    local what=$1 page
    shift
    page=$("$@" 2>"$WORK/messages" | sed -e $'s/\033\\[[0-9;]*m//g' -e $'s/.\b//g')
    expect "messages of $what" "$(cat "$WORK/messages")" ""
    for section in NAME SYNOPSIS "SIZE MODES" FILES "EXIT STATUS" EXAMPLES; do
        printf '%s\n' "$page" | grep -qx "$section" || fail "$what shows no section $section"
    done
}
for name in tarnwell tarnwell-cli; do
    if has mandoc; then
        # Below a warning is advice, such as on pages that are not installed.
        expect "mandoc -T lint $name" "$(mandoc -T lint -W warning "man1/$name.1" 2>&1)" ""
        check_page "mandoc $name" mandoc -T utf8 "man1/$name.1"
    else
        note "mandoc is not installed"
    fi
    if has groff; then
        check_page "groff $name" groff -ww -mdoc -T utf8 "man1/$name.1"
    else
        note "groff is not installed"
    fi
done
finish
