#!/usr/bin/env bash
# A program built by hand with the flags of pkg-config, from an installation that was moved; and all headers stand
# on their own feet.
. "${BASH_SOURCE[0]%/*}/support.sh"
has pkg-config || skip "pkg-config is not installed"

cp -R "$PREFIX" moved
export PKG_CONFIG_PATH="$WORK/moved/$LIBDIR/pkgconfig"
expect version "$(pkg-config --modversion tarnwell)" "$VERSION"
words=$(pkg-config --cflags --libs tarnwell) || fail "pkg-config does not know tarnwell"
eval "flags=($words)" # it writes them for a shell, blanks in paths escaped
# shellcheck disable=SC2154
must "$CXX" -std=c++23 "$SOURCE/Tests/Install/Outside/main.cpp" -o outside "${flags[@]}"

mkdir -p sample/folder
expect_match "program output" "$(./outside "$WORK/sample" 2>&1)" "Tarnwell $VERSION, folder: 1 child*total"

headers moved/include/tarnwell | sed 's/.*/#include "&"/' >headers.cpp
must "$CXX" -std=c++23 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I moved/include/tarnwell headers.cpp
finish
