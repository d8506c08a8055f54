# What `cpack` makes of an installation, in the folder packages of the build: a Debian package of each component,
# and an archive of everything.
set(CPACK_PACKAGE_NAME tarnwell)
set(CPACK_PACKAGE_VENDOR Tarnwell)
set(CPACK_PACKAGE_CONTACT "Tarnwell <packages@tarnwell.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGE_FILE_NAME "tarnwell-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}")
set(CPACK_VERBATIM_VARIABLES TRUE)
set(CPACK_STRIP_FILES TRUE)
set(CPACK_COMPONENTS_ALL tool development)
set(CPACK_GENERATOR TGZ)
if(NOT APPLE)
  list(APPEND CPACK_GENERATOR DEB)
endif()

set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/TarnwellDebian.cmake")
set(CPACK_DEB_COMPONENT_INSTALL TRUE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME tarnwell)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS TRUE)
set(CPACK_DEBIAN_TOOL_PACKAGE_RECOMMENDS shared-mime-info)
set(CPACK_COMPONENT_TOOL_DESCRIPTION
"Walks a folder tree, measures every file and folder by its apparent
size, by the space allocated to it and by the space that deleting it
would free, lists what is largest, and compares stored scans. Its
second program, tarnwell-tidy, finds where space piles up and gives it
back: to the Trash, with the tools that files belong to, file by file.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtarnwell-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libglib2.0-dev, libicu-dev, libplist-dev, libssl-dev, uuid-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"Headers and static libraries of the scanner behind the tool tarnwell,
with a CMake package and a pkg-config file. For programs in C++23.")

include(CPack)
