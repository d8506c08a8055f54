#!/usr/bin/env bash
# A project that knows only find_package, and an installation that was moved.
. "${BASH_SOURCE[0]%/*}/support.sh"

cp -R "$PREFIX" moved
must "$CMAKE" -S "$SOURCE/Tests/Install/Outside" -B build -G Ninja \
    -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_PREFIX_PATH="$WORK/moved"
must "$CMAKE" --build build
grep -qF "$PREFIX" build/build.ninja && fail "the installation still knows where it was"

mkdir -p sample/folder
expect "program output" "$(build/outside "$WORK/sample" 2>&1)" "Tarnwell $VERSION, folder: 1 child
0 bytes  0.0%  folder
0 bytes  total"

# A component that there is not, asked for or only welcome.
mkdir lacking
for wish in COMPONENTS OPTIONAL_COMPONENTS; do
    printf '%s\n' 'cmake_minimum_required(VERSION 3.25)' 'project(Lacking LANGUAGES CXX)' \
        "find_package(Tarnwell REQUIRED $wish Core Kitchen)" >lacking/CMakeLists.txt
    "$CMAKE" -S lacking -B "build-$wish" -G Ninja -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_PREFIX_PATH="$WORK/moved" \
        >"$wish" 2>&1 && echo "it is configured" >>"$wish"
done
expect_match "a missing component" "$(tr -s '[:space:]' ' ' <COMPONENTS)" '*Tarnwell has no component Kitchen; it has Core, CLIKit*'
expect_match "a component that may be missing" "$(cat OPTIONAL_COMPONENTS)" '*it is configured'
finish
