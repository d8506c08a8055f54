#!/usr/bin/env bash
# A project that knows only find_package, and an installation that was moved.
. "${BASH_SOURCE[0]%/*}/support.sh"

cp -R "$PREFIX" moved
must "$CMAKE" -S "$SOURCE/Tests/Install/Outside" -B build -G Ninja \
    -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_PREFIX_PATH="$WORK/moved"
must "$CMAKE" --build build
grep -qF "$PREFIX" build/build.ninja && fail "the installation still knows where it was"

mkdir -p sample/folder
expect "program output" "$(build/outside "$WORK/sample" 2>&1)" "folder: 1 child
0 bytes  0.0%  folder
0 bytes  total"
finish
