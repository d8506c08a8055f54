#!/usr/bin/env bash
# The examples as somebody builds them who has nothing but an installation: all with CMake, the README's by hand.
. "${BASH_SOURCE[0]%/*}/support.sh"

cp -R "$SOURCE/examples" examples
must "$CMAKE" -S examples -B build -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_PREFIX_PATH="$PREFIX"
must "$CMAKE" --build build

mkdir sample
printf '%1000s' x >sample/file
expected="1 KB  $(cd sample && pwd -P)/file"
expect "largest-files" "$(build/largest-files sample 2>&1)" "$expected"
expect_match "treemap-svg" "$(build/treemap-svg sample 2>&1)" '<svg *file</text>*</svg>'

if has pkg-config; then
    export PKG_CONFIG_PATH="$PREFIX/$LIBDIR/pkgconfig"
    eval "flags=($(pkg-config --cflags --libs tarnwell))" # written for a shell, blanks in paths escaped
    # shellcheck disable=SC2154
    must "$CXX" -std=c++23 examples/LargestFiles.cpp -o largest-files "${flags[@]}"
    expect "largest-files by hand" "$(./largest-files sample 2>&1)" "$expected"
else
    note "building by hand needs pkg-config"
fi
finish
