#!/usr/bin/env bash
# The completion of fish, asked with its own `complete -C`.
# shellcheck disable=SC2016 # fish expands

. "${BASH_SOURCE[0]%/*}/support.sh"
has fish || skip "fish is not installed"
store_snapshots
newest=${stored%%$'\n'*}
make_folders
mkdir -p folders/-dash
cd folders || exit 1
export XDG_DATA_DIRS="$PREFIX/share" PATH="$PREFIX/bin:$PATH"

# check LINE EXPECTED: candidates without their descriptions, sorted.
check() {
    local output
    output=$(fish --no-config -c 'set -p fish_complete_path $argv[2]; complete -C $argv[1]' \
        "$1" "$PREFIX/share/fish/vendor_completions.d" 2>&1 | cut -f 1 | sort)
    expect "candidates for \"$1\"" "$output" "$(printf '%s\n' "$2" | sort)"
}
flags=$'--csv\n--depth\n--help\n--json\n--size-mode\n--top'
check 'tarnwell ' $'help\nscan\nsnapshot'
check 'tarnwell -' $'--help\n-h'
check 'tarnwell --help ' ''
check 'tarnwell scan --' "$flags"
check 'tarnwell scan plain --json --' $'--depth\n--help\n--size-mode\n--top'
check 'tarnwell scan plain ' ''
check 'tarnwell scan --depth ' ''
check 'tarnwell scan --size-mode ' $'allocated\napparent\nreclaimable'
check 'tarnwell scan --size-mode=r' '--size-mode=reclaimable'
check 'tarnwell snapshot ' $'diff\nhelp\nlist\nsave'
check 'tarnwell snapshot save --' $'--help\n--json'
check 'tarnwell-cli snapshot diff ' $'latest\nprevious\n'"$stored"
check 'tarnwell-cli snapshot diff latest '"$(printf '%.9s' "$newest" | tr '[:upper:]' '[:lower:]')" "$newest"
check 'tarnwell snapshot diff latest previous ' ''
# A line of output cannot hold a line feed.
check 'tarnwell scan ' "$(printf '%s/\n' "${folderNames[@]}" | grep -vE 'line|feed')"
check 'tarnwell scan (touch pwned; tarnwell scan ' "$(printf '%s/\n' "${folderNames[@]}" | grep -vE 'line|feed')"
listed=$(fish --no-config -c 'source $argv[1]; complete -C "tarnwell snapshot diff "' \
    "$PREFIX/share/fish/vendor_completions.d/tarnwell.fish")
expect_match "a description" "$listed" "*$newest"$'\t'"*bytes  *touch pwned \?\[31m*"
expect_no_harm
finish
