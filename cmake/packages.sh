# shellcheck shell=bash
# The packages that building, testing, checking, fuzzing and measuring need, for every system, and how they are
# installed. Sourced by `run`, `test`, .ci/run, cmake/lint, Fuzz/run and Benchmarks/compare, after cmake/build.sh.

: "${root:?}"
# A shell that is not a login shell may not know where Homebrew lives.
for folder in /opt/homebrew/bin /usr/local/bin; do
    if ! command -v brew >/dev/null && [ -x "$folder/brew" ]; then
        PATH=$folder:$PATH
    fi
done
unset folder

package_system() {
    if [ "$(uname -s)" = Darwin ]; then
        echo homebrew
    elif command -v apt-get >/dev/null; then
        echo debian
    else
        echo other
    fi
}

# Names of one purpose on one system. "test-optional": tests on real file systems are skipped without them.
package_names() {
    case "$1 $2" in
    "debian build")
        # make is for the compiler: it runs the parts of an optimised link side by side.
        echo g++ make cmake ninja-build ccache pkg-config rapidjson-dev uuid-dev libglib2.0-dev shared-mime-info \
            libicu-dev libssl-dev libplist-dev libcli11-dev libncurses-dev
        ;;
    # file: cpack asks it what to strip.
    "debian test") echo libgtest-dev libgmock-dev file ;;
    "debian test-optional")
        echo btrfs-progs xfsprogs zsh fish mandoc groff-base dpkg-dev valgrind libxml2-utils tmux
        ;;
    # llvm is for readable reports. On macOS the compiler that everyone has comes without the fuzzer.
    "debian fuzz") echo clang-19 libclang-rt-19-dev llvm-19 ;;
    # The compiler is for the flags that everything is read with; nothing is built.
    "debian lint") echo clang-19 clang-tidy-19 cppcheck ;;
    "debian benchmark") echo ncdu gdu fdupes jdupes rmlint openssl libbenchmark-dev ;;
    "debian darwin-cross") echo clang-19 lld-19 llvm-19 libc++-19-dev googletest ;;
    "homebrew build") echo cmake ninja ccache rapidjson cli11 ;;
    "homebrew test") echo googletest ;;
    "homebrew test-optional") echo fish tmux ;;
    "homebrew benchmark") echo google-benchmark ;;
    esac
}

# Of the names given, those that are not installed.
missing_packages() {
    local system=$1 name installed prefix
    shift
    case $system in
    debian)
        installed=" $(dpkg-query -W -f='${db:Status-Abbrev}${Package} ' "$@" 2>/dev/null || true)"
        for name; do
            case $installed in *" ii $name "* | *" hi $name "*) ;; *) printf '%s ' "$name" ;; esac
        done
        ;;
    homebrew)
        prefix=$(brew --prefix 2>/dev/null || true)
        for name; do
            [ -n "$prefix" ] && [ -d "$prefix/opt/$name" ] || printf '%s ' "$name"
        done
        ;;
    esac
}

# Whether apt-get knows any packages: a fresh image comes without their lists.
debian_has_lists() {
    compgen -G '/var/lib/apt/lists/*_Packages*' >/dev/null
}

debian_apt() {
    local as_root=()
    [ "$(id -u)" = 0 ] || as_root=(sudo -n)
    ${as_root[@]+"${as_root[@]}"} env DEBIAN_FRONTEND=noninteractive \
        apt-get -q -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 "$@"
}

debian_install() {
    local install=(debian_apt install --yes --no-install-recommends "$@")
    if debian_has_lists && "${install[@]}"; then
        return
    fi
    # No lists, or lists so old that they name packages which are gone.
    debian_apt update && "${install[@]}"
}

homebrew_install() {
    local install=(env NONINTERACTIVE=1 HOMEBREW_NO_AUTO_UPDATE=1 brew install --quiet "$@")
    # Bottles that its lists name may be gone, or none be there for a system newer than they are.
    "${install[@]}" || { brew update --quiet && "${install[@]}"; }
}

# Whether packages may be installed here without asking anyone.
may_install() {
    case $1 in
    debian) [ "$(id -u)" = 0 ] || { command -v sudo && sudo -n true; } ;;
    homebrew) command -v brew ;;
    esac >/dev/null 2>&1
}

install_packages() {
    local system=$1
    shift
    case $system in
    debian) debian_install "$@" ;;
    homebrew) homebrew_install "$@" ;;
    esac
}

# What goes on, from the lines that an installation prints: all of them go to the file, the latest one stands on a
# terminal, and elsewhere one is said every few seconds, so that nobody takes minutes of silence for a standstill.
show_installation() {
    local line last=$SECONDS
    while IFS= read -r line; do
        printf '%s\n' "$line" >>"$1"
        case $line in
        "Get:"* | "Unpacking "* | "Setting up "* | "==> "*) ;;
        *) continue ;;
        esac
        if [ -t 2 ]; then
            printf '\r\033[K%.78s' "$line" >&2
        elif [ $((SECONDS - last)) -ge 5 ]; then
            last=$SECONDS
            say "${line%% (*}"
        fi
    done
    [ ! -t 2 ] || printf '\r\033[K' >&2
}

# Whether the packages of a purpose are here or can be had: older and other systems do not know all of them.
can_have_packages() {
    local system names missing name
    system=$(package_system)
    names=$(package_names "$system" "$1")
    [ -n "$names" ] || return 1
    # shellcheck disable=SC2086
    missing=$(missing_packages "$system" $names)
    [ -n "$missing" ] || return 0
    [ "$system" = debian ] && may_install "$system" || return 1
    debian_has_lists || debian_apt update >/dev/null 2>&1 || return 1
    for name in $missing; do
        apt-cache show "$name" >/dev/null 2>&1 || return 1
    done
}

# Sees to the packages of the purposes given; ends the script with the command to type where it may not.
need_packages() {
    local purpose system required=() optional=() missing also command stamps=() isSettled=1
    local log="$root/build/packages.log"
    for purpose; do
        stamps+=("$root/build/.packages-$purpose")
    done
    # Asked once for each change of this file: a package that is removed later makes the build say so.
    for purpose in "${stamps[@]}"; do
        [ "$purpose" -nt "$root/cmake/packages.sh" ] || isSettled=
    done
    if [ -n "$isSettled" ] && command -v cmake >/dev/null && command -v ninja >/dev/null; then
        return
    fi

    system=$(package_system)
    if [ "$system" = homebrew ] && ! xcode-select -p >/dev/null 2>&1; then
        fail "the command-line developer tools are missing; install them with: xcode-select --install"
    fi
    for purpose; do
        # Words, not lines: package names hold no blanks.
        # shellcheck disable=SC2207
        required+=($(package_names "$system" "$purpose"))
        # shellcheck disable=SC2207
        optional+=($(package_names "$system" "$purpose-optional"))
    done
    missing=$(missing_packages "$system" ${required[@]+"${required[@]}"})
    also=$(missing_packages "$system" ${optional[@]+"${optional[@]}"})
    if [ -n "$missing$also" ] && may_install "$system"; then
        say "installing $missing$also"
        mkdir -p "$root/build" && : >"$log"
        # shellcheck disable=SC2086
        install_packages "$system" $missing $also 2>&1 </dev/null | show_installation "$log"
        [ "${PIPESTATUS[0]}" = 0 ] || {
            cat "$log" >&2
            fail "the packages could not be installed: $missing$also"
        }
    elif [ -n "$missing" ]; then
        case $system in
        debian)
            command="apt-get install --yes $missing"
            if debian_has_lists; then
                command="sudo $command"
            else
                command="sudo sh -c 'apt-get update && $command'"
            fi
            fail "packages are missing; install them with: $command"
            ;;
        homebrew) fail "packages are missing; with Homebrew, install them with: brew install $missing" ;;
        esac
    elif [ "$system" = other ] && ! command -v ninja >/dev/null; then
        fail "no known package manager; install what Debian calls: $(package_names debian build)"
    fi
    mkdir -p "$root/build"
    touch "${stamps[@]}"
}
