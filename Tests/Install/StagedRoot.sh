#!/usr/bin/env bash
# Staged for a container: with DESTDIR all goes below it, and the tool works in a root that holds it alone.
. "${BASH_SOURCE[0]%/*}/support.sh"

must env DESTDIR="$WORK/root" "$CMAKE" --install "$BUILD" --prefix /usr
expect "top of the root" "$(ls root)" usr
expect files "$(listing root/usr)" "$(listing "$PREFIX")"
cmp "root/usr/$LIBDIR/libTarnwellCore.a" "$PREFIX/$LIBDIR/libTarnwellCore.a" || fail "libraries differ"
check_root "$WORK/root"
finish
