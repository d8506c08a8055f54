#!/usr/bin/env bash
# Into an empty folder: exactly these files come, and the tool runs under both names.
. "${BASH_SOURCE[0]%/*}/support.sh"

rm -rf "$PREFIX"
must "$CMAKE" --install "$BUILD" --prefix "$PREFIX"

configuration=$(printf '%s' "${CONFIGURATION:-noconfig}" | tr '[:upper:]' '[:lower:]')
tool="bin/tarnwell -> tarnwell-cli
bin/tarnwell-cli
bin/tarnwell-tidy
libexec/tarnwell/space-savers
libexec/tarnwell/treemap-svg
share/bash-completion/completions/tarnwell
share/bash-completion/completions/tarnwell-cli -> tarnwell
share/bash-completion/completions/tarnwell-tidy
share/doc/tarnwell/CHANGELOG.md
share/fish/vendor_completions.d/tarnwell-cli.fish -> tarnwell.fish
share/fish/vendor_completions.d/tarnwell-tidy.fish
share/fish/vendor_completions.d/tarnwell.fish
share/man/man1/tarnwell-cli.1 -> tarnwell.1
share/man/man1/tarnwell-tidy.1
share/man/man1/tarnwell.1
share/zsh/site-functions/_tarnwell
share/zsh/site-functions/_tarnwell-tidy"
libraries="$LIBDIR/cmake/Tarnwell/TarnwellConfig.cmake
$LIBDIR/cmake/Tarnwell/TarnwellConfigVersion.cmake
$LIBDIR/cmake/Tarnwell/TarnwellTargets-$configuration.cmake
$LIBDIR/cmake/Tarnwell/TarnwellTargets.cmake
$LIBDIR/libTarnwellCLIKit.a
$LIBDIR/libTarnwellCore.a
$LIBDIR/pkgconfig/tarnwell.pc"
expect files "$(listing "$PREFIX")" "$(printf '%s\n%s' "$tool" "$libraries" | sort)"
headers=$(headers "$PREFIX/include/tarnwell")
for header in TarnwellCore/TarnwellCore TarnwellCLIKit/TarnwellCLIKit TarnwellCore/Version \
    TarnwellCore/Scanning/DiskScanner TarnwellCore/Platform/Date; do
    expect_match headers $'\n'"$headers"$'\n' $'*\n'"$header.hpp"$'\n*'
done
for header in Scanning/ScanEngine Scanning/ScanWorker Platform/DirectoryCalls Platform/Linux Platform/Darwin; do
    case $headers in *TarnwellCore/$header*) fail "$header is for the inside" ;; esac
done

must "$CMAKE" --install "$BUILD" --prefix "$WORK/tool" --component tool
expect "files of the tool" "$(listing tool)" "$tool"

expect_match "version of the man page" "$(cat "$PREFIX/share/man/man1/tarnwell.1")" $'*\n.Os Tarnwell '"$VERSION"$'\n*'

for name in tarnwell tarnwell-cli; do
    expect_match "$name --help" "$("$PREFIX/bin/$name" --help)" 'tarnwell — disk usage from Tarnwell*'
done
expect_match "tarnwell-tidy --help" "$("$PREFIX/bin/tarnwell-tidy" --help)" 'tarnwell-tidy — *'
# The first program stays as small as it was: nothing of the second one's is in it.
grep -q 'tarnwell-tidy' "$PREFIX/bin/tarnwell-cli" && fail "tarnwell-cli holds parts of tarnwell-tidy"
named=$(grep -rIlF -e "$SOURCE" -e "$BUILD" "$PREFIX")
expect "files that name the checkout" "$named" ""
finish
