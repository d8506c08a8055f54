# shellcheck shell=bash
# What the tests that type at a shell share; sourced after support.sh.

# type_lines SHELL KEYS...: `typed` is then what the lines have become.
type_lines() {
    local shell=$1 line
    shift
    typed=()
    printf '%s\n' "$@" | zsh -f "$SOURCE/Tests/Install/typed.zsh" "$shell" "$WORK/typed" || fail "typing at $shell"
    while IFS= read -r -d '' line; do
        typed+=("$line")
    done <"$WORK/typed"
}

# The words of a command line as the shell would pass them on, without the first two and the last "/", sorted.
words_of() {
    eval "set -- $1"
    shift 2
    printf '<%s>\n' "${@%/}" | sort
}

sorted_words() {
    printf '%s\n' "$@" | sort
}

# inserted LINE FIRST: the words of a line from the given one on, sorted; blanks that are quoted separate as well.
inserted() {
    printf '%s\n' "$1" | sed 's/ *$//' | tr -s ' ' '\n' | tail -n "+$2" | sort
}
