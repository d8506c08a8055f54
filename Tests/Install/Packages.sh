#!/usr/bin/env bash
# The archive unpacked anywhere; the Debian packages installed into a root, used there, and removed again.
. "${BASH_SOURCE[0]%/*}/support.sh"

generators=TGZ
if has dpkg-deb && has dpkg-shlibdeps; then
    generators="TGZ;DEB"
fi
must "$CPACK" --config "$BUILD/CPackConfig.cmake" -G "$generators" -B "$WORK/packages"

mkdir archive
tar -xzf packages/tarnwell-"$VERSION"-*.tar.gz -C archive --strip-components 1 || fail "unpacking the archive"
expect "files of the archive" "$(listing archive)" "$(listing "$PREFIX")"
expect "headers of the archive" "$(headers archive/include/tarnwell)" "$(headers "$PREFIX/include/tarnwell")"
expect "help from the archive" "$(archive/bin/tarnwell --help)" "$("$PREFIX/bin/tarnwell" --help)"

if [ "$generators" = TGZ ]; then
    note "Debian packages need dpkg-deb and dpkg-shlibdeps (dpkg-dev)"
    finish
fi
architecture=$(dpkg --print-architecture)
tool=packages/tarnwell_${VERSION}_$architecture.deb
development=packages/libtarnwell-dev_${VERSION}_$architecture.deb
expect "packages" "$(ls packages/*.deb)" "$development
$tool"
expect_match "what the tool depends on" "$(dpkg-deb -f "$tool" Depends)" '*libc6 (>= *libglib2.0-0*libstdc++6 (>= *'
expect_match "what the libraries depend on" "$(dpkg-deb -f "$development" Depends)" '*libglib2.0-dev*'
for package in "$tool" "$development"; do
    strangers=$(dpkg-deb -c "$package" | grep -vE '^[-dl]rw[-x]r.[-x]r.[-x] root/root ')
    expect "owners and modes in $package" "$strangers" ""
done

root=$WORK/root
mkdir -p "$root/var/lib/dpkg/updates" "$root/var/lib/dpkg/info"
: >"$root/var/lib/dpkg/status"
# shellcheck disable=SC2317
dpkg_in_root() {
    dpkg --root="$root" --log=/dev/null --force-depends --force-script-chrootless "$@"
}
if [ "$(id -u)" = 0 ]; then
    must dpkg_in_root --install "$tool" "$development"
else
    note "installing with dpkg needs root; the packages are unpacked instead"
    must dpkg-deb -x "$tool" "$root"
    must dpkg-deb -x "$development" "$root"
fi
# Debian has places of its own for these.
expect "files of the packages" "$(listing "$root/usr")" "$(listing "$PREFIX" | sed -e 's/\.1\( \|$\)/.1.gz\1/g' \
    -e 's|zsh/site-functions|zsh/vendor-completions|' | sort)"
expect "the compressed man page" "$(gzip -dc "$root/usr/share/man/man1/tarnwell.1.gz")" "$(cat "$PREFIX/share/man/man1/tarnwell.1")"
check_root "$root"
if [ "$(id -u)" = 0 ]; then
    must dpkg_in_root --purge tarnwell libtarnwell-dev
    expect "left after removal" "$(find "$root/usr" -iname '*tarnwell*')" ""
fi
finish
