#!/usr/bin/env bash
# The usage text, the man page and the completions name the same flags, commands, values and exit codes.
. "${BASH_SOURCE[0]%/*}/support.sh"

usage=$("$PREFIX/bin/tarnwell" --help)
page=$SOURCE/man/tarnwell.1
completions=("$SOURCE/completions/tarnwell.bash" "$SOURCE/completions/_tarnwell" "$SOURCE/completions/tarnwell.fish")

# Flags behind PREFIX in TEXT.
flags() {
    printf '%s\n' "$2" | grep -oE -e "(^|[^-a-z])$1[a-z][-a-z]*" | sed -e "s/.*$1//" | sort -u
}
expected=$(flags -- "$usage")
expect_match "flags of the usage text" $'\n'"$expected"$'\n' $'*\njson\n*'
expect "flags of the man page" "$(flags 'Fl -' "$(cat "$page")")" "$expected"
expect "flags of bash" "$(flags -- "$(cat "${completions[0]}")")" "$expected"
expect "flags of zsh" "$(flags -- "$(sed 's/{-h,/ /' "${completions[1]}")")" "$expected"
expect "flags of fish" "$(flags '-l ' "$(grep -F 'complete -c' "${completions[2]}")")" "$expected"

commands=$(printf '%s\n' "$usage" | sed -n 's/^  tarnwell \([a-z ]*[a-z]\).*/\1/p' | tr ' ' '\n' | sort -u)
modes=$(printf '%s\n' "$usage" | sed -n 's/.*\[--size-mode \([a-z|]*\)\].*/\1/p' | tr '|' '\n')
references=$(printf '%s\n' "$usage" | grep -oE '(latest|previous)')
# shellcheck disable=SC2086
expect "what the usage text names" "$(printf '%s ' $commands $modes $references)" \
    "diff list save scan snapshot apparent allocated reclaimable latest previous "
for file in "$page" "${completions[@]}"; do
    for word in $commands $modes $references; do
        grep -qw -e "$word" "$file" || fail "${file##*/} does not know \"$word\""
    done
done

codes=$(printf '%s\n' "$usage" | sed -n '/^Exit codes:/,$s/^  \([0-9]*\)  .*/\1/p')
expect "exit codes of the man page" "$(sed -n '/^.Sh EXIT STATUS/,/^.El/s/^.It \([0-9]*\)$/\1/p' "$page")" "$codes"
finish
