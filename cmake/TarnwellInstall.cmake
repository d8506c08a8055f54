# What `cmake --install` lays down, and where. Two components: `tool` is what a user runs and reads, `development`
# is what a program that uses the libraries is built with. Nothing installed knows the prefix, so it may be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(TARNWELL_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/tarnwell")
set(TARNWELL_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/Tarnwell")
set(TARNWELL_INSTALL_EXAMPLESDIR "${CMAKE_INSTALL_LIBEXECDIR}/tarnwell")

# Everything that is installed, and nothing else: what ./run builds.
add_custom_target(tarnwell-programs)

# A second name for something installed beside it; none where it has that name.
function(tarnwell_install_alias target folder alias)
  if(alias STREQUAL target)
    return()
  endif()
  file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/aliases/${folder}")
  file(CREATE_LINK "${target}" "${PROJECT_BINARY_DIR}/aliases/${folder}/${alias}" SYMBOLIC)
  install(FILES "${PROJECT_BINARY_DIR}/aliases/${folder}/${alias}" DESTINATION "${folder}" COMPONENT tool)
endfunction()

# A program for users with man/<name>.1 and its completions, under the name of its target as well.
function(tarnwell_install_tool target name)
  add_dependencies(tarnwell-programs ${target})
  install(TARGETS ${target} RUNTIME COMPONENT tool)
  tarnwell_install_alias(${target} "${CMAKE_INSTALL_BINDIR}" ${name})

  # The page in the tree is for reading there, and says no version.
  file(READ "${PROJECT_SOURCE_DIR}/man/${name}.1" page)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/man/${name}.1")
  string(REPLACE "\n.Os\n" "\n.Os Tarnwell ${PROJECT_VERSION}\n" page "${page}")
  file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/man/${name}.1" CONTENT "@page@" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/man/${name}.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tool)
  tarnwell_install_alias(${name}.1 "${CMAKE_INSTALL_MANDIR}/man1" ${target}.1)

  # Each shell looks for completions under the name of the command that is completed; zsh reads all of its files.
  set(bash_folder "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
  set(fish_folder "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")
  install(FILES completions/${name}.bash DESTINATION "${bash_folder}" RENAME ${name} COMPONENT tool)
  install(FILES completions/_${name} DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions" COMPONENT tool)
  install(FILES completions/${name}.fish DESTINATION "${fish_folder}" COMPONENT tool)
  tarnwell_install_alias(${name} "${bash_folder}" ${target})
  tarnwell_install_alias(${name}.fish "${fish_folder}" ${target}.fish)
endfunction()

# A library as Tarnwell::<component>, with the headers of cmake/TarnwellHeaders.cmake and the one that includes them.
function(tarnwell_install_library library component)
  add_dependencies(tarnwell-programs ${library})
  set_target_properties(${library} PROPERTIES EXPORT_NAME ${component})
  install(TARGETS ${library} EXPORT TarnwellTargets
    ARCHIVE COMPONENT development
    INCLUDES DESTINATION "${TARNWELL_INSTALL_INCLUDEDIR}")
  # Intermediate code is for one version of one compiler, and doubles the size; the machine code beside it stays.
  if(TARNWELL_LTO AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    install(CODE "
      set(libraries \"${CMAKE_INSTALL_LIBDIR}\")
      cmake_path(ABSOLUTE_PATH libraries BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
      execute_process(COMMAND_ERROR_IS_FATAL ANY COMMAND \"${CMAKE_STRIP}\" --enable-deterministic-archives
        -R .gnu.lto_* -R .gnu.debuglto_* -N __gnu_lto_slim -N __gnu_lto_v1
        \"\$ENV{DESTDIR}\${libraries}/lib${library}.a\")"
      COMPONENT development)
  endif()
  tarnwell_public_headers(${library} headers)
  foreach(header IN LISTS headers)
    cmake_path(GET header PARENT_PATH folder)
    install(FILES "${header}" DESTINATION "${TARNWELL_INSTALL_INCLUDEDIR}/${folder}" COMPONENT development)
  endforeach()
  install(DIRECTORY "${TARNWELL_GENERATED}/${library}" DESTINATION "${TARNWELL_INSTALL_INCLUDEDIR}"
    COMPONENT development FILES_MATCHING PATTERN "*.hpp")
  set(TARNWELL_COMPONENTS ${TARNWELL_COMPONENTS} ${component} PARENT_SCOPE)
endfunction()

tarnwell_install_tool(tarnwell-cli tarnwell)
tarnwell_install_tool(tarnwell-tidy tarnwell-tidy)
tarnwell_install_library(TarnwellCore Core)
tarnwell_install_library(TarnwellCLIKit CLIKit)

# The examples that are of use to somebody who writes no programs. Their names are too common for the path.
if(TARGET treemap-svg)
  add_dependencies(tarnwell-programs space-savers treemap-svg)
  install(TARGETS space-savers treemap-svg RUNTIME DESTINATION "${TARNWELL_INSTALL_EXAMPLESDIR}" COMPONENT tool)
endif()

# What goes with every copy. The licence is its owner's to choose: the file goes along as soon as it is there.
foreach(document IN ITEMS CHANGELOG.md LICENSE)
  if(EXISTS "${PROJECT_SOURCE_DIR}/${document}")
    install(FILES "${document}" DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/tarnwell" COMPONENT tool)
  endif()
endforeach()

install(EXPORT TarnwellTargets NAMESPACE Tarnwell:: DESTINATION "${TARNWELL_INSTALL_CMAKEDIR}" COMPONENT development)
configure_package_config_file(cmake/TarnwellConfig.cmake.in TarnwellConfig.cmake
  INSTALL_DESTINATION "${TARNWELL_INSTALL_CMAKEDIR}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(TarnwellConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/TarnwellConfig.cmake" "${PROJECT_BINARY_DIR}/TarnwellConfigVersion.cmake"
  DESTINATION "${TARNWELL_INSTALL_CMAKEDIR}" COMPONENT development)

set(pc_folder "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
cmake_path(ABSOLUTE_PATH pc_folder BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" OUTPUT_VARIABLE pc_full_folder)
set(pc_names prefix includedir)
set(pc_folders "${CMAKE_INSTALL_PREFIX}" "${TARNWELL_INSTALL_INCLUDEDIR}")
foreach(name folder IN ZIP_LISTS pc_names pc_folders)
  cmake_path(ABSOLUTE_PATH folder BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}")
  cmake_path(RELATIVE_PATH folder BASE_DIRECTORY "${pc_full_folder}" OUTPUT_VARIABLE "pc_${name}")
endforeach()
list(JOIN TARNWELL_MODULES " " pc_requires)
list(JOIN TARNWELL_FRAMEWORKS " " pc_frameworks)
configure_file(cmake/tarnwell.pc.in tarnwell.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/tarnwell.pc" DESTINATION "${pc_folder}" COMPONENT development)
