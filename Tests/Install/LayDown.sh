#!/usr/bin/env bash
# Into an empty folder: exactly these files come, and the tool runs under both names.
. "${BASH_SOURCE[0]%/*}/support.sh"

rm -rf "$PREFIX"
must "$CMAKE" --install "$BUILD" --prefix "$PREFIX"

configuration=$(printf '%s' "${CONFIGURATION:-noconfig}" | tr '[:upper:]' '[:lower:]')
tool="bin/tarnwell -> tarnwell-cli
bin/tarnwell-cli
share/bash-completion/completions/tarnwell
share/bash-completion/completions/tarnwell-cli -> tarnwell
share/fish/vendor_completions.d/tarnwell-cli.fish -> tarnwell.fish
share/fish/vendor_completions.d/tarnwell.fish
share/man/man1/tarnwell-cli.1 -> tarnwell.1
share/man/man1/tarnwell.1
share/zsh/site-functions/_tarnwell"
libraries="$LIBDIR/cmake/Tarnwell/TarnwellConfig.cmake
$LIBDIR/cmake/Tarnwell/TarnwellConfigVersion.cmake
$LIBDIR/cmake/Tarnwell/TarnwellTargets-$configuration.cmake
$LIBDIR/cmake/Tarnwell/TarnwellTargets.cmake
$LIBDIR/libTarnwellCLIKit.a
$LIBDIR/libTarnwellCore.a
$LIBDIR/pkgconfig/tarnwell.pc"
expect files "$(listing "$PREFIX")" "$(printf '%s\n%s' "$tool" "$libraries" | sort)"
expect headers "$(headers "$PREFIX/include/tarnwell")" "$(headers "$SOURCE")"
[ "$(find "$PREFIX" -name '*.hpp' | wc -l)" = "$(headers "$SOURCE" | wc -l)" ] || fail "headers nobody should see"

must "$CMAKE" --install "$BUILD" --prefix "$WORK/tool" --component tool
expect "files of the tool" "$(listing tool)" "$tool"

for name in tarnwell tarnwell-cli; do
    expect_match "$name --help" "$("$PREFIX/bin/$name" --help)" 'tarnwell — disk usage from Tarnwell*'
done
named=$(grep -rIlF -e "$SOURCE" -e "$BUILD" "$PREFIX")
expect "files that name the checkout" "$named" ""
finish
