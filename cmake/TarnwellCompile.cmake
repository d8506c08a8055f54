# How every target of this project is compiled: the language, the warnings, the sanitizers and the
# link-time optimisation. A target takes it all with tarnwell_compile(target).

set(CMAKE_CXX_STANDARD 23)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_OBJCXX_STANDARD 23)
set(CMAKE_OBJCXX_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

option(TARNWELL_WARNINGS_AS_ERRORS "Stop at the first compiler warning" OFF)
option(TARNWELL_LTO "Optimise the tool across its translation units" OFF)
option(TARNWELL_DARWIN_EMULATION "On Linux, test the plain C++ sources of the macOS side over emulated kernel calls" OFF)
option(TARNWELL_FUZZ "Build the programs in Fuzz/ (clang only)" OFF)
set(TARNWELL_SANITIZE "" CACHE STRING "Sanitizers for every target, comma-separated")

find_program(TARNWELL_CCACHE ccache)
if(TARNWELL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${TARNWELL_CCACHE}")
  set(CMAKE_OBJCXX_COMPILER_LAUNCHER "${TARNWELL_CCACHE}")
endif()

add_library(tarnwell_compile_settings INTERFACE)
add_library(Tarnwell::CompileSettings ALIAS tarnwell_compile_settings)
target_compile_options(tarnwell_compile_settings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Wold-style-cast -Wcast-align)
# The same figures on every processor: a product and a sum are two roundings, also where one instruction
# could do both in one.
target_compile_options(tarnwell_compile_settings INTERFACE -ffp-contract=off)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 warns falsely about std::string's operator+ when it inlines it.
  target_compile_options(tarnwell_compile_settings INTERFACE -Wno-restrict)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND NOT APPLE)
  # The standard library of GCC 12 uses what it deprecates, in templates that we instantiate.
  target_compile_options(tarnwell_compile_settings INTERFACE -Wno-deprecated-declarations)
endif()
if(APPLE)
  # Names every call that the oldest system we support does not have.
  target_compile_options(tarnwell_compile_settings INTERFACE -Wunguarded-availability)
endif()
if(TARNWELL_WARNINGS_AS_ERRORS)
  target_compile_options(tarnwell_compile_settings INTERFACE -Werror)
endif()
target_compile_definitions(tarnwell_compile_settings INTERFACE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>
  $<$<CONFIG:Debug>:_LIBCPP_HARDENING_MODE=_LIBCPP_HARDENING_MODE_EXTENSIVE>)
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # A source that is included by another looks like a header, in which an anonymous namespace would be a fault, and
  # what its neighbours name is in sight.
  target_compile_options(tarnwell_compile_settings INTERFACE -Wno-subobject-linkage -Wno-shadow)
endif()
# What sanitizers pass over. It is handed on as a copy with a digest in its name: ccache before 4.9 takes an object for
# current though the list has changed.
function(tarnwell_sanitizers_ignore list)
  file(SHA1 "${list}" digest)
  set(copy "${PROJECT_BINARY_DIR}/sanitizer-ignored-${digest}.txt")
  file(COPY_FILE "${list}" "${copy}" ONLY_IF_DIFFERENT)
  set_property(DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${list}")
  target_compile_options(tarnwell_compile_settings INTERFACE "-fsanitize-ignorelist=${copy}")
endfunction()

if(TARNWELL_SANITIZE)
  target_compile_options(tarnwell_compile_settings INTERFACE
    "-fsanitize=${TARNWELL_SANITIZE}" -fno-omit-frame-pointer -O1 -g1)
  target_link_options(tarnwell_compile_settings INTERFACE "-fsanitize=${TARNWELL_SANITIZE}")
  target_compile_definitions(tarnwell_compile_settings INTERFACE _GLIBCXX_ASSERTIONS)
  if(TARNWELL_SANITIZE MATCHES "undefined")
    target_compile_options(tarnwell_compile_settings INTERFACE -fno-sanitize-recover=undefined)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # What the sanitizers put in hides from GCC that a std::optional without a value is not destroyed.
    target_compile_options(tarnwell_compile_settings INTERFACE -Wno-maybe-uninitialized)
  endif()
  if(TARNWELL_SANITIZE MATCHES "integer") # clang only
    target_compile_options(tarnwell_compile_settings INTERFACE -fno-sanitize-recover=all)
    tarnwell_sanitizers_ignore("${PROJECT_SOURCE_DIR}/cmake/sanitizer-ignored.txt")
  endif()
endif()

# A fuzz target steers by what its inputs reach in the library, so the library counts that too.
if(TARNWELL_FUZZ AND TARNWELL_SANITIZE)
  target_compile_options(tarnwell_compile_settings INTERFACE -fsanitize=fuzzer-no-link)
  tarnwell_sanitizers_ignore("${PROJECT_SOURCE_DIR}/Fuzz/ignored.txt")
endif()

# Older ThreadSanitizers find no room for their shadow where the kernel spreads mappings over more than 28 bits.
# Their tests, and what these start, run without address randomisation wherever that may be asked for.
if(TARNWELL_SANITIZE MATCHES "thread" AND NOT APPLE)
  find_program(TARNWELL_SETARCH setarch)
  if(TARNWELL_SETARCH)
    execute_process(COMMAND "${TARNWELL_SETARCH}" -R true RESULT_VARIABLE setarch_result OUTPUT_QUIET ERROR_QUIET)
    if(setarch_result EQUAL 0 AND CMAKE_VERSION VERSION_GREATER_EQUAL 3.29)
      set(CMAKE_TEST_LAUNCHER "${TARNWELL_SETARCH}" -R)
    elseif(setarch_result EQUAL 0)
      set(CMAKE_CROSSCOMPILING_EMULATOR "${TARNWELL_SETARCH}" -R)
    endif()
  endif()
endif()

# Objects carry machine code beside the intermediate form, so that only the tool pays for the optimised
# link; the tests link the same objects without it.
if(TARNWELL_LTO)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(tarnwell_compile_settings INTERFACE -flto=auto -ffat-lto-objects)
    set(TARNWELL_LTO_LINK -flto=auto)
    set(TARNWELL_NO_LTO_LINK -fno-lto)
  elseif(APPLE)
    # No machine code in these: the system's linker reads objects of either kind.
    target_compile_options(tarnwell_compile_settings INTERFACE -flto=thin)
    set(TARNWELL_LTO_LINK -flto=thin)
    set(TARNWELL_NO_LTO_LINK "")
  else()
    target_compile_options(tarnwell_compile_settings INTERFACE -flto=thin -ffat-lto-objects)
    set(TARNWELL_LTO_LINK -flto=thin -ffat-lto-objects)
    set(TARNWELL_NO_LTO_LINK "")
  endif()
endif()
