#!/usr/bin/env bash
# The tree inside another project: the libraries and nothing else, whatever that project tests, installs and packs.
. "${BASH_SOURCE[0]%/*}/support.sh"

mkdir whole
cat >whole/CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(Whole LANGUAGES CXX)
include(CTest)
add_subdirectory("${TREE}" tarnwell)
add_library(whole OBJECT whole.cpp)
target_link_libraries(whole PRIVATE Tarnwell::CLIKit)
END
cat >whole/whole.cpp <<'END'
#include "TarnwellCLIKit/TarnwellCLIKit.hpp"
#include "TarnwellCore/TarnwellCore.hpp"
static_assert(sizeof TARNWELL_VERSION > 1);
END
must "$CMAKE" -S whole -B build -G Ninja -DCMAKE_CXX_COMPILER="$CXX" -DTREE="$SOURCE"
must "$CMAKE" --build build --target whole
expect_match "tests" "$(cd build && "${CMAKE%cmake}ctest" -N)" '*Total Tests: 0'
expect "packages" "$(find build -name 'CPack*')" ""
expect "programs" "$("$CMAKE" --build build --target help | grep -e '^tarnwell-' -e treemap)" ""
must "$CMAKE" --install build --prefix "$WORK/installed"
expect "installed" "$(find installed 2>/dev/null)" ""
finish
