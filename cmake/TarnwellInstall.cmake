# What `cmake --install` lays down, and where. Two components: `tool` is what a user runs and reads, `development`
# is what a program that uses the libraries is built with. Nothing installed knows the prefix, so it may be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(TARNWELL_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/tarnwell")
set(TARNWELL_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/Tarnwell")

# A second name for something installed beside it.
function(tarnwell_install_alias target folder alias)
  file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/aliases/${folder}")
  file(CREATE_LINK "${target}" "${PROJECT_BINARY_DIR}/aliases/${folder}/${alias}" SYMBOLIC)
  install(FILES "${PROJECT_BINARY_DIR}/aliases/${folder}/${alias}" DESTINATION "${folder}" COMPONENT tool)
endfunction()

install(TARGETS tarnwell-cli RUNTIME COMPONENT tool)
tarnwell_install_alias(tarnwell-cli "${CMAKE_INSTALL_BINDIR}" tarnwell)
install(FILES man/tarnwell.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tool)
tarnwell_install_alias(tarnwell.1 "${CMAKE_INSTALL_MANDIR}/man1" tarnwell-cli.1)

# Each shell looks for completions under the name of the command that is completed; zsh reads all of its files.
set(bash_folder "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
set(fish_folder "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")
install(FILES completions/tarnwell.bash DESTINATION "${bash_folder}" RENAME tarnwell COMPONENT tool)
install(FILES completions/_tarnwell DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/site-functions" COMPONENT tool)
install(FILES completions/tarnwell.fish DESTINATION "${fish_folder}" COMPONENT tool)
tarnwell_install_alias(tarnwell "${bash_folder}" tarnwell-cli)
tarnwell_install_alias(tarnwell.fish "${fish_folder}" tarnwell-cli.fish)

set_target_properties(TarnwellCore PROPERTIES EXPORT_NAME Core)
set_target_properties(TarnwellCLIKit PROPERTIES EXPORT_NAME CLIKit)
install(TARGETS TarnwellCore TarnwellCLIKit EXPORT TarnwellTargets
  ARCHIVE COMPONENT development
  INCLUDES DESTINATION "${TARNWELL_INSTALL_INCLUDEDIR}")
# Intermediate code is for one version of one compiler, and doubles the size; the machine code beside it stays.
if(TARNWELL_LTO AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  install(CODE "
    set(libraries \"${CMAKE_INSTALL_LIBDIR}\")
    cmake_path(ABSOLUTE_PATH libraries BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
    foreach(library IN ITEMS TarnwellCore TarnwellCLIKit)
      execute_process(COMMAND_ERROR_IS_FATAL ANY COMMAND \"${CMAKE_STRIP}\" --enable-deterministic-archives
        -R .gnu.lto_* -R .gnu.debuglto_* -N __gnu_lto_slim -N __gnu_lto_v1
        \"\$ENV{DESTDIR}\${libraries}/lib\${library}.a\")
    endforeach()"
    COMPONENT development)
endif()
foreach(library IN ITEMS TarnwellCore TarnwellCLIKit)
  install(DIRECTORY "${library}" DESTINATION "${TARNWELL_INSTALL_INCLUDEDIR}" COMPONENT development
    FILES_MATCHING PATTERN "*.hpp" REGEX "/Platform/[^/.]+$" EXCLUDE) # folders of one system
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
