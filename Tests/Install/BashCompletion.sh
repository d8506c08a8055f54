#!/usr/bin/env bash
# The completion of bash: asked as bash asks it, and typed at a terminal.
. "${BASH_SOURCE[0]%/*}/support.sh"
. "${BASH_SOURCE[0]%/*}/typed.sh"
store_snapshots
newest=${stored%%$'\n'*}
older=${stored#*$'\n'}
PATH="$PREFIX/bin:$PATH"
# shellcheck source=completions/tarnwell.bash
. "$PREFIX/share/bash-completion/completions/tarnwell-cli"
expect registration "$(complete -p tarnwell tarnwell-cli)" "complete -o dirnames -F _tarnwell tarnwell
complete -o dirnames -F _tarnwell tarnwell-cli"

# candidates WORDS...: what is offered in place of the last word.
candidates() {
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=(stale)
    _tarnwell "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}" 2>messages
    printf '%s' "${COMPREPLY[*]}"
    printf '%s' "$(<messages)"
}
check() {
    local expected=$1
    shift
    expect "candidates for \"$*\"" "$(candidates "$@")" "$expected"
}
check "scan snapshot help" tarnwell ""
check "scan snapshot" tarnwell s
check "--help -h" tarnwell -
check "" tarnwell --help ""
check "" tarnwell nonsense ""
check "" tarnwell scan ""
check "--json --csv --depth --top --size-mode --help -h" tarnwell scan -
check "--json --csv --depth --top --size-mode --help" tarnwell scan folder ""
check "--depth --help" tarnwell scan --csv --top 3 folder --size-mode = apparent --
check "" tarnwell scan --depth ""
check "apparent allocated" tarnwell scan --size-mode a
check "reclaimable" tarnwell scan --size-mode = r
check "apparent allocated reclaimable" tarnwell scan --size-mode =
check "--size-mode=apparent" tarnwell scan --size-mode=ap
check "save list diff help" tarnwell snapshot ""
check "" tarnwell snapshot save ""
check "--json --help -h" tarnwell snapshot save -
check "--json --help" tarnwell snapshot list ""
check "latest previous $newest $older" tarnwell snapshot diff ""
check "latest" tarnwell-cli snapshot diff --json LA
check "$newest" "$PREFIX/bin/tarnwell" snapshot diff previous "$(printf '%.9s' "$newest" | tr '[:upper:]' '[:lower:]')"
check "--json --help" tarnwell snapshot diff latest previous ""
mkdir bin && ln -s "$(type -P tr)" bin
# shellcheck disable=SC2123
expect "candidates without a tool" "$(PATH=$WORK/bin && candidates tarnwell snapshot diff "")" "latest previous"
mv home/data aside
check "latest previous" tarnwell snapshot diff ""
rm -rf home/data
mv aside home/data
expect_no_harm

if ! has zsh || [ "${BASH_VERSINFO[0]}" -lt 4 ]; then
    note "typing at a terminal needs zsh to hold it, and bash 4 to read the line back"
    finish
fi
make_folders
cd folders || exit 1
type_lines bash 'tarnwell scan <all>' 'tarnwell scan pl<tab> --j<tab>--t<tab>3 --size-mode=al<tab>' 'tarnwell scan two<tab>' \
    'tarnwell-cli snapshot diff pre<tab><all>' 'tarnwell scan --depth <all>' 'tarnwell snapshot save ./$<tab>'
expect "folders" "$(words_of "${typed[0]-}")" "$(printf '<%s>\n' "${folderNames[@]}" | sort)"
expect "one after another" "${typed[1]-}" "tarnwell scan plain/ --json --top 3 --size-mode=allocated "
expect "blanks" "${typed[2]-}" 'tarnwell scan two\ \ words/'
# shellcheck disable=SC2086
expect "snapshots" "$(inserted "${typed[3]-}" 4)" "$(sorted_words previous latest previous $stored)"
expect "no folders for a number" "${typed[4]-}" "tarnwell scan --depth "
expect "a name like a command" "${typed[5]-}" 'tarnwell snapshot save ./\$\(touch\ pwned\)/'
expect_no_harm
finish
