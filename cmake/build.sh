# shellcheck shell=bash
# What `run`, `test`, .ci/run, cmake/lint, Fuzz/run and Benchmarks/compare share: messages, one build at a time, and
# a build that is silent when there is nothing to do. Needs `root`, the checkout's full path. Writes to standard
# error only.

: "${root:?}"

say() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
}

fail() {
    say "$@"
    exit 1
}

# Several may start at once; the first builds and the others wait. Descriptor 9 holds the lock until it is closed.
lock_build() {
    mkdir -p "$root/build" || fail "$root/build cannot be made"
    if ! [ -w "$root/build" ] || { [ -e "$root/build/.lock" ] && ! [ -w "$root/build/.lock" ]; }; then
        fail "$root/build belongs to another user"
    fi
    exec 9>"$root/build/.lock"
    # macOS has no such program, but a Perl; the lock belongs to the descriptor, whoever takes it.
    if command -v flock >/dev/null; then
        flock 9
    elif command -v perl >/dev/null; then
        perl -e 'open(LOCK, ">&=", 9) && flock(LOCK, 2) or exit 1'
    fi
}

unlock_build() {
    exec 9>&-
}

# Configures a preset unless its folder was configured for this checkout with these cache entries: "NAME=ON" must
# hold, "NAME?=OFF" is only how a new folder begins.
configure() {
    local preset=$1 entry output patterns expected=1 options=() first=()
    shift
    [ -z "${CI-}" ] || set -- "$@" TARNWELL_WARNINGS_AS_ERRORS=ON
    local folder="$root/build/$preset"
    # A checkout that was moved or copied brings a build folder that still names its old place.
    patterns=(-e "CMAKE_CACHEFILE_DIR:INTERNAL=$folder")
    for entry; do
        case $entry in
        *"?="*) first+=("-D${entry%%\?=*}=${entry#*=}") ;;
        *)
            options+=("-D$entry")
            patterns+=(-e "${entry%%=*}:BOOL=${entry#*=}")
            expected=$((expected + 1))
            ;;
        esac
    done
    if [ -f "$folder/build.ninja" ] &&
        [ "$(grep -cFx "${patterns[@]}" "$folder/CMakeCache.txt")" = "$expected" ]; then
        return
    fi
    if ! [ -f "$folder/CMakeCache.txt" ] || ! grep -qFx "${patterns[1]}" "$folder/CMakeCache.txt"; then
        options=(--fresh ${first[@]+"${first[@]}"} ${options[@]+"${options[@]}"})
    fi
    say "configuring build/$preset"
    output=$(cd "$root" && cmake --preset "$preset" ${options[@]+"${options[@]}"} 2>&1 </dev/null) || {
        printf '%s\n' "$output" >&2
        fail "build/$preset could not be configured"
    }
}

# One line for a build that has something to do, compiler messages as they come, nothing otherwise.
show_build() {
    local line isAnnounced=
    while IFS= read -r line; do
        case $line in
        "ninja: no work to do." | "ninja: Entering directory"* | "-- "* | *"Re-checking globbed directories"*) ;;
        "["*"/"*"] "*)
            [ -n "$isAnnounced" ] || say "building ${*:-everything}"
            isAnnounced=1
            [ ! -t 2 ] || printf '\r\033[K%.78s' "$line" >&2
            ;;
        *)
            [ -z "$isAnnounced" ] || [ ! -t 2 ] || printf '\r\033[K' >&2
            printf '%s\n' "$line" >&2
            ;;
        esac
    done
    [ -z "$isAnnounced" ] || [ ! -t 2 ] || printf '\r\033[K' >&2
}

# Builds targets of a preset; ends the script when that fails.
build() {
    local preset=$1
    shift
    ninja -C "$root/build/$preset" "$@" 2>&1 </dev/null | show_build "$@"
    [ "${PIPESTATUS[0]}" = 0 ] || fail "the build failed"
}

processor_count() {
    getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2
}
