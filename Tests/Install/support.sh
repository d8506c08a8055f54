# shellcheck shell=bash
# What the tests of an installation share: expectations, a home of the test's own, and roots to run programs in.
# CTest sets the names in capitals.
set -u -o pipefail

: "${SOURCE:?}" "${BUILD:?}" "${PREFIX:?}" "${WORK:?}"
chmod -R u+rwx "$WORK" 2>/dev/null
rm -rf "$WORK"
mkdir -p "$WORK/home"
cd "$WORK" || exit 1
export HOME="$WORK/home" CFFIXED_USER_HOME="$WORK/home" XDG_DATA_HOME="$WORK/home/data" LC_ALL=C
unset CDPATH DESTDIR XDG_CONFIG_HOME BASH_ENV ENV ZDOTDIR

isGood=1
fail() {
    printf 'FAILED: %s\n' "$*" >&2
    isGood=
}

finish() {
    [ -n "$isGood" ]
    exit
}

# Ends the test when nothing of it can be done here; `note` when only a part cannot.
skip() {
    printf 'skipped: %s\n' "$*"
    exit 77
}

note() {
    printf 'left out: %s\n' "$*"
}

has() {
    command -v "$1" >/dev/null
}

# expect WHAT ACTUAL EXPECTED
expect() {
    [ "$2" = "$3" ] || fail "$1: $(diff <(printf '%s\n' "$3") <(printf '%s\n' "$2") | sed -n '/^[<>]/p')"
}

# expect_match WHAT ACTUAL PATTERN
expect_match() {
    # shellcheck disable=SC2053
    [[ $2 == $3 ]] || fail "$1: \"$2\" is not like \"$3\""
}

# Runs a command, shows what it says only when it fails, and then ends the test.
must() {
    local output
    output=$("$@" 2>&1 </dev/null) || {
        printf '%s\n' "$output" >&2
        fail "$*"
        finish
    }
}

# Everything in a folder that is not a folder itself, links with what they point to; headers are left out.
listing() {
    (cd "$1" && find . ! -type d ! -name '*.hpp' | while IFS= read -r file; do
        [ -L "$file" ] && file="$file -> $(readlink "$file")"
        printf '%s\n' "${file#./}"
    done | sort)
}

# The headers in the folder of an installation.
headers() {
    (cd "$1" && find . -name '*.hpp' | sed 's|^\./||' | sort)
}

can_change_root() {
    [ "$(uname -s)" = Linux ] && has chroot || return 1
    [ "$(id -u)" = 0 ] || unshare --map-root-user true 2>/dev/null
}

# The libraries that the tool in a root needs, at the places they have here: nothing else is in there.
add_libraries() {
    ldd "$1/usr/bin/tarnwell-cli" | grep -o '/[^ ]*' | sort -u | while IFS= read -r library; do
        mkdir -p "$1${library%/*}" && cp -L "$library" "$1$library"
    done
}

# inside ROOT COMMAND...
inside() {
    if [ "$(id -u)" = 0 ]; then
        chroot "$@"
    else
        unshare --map-root-user chroot "$@"
    fi
}

# Uses the tool in a root that holds nothing beside it and its libraries.
check_root() {
    local root=$1 output
    if ! can_change_root; then
        note "running the tool in a root of its own needs chroot, and rights to it"
        return
    fi
    add_libraries "$root"
    export HOME=/home XDG_DATA_HOME=/home/data
    mkdir -p "$root/home"
    output=$(inside "$root" /usr/bin/tarnwell scan /usr --depth 0 2>&1) || fail "scan in $root: $output"
    expect_match "scan in a root" "$output" '*[KM]B  total'
    output=$(inside "$root" /usr/bin/tarnwell-cli snapshot save /usr/share 2>&1) || fail "snapshot in $root: $output"
    expect_match "snapshot list in a root" "$(inside "$root" /usr/bin/tarnwell snapshot list)" '*  /usr/share'
}

# Stores two snapshots, the newer one of a folder whose name is meant to do harm. `stored` is then their UUIDs,
# newest first.
store_snapshots() {
    local evil=$'$(touch pwned) `touch pwned`; touch pwned \033[31m\nbad'
    mkdir -p good "$evil"
    must "$PREFIX/bin/tarnwell-cli" snapshot save good
    must "$PREFIX/bin/tarnwell-cli" snapshot save "$evil"
    stored=$("$PREFIX/bin/tarnwell-cli" snapshot list | grep -oE '^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}')
    expect "stored snapshots" "$(printf '%s\n' "$stored" | wc -l | tr -d ' ')" 2
}

# Folders with names that a shell could stumble over, in the folder `folders`; as `folderNames`, sorted.
make_folders() {
    # shellcheck disable=SC2016
    folderNames=('$(touch pwned)' '*' ';touch pwned' 'a:b=c' '`touch pwned`' "it's \"so\"" $'line\nfeed' plain 'two  words')
    local name
    for name in "${folderNames[@]}"; do
        mkdir -p "folders/$name"
    done
    touch folders/file
}

expect_no_harm() {
    [ -z "$(find . -name pwned)" ] || fail "a name was run as a command"
}
