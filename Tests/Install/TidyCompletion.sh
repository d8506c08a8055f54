#!/usr/bin/env bash
# The completions of tarnwell-tidy in the three shells: what may stand where, and names that a shell could stumble over.
. "${BASH_SOURCE[0]%/*}/support.sh"
. "${BASH_SOURCE[0]%/*}/typed.sh"
PATH="$PREFIX/bin:$PATH"
make_folders
mkdir -p folders/-dash
cd folders || exit 1
modes='allocated apparent reclaimable'

# Bash, asked as it asks.
# shellcheck source=completions/tarnwell-tidy.bash
. "$PREFIX/share/bash-completion/completions/tarnwell-tidy"
check() {
    local expected=$1
    shift
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=(stale)
    _tarnwell_tidy "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}" 2>>"$WORK/messages"
    expect "bash: $*" "$(printf '%s\n' "${COMPREPLY[@]-}" | sort | tr '\n' ' ')" "$expected "
}
check report tarnwell-tidy rep
check "$modes" tarnwell-tidy report --size-mode ""
check "$modes" tarnwell-tidy report --size-mode =
check "--size-mode=allocated --size-mode=apparent" tarnwell-tidy report --size-mode=a
check "get list reset set" tarnwell-tidy settings ""
check "" tarnwell-tidy report plain
check "" "$WORK/no such program" re
# The shell adds a word of its own to these.
expect_match "bash says" "$(cat "$WORK/messages" 2>/dev/null)" ""

if has zsh; then
    type_lines zsh 'tarnwell-tidy report <all>' 'tarnwell-tidy rep<tab>' 'tarnwell-tidy report --size-mode <all>' \
        'tarnwell-tidy report --size-mode=r<tab>' 'tarnwell-tidy report --no<tab>pl<tab>' 'tarnwell-tidy settings re<tab>'
    expect "zsh: folders" "$(words_of "${typed[0]-}")" "$(printf '<%s>\n' "${folderNames[@]}" | sort)"
    expect "zsh: a command" "${typed[1]-}" "tarnwell-tidy report "
    # shellcheck disable=SC2086
    expect "zsh: values" "$(inserted "${typed[2]-}" 4)" "$(sorted_words $modes)"
    expect "zsh: behind =" "${typed[3]-}" "tarnwell-tidy report --size-mode=reclaimable "
    expect "zsh: one after another" "${typed[4]-}" "tarnwell-tidy report --no-hidden plain/"
    expect "zsh: a word" "${typed[5]-}" "tarnwell-tidy settings reset "
else
    note "zsh is not installed"
fi
if has zsh && [ "${BASH_VERSINFO[0]}" -ge 4 ]; then
    type_lines bash 'tarnwell-tidy report <all>' 'tarnwell-tidy report --no<tab>pl<tab>' 'tarnwell-tidy trash fi<tab>' \
        'tarnwell-tidy report --top <all>'
    expect "bash: folders" "$(words_of "${typed[0]-}" | grep -v -e -dash)" "$(printf '<%s>\n' "${folderNames[@]}" | sort)"
    expect "bash: one after another" "${typed[1]-}" "tarnwell-tidy report --no-hidden plain/"
    expect "bash: files" "${typed[2]-}" "tarnwell-tidy trash file "
    expect "bash: no folders for a number" "${typed[3]-}" "tarnwell-tidy report --top "
fi

if has fish; then
    check_fish() {
        local output
        output=$(fish --no-config -c 'set -p fish_complete_path $argv[2]; complete -C $argv[1]' \
            "$1" "$PREFIX/share/fish/vendor_completions.d" 2>&1 | cut -f 1 | sort)
        expect "fish: $1" "$output" "$(printf '%s\n' "$2" | sort)"
    }
    check_fish 'tarnwell-tidy rep' report
    check_fish 'tarnwell-tidy report --size-mode ' "${modes// /$'\n'}"
    check_fish 'tarnwell-tidy report --size-mode=r' '--size-mode=reclaimable'
    check_fish 'tarnwell-tidy settings re' reset
    check_fish 'tarnwell-tidy report ' "$(printf '%s/\n' "${folderNames[@]}" | grep -vE 'line|feed')"
    check_fish 'tarnwell-tidy report --top ' ''
else
    note "fish is not installed"
fi
expect_no_harm
finish
