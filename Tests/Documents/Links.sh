#!/usr/bin/env bash
# What the documents point to is there: files, headings, and sources that are named in the text.
set -u
cd "${1:?the checkout}" || exit 1
documents=(*.md docs/*.md)
status=0
fail() {
    printf 'FAILED: %s\n' "$*" >&2
    status=1
}

# The anchors that a reader's browser knows for the headings of a document.
anchors() {
    sed -n 's/^##* //p' "$1" | tr '[:upper:]' '[:lower:]' | sed -e 's/[^a-z0-9 _-]//g' -e 's/ /-/g'
}

links=0
for document in "${documents[@]}"; do
    while IFS= read -r link; do
        links=$((links + 1))
        file=${link%%#*} anchor=
        [[ $link == *#* ]] && anchor=${link#*#}
        target=$document
        [ -z "$file" ] || target=$(dirname "$document")/$file
        if [ ! -e "$target" ]; then
            fail "$document: ($link) leads nowhere"
        elif [ -n "$anchor" ] && ! anchors "$target" | grep -qxF -- "$anchor"; then
            fail "$document: ($link) is no heading"
        fi
    done < <(grep -oE '\]\([^)]+\)' "$document" | sed -e 's/^](//' -e 's/)$//')
done
[ "$links" -ge 20 ] || fail "only $links links found"

files=$(find . \( -name .git -o -path ./build \) -prune -o -type f -print | sed 's/^\.//')
# CMake makes these.
for made in TarnwellCore/TarnwellCore TarnwellCore/Version TarnwellCLIKit/TarnwellCLIKit; do
    files="$files"$'\n'"/$made.hpp"
done
names=0
for document in "${documents[@]}"; do
    # X stands for any name.
    # shellcheck disable=SC2016
    while IFS= read -r name; do
        names=$((names + 1))
        printf '%s\n' "$files" | grep -qE -- "/${name//./\\.}\$" || fail "$document: there is no $name"
    done < <(grep -oE '`[A-Za-z][A-Za-z/.-]*\.(hpp|cpp|sh|cmake|txt|yml|dict)`' "$document" | tr -d '`' |
        grep -vE '(^|/)X\.' | sort -u)
done
[ "$names" -ge 20 ] || fail "only $names names of files found"
exit "$status"
