# Builds the whole project for macOS on Debian with clang-19 and lld-19, to prove that it compiles and links there;
# nothing of it can be run here. Needs the packages clang-19, lld-19, llvm-19, libc++-19-dev, rapidjson-dev, libcli11-dev
# and, for the tests, googletest. What else it is given:
#
#   TARNWELL_MACOS_SDK            a folder with the platform's headers and link stubs: include/, Frameworks/, lib/
#   TARNWELL_MACOS_EXTRA_HEADERS  optional: a folder of declarations that the first one lacks
#   TARNWELL_MACOS_ARCHITECTURE   arm64 (the default) or x86_64
#   TARNWELL_MACOS_LIBRARY        optional: the C++ library's headers; by default the platform's own, which say what
#                                 is missing in the oldest system we support, otherwise those of libc++-19-dev
#
# Of these a folder is made in the build tree that is laid out like a Mac's own, so that the compiler searches it by
# its own rules. Libraries and frameworks of which there is no link stub get an empty one: their symbols are left to
# the loader, and cmake/check-symbols sees to it that none of these is ours.

# Both may come from the environment as well.
foreach(folder TARNWELL_MACOS_SDK TARNWELL_MACOS_EXTRA_HEADERS)
  if(NOT ${folder})
    set(${folder} "$ENV{${folder}}" CACHE PATH "Declarations of macOS" FORCE)
  endif()
endforeach()
set(TARNWELL_MACOS_ARCHITECTURE arm64 CACHE STRING "arm64 or x86_64")
set(TARNWELL_MACOS_LIBRARY "${TARNWELL_MACOS_SDK}/include/c++/v1" CACHE PATH "Headers of the C++ library")
set(TARNWELL_GOOGLETEST /usr/src/googletest CACHE PATH "GoogleTest's sources, to build the tests")
if(NOT IS_ABSOLUTE "${TARNWELL_MACOS_SDK}" OR NOT EXISTS "${TARNWELL_MACOS_SDK}/include/sys/attr.h")
  message(FATAL_ERROR "TARNWELL_MACOS_SDK must be the full path of a folder with the headers of macOS in its include/")
endif()

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 22.4.0) # the kernel of macOS 13.3
set(CMAKE_SYSTEM_PROCESSOR "${TARNWELL_MACOS_ARCHITECTURE}")
set(CMAKE_OSX_ARCHITECTURES "${TARNWELL_MACOS_ARCHITECTURE}" CACHE STRING "")

find_program(CMAKE_CXX_COMPILER clang++-19 REQUIRED)
set(CMAKE_OBJCXX_COMPILER "${CMAKE_CXX_COMPILER}")
string(REPLACE clang++ clang CMAKE_C_COMPILER "${CMAKE_CXX_COMPILER}")
find_program(CMAKE_AR llvm-ar-19 REQUIRED)
find_program(CMAKE_RANLIB llvm-ranlib-19 REQUIRED)
find_program(CMAKE_NM llvm-nm-19 REQUIRED)
find_program(CMAKE_STRIP llvm-strip-19 REQUIRED)
find_program(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool-19 REQUIRED)
foreach(language C CXX OBJCXX)
  set(CMAKE_${language}_COMPILER_TARGET "${TARNWELL_MACOS_ARCHITECTURE}-apple-macosx")
endforeach()

# CMake reads this file once more for every trial build; those share one folder.
if(NOT TARNWELL_MACOS_ROOT)
  set(TARNWELL_MACOS_ROOT "${CMAKE_BINARY_DIR}/macos")
endif()
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TARNWELL_MACOS_SDK TARNWELL_MACOS_EXTRA_HEADERS
  TARNWELL_MACOS_ARCHITECTURE TARNWELL_MACOS_LIBRARY TARNWELL_MACOS_ROOT)
set(CMAKE_OSX_SYSROOT "${TARNWELL_MACOS_ROOT}" CACHE PATH "")
set(CMAKE_FIND_ROOT_PATH "${TARNWELL_MACOS_ROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()

function(tarnwell_link from to)
  if(EXISTS "${from}" AND NOT EXISTS "${to}")
    get_filename_component(folder "${to}" DIRECTORY)
    file(MAKE_DIRECTORY "${folder}")
    file(CREATE_LINK "${from}" "${to}" SYMBOLIC)
  endif()
endfunction()

# A dynamic library that exports nothing, as text.
function(tarnwell_make_empty_stub file install_name)
  if(NOT EXISTS "${file}")
    file(WRITE "${file}" "--- !tapi-tbd\ntbd-version: 4\ntargets: [ x86_64-macos, arm64-macos ]\n"
      "install-name: '${install_name}'\n...\n")
  endif()
endfunction()

if(NOT EXISTS "${TARNWELL_MACOS_ROOT}/usr/include")
  tarnwell_link("${TARNWELL_MACOS_SDK}/include" "${TARNWELL_MACOS_ROOT}/usr/include")
  file(GLOB stubs "${TARNWELL_MACOS_SDK}/lib/*.tbd")
  foreach(stub IN LISTS stubs)
    get_filename_component(name "${stub}" NAME)
    tarnwell_link("${stub}" "${TARNWELL_MACOS_ROOT}/usr/lib/${name}")
  endforeach()
  tarnwell_make_empty_stub("${TARNWELL_MACOS_ROOT}/usr/lib/libSystem.tbd" /usr/lib/libSystem.B.dylib)
  tarnwell_make_empty_stub("${TARNWELL_MACOS_ROOT}/usr/lib/libc++.tbd" /usr/lib/libc++.1.dylib)
  tarnwell_make_empty_stub("${TARNWELL_MACOS_ROOT}/usr/lib/libncurses.tbd" /usr/lib/libncurses.5.4.dylib)

  set(frameworks "${TARNWELL_MACOS_ROOT}/System/Library/Frameworks")
  file(GLOB found "${TARNWELL_MACOS_SDK}/Frameworks/*.framework")
  foreach(framework IN LISTS found)
    get_filename_component(name "${framework}" NAME)
    file(GLOB entries "${framework}/*")
    list(REMOVE_ITEM entries "${framework}/Versions")
    foreach(entry IN LISTS entries)
      get_filename_component(entry_name "${entry}" NAME)
      tarnwell_link("${entry}" "${frameworks}/${name}/${entry_name}")
    endforeach()
    # Frameworks name one another by full paths with a version, which the folder given may have dropped.
    get_filename_component(stub "${framework}" NAME_WE)
    set(stub "${framework}/${stub}.tbd")
    if(EXISTS "${stub}")
      file(STRINGS "${stub}" line REGEX "^install-name:" LIMIT_COUNT 1)
      if(line MATCHES "'([^']+)'")
        tarnwell_link("${stub}" "${TARNWELL_MACOS_ROOT}${CMAKE_MATCH_1}.tbd")
      endif()
    endif()
  endforeach()
  foreach(name UniformTypeIdentifiers FileProvider)
    if(NOT EXISTS "${frameworks}/${name}.framework")
      tarnwell_make_empty_stub("${frameworks}/${name}.framework/${name}.tbd"
        "/System/Library/Frameworks/${name}.framework/Versions/A/${name}")
    endif()
  endforeach()

  # What Homebrew would have installed. Only these folders of the host's headers are let in.
  set(local "${TARNWELL_MACOS_ROOT}/usr/local")
  foreach(folder rapidjson CLI benchmark)
    tarnwell_link("/usr/include/${folder}" "${local}/include/${folder}")
  endforeach()
  file(WRITE "${local}/lib/cmake/RapidJSON/RapidJSONConfig.cmake"
    "set(RapidJSON_INCLUDE_DIRS \"\${CMAKE_OSX_SYSROOT}/usr/local/include\")\n")
  file(WRITE "${local}/lib/cmake/CLI11/CLI11Config.cmake"
    "add_library(CLI11::CLI11 INTERFACE IMPORTED)\n"
    "target_include_directories(CLI11::CLI11 INTERFACE \"\${CMAKE_OSX_SYSROOT}/usr/local/include\")\n")
  if(EXISTS "${TARNWELL_GOOGLETEST}/CMakeLists.txt")
    file(WRITE "${local}/lib/cmake/GTest/GTestConfig.cmake"
      "set(INSTALL_GTEST OFF)\n"
      "add_subdirectory(\"${TARNWELL_GOOGLETEST}\" googletest EXCLUDE_FROM_ALL)\n")
  endif()
  # There are no sources of this one: its programs are compiled, and lack its symbols.
  file(WRITE "${local}/lib/cmake/benchmark/benchmarkConfig.cmake"
    "add_library(benchmark::benchmark_main INTERFACE IMPORTED)\n")
endif()

if(EXISTS "${TARNWELL_MACOS_LIBRARY}/expected")
  set(library_flags "-stdlib++-isystem \"${TARNWELL_MACOS_LIBRARY}\"")
endif()
if(TARNWELL_MACOS_EXTRA_HEADERS)
  # Searched last: the platform's own headers come first.
  set(extra_flags "-idirafter \"${TARNWELL_MACOS_EXTRA_HEADERS}\"")
endif()
set(CMAKE_C_FLAGS_INIT "${extra_flags}")
set(CMAKE_CXX_FLAGS_INIT "${library_flags} ${extra_flags}")
# Stricter than on a Mac, whose headers may promise more or less with every release.
set(CMAKE_OBJCXX_FLAGS_INIT "${library_flags} ${extra_flags} -Wnullable-to-nonnull-conversion")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld -Wl,-undefined,dynamic_lookup")
