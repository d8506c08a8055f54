#!/usr/bin/env bash
# The completion of zsh, typed at a terminal.
. "${BASH_SOURCE[0]%/*}/support.sh"
. "${BASH_SOURCE[0]%/*}/typed.sh"
has zsh || skip "zsh is not installed"
store_snapshots
newest=${stored%%$'\n'*}
make_folders
mkdir -p folders/-dash
ln -s "$PREFIX/bin" bin # a path without blanks
cd folders || exit 1

flags="--csv --depth --help --json --size-mode --top -h"
cases=(
    'tarnwell scan <all>' ''
    'tarnwell <all>' 'help scan snapshot'
    'tarnwell -<all>' '--help -h'
    'tarnwell scan -<all>' "scan $flags"
    'tarnwell scan --csv --top 3 plain -<all>' 'scan --csv --depth --help --size-mode -h 3 plain --top'
    'tarnwell scan --size-mode <all>' 'scan --size-mode allocated apparent reclaimable'
    'tarnwell scan --size-mode=r<tab>' 'scan --size-mode=reclaimable'
    'tarnwell scan --depth <all>' 'scan --depth'
    'tarnwell scan --js<tab>pl<tab>' 'scan --json plain/'
    'tarnwell --help <all>' '--help'
    'tarnwell snapshot <all>' 'snapshot diff help list save'
    'tarnwell snapshot list -<all>' 'snapshot list --help --json -h'
    'tarnwell snapshot save two<tab>' 'snapshot save two\ \ words/'
    'tarnwell snapshot diff <all>' "snapshot diff latest previous $stored"
    'tarnwell-cli snapshot diff LA<tab>PREV<tab>' 'snapshot diff latest previous'
    "../bin/tarnwell snapshot diff $(printf '%.9s' "$newest" | tr '[:upper:]' '[:lower:]')<tab>" "snapshot diff $newest"
)
lines=()
for ((index = 0; index < ${#cases[@]}; index += 2)); do
    lines+=("${cases[index]}")
done
type_lines zsh "${lines[@]}" 'tarnwell snapshot diff <list>'

expect "folders" "$(words_of "${typed[0]-}")" "$(printf '<%s>\n' "${folderNames[@]}" | sort)"
for ((index = 2; index < ${#cases[@]}; index += 2)); do
    # shellcheck disable=SC2086
    expect "${cases[index]}" "$(inserted "${typed[index / 2]-}" 2)" "$(sorted_words ${cases[index + 1]})"
done
# What is listed for a folder's name must not reach the terminal as an order.
expect_match "a description" "$(<"$WORK/typed.screen")" "*$newest*touch pwned \?\[31m*"
grep -q $'\033\[31m' "$WORK/typed.screen" && fail "a description with control characters"
expect_no_harm
finish
