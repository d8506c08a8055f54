# A build for Linux with the plain C++ sources of the macOS side instead of their Linux counterparts, over an emulation
# of the kernel calls that they make. What is Objective-C++ there stays Linux's, and so do the few sources named below.

set(emulation "${PROJECT_SOURCE_DIR}/Tests/DarwinEmulation")

# Makes of the variable, the library's list for Linux, one for such a build.
function(tarnwell_emulate_darwin variable)
  file(GLOB darwin_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/TarnwellCore/Platform/Darwin/*.cpp")
  # What they call is not emulated: clones, digests, reading without the cache, moving items, how much is used, which
  # programs run. Notes of the Trash stay with the Trash, which is Linux's.
  list(FILTER darwin_sources EXCLUDE REGEX
    "/(BlockLayout|ContentReading|ExtentSharing|ItemMoving|MeasuredFile|OwnProgram|RunningPrograms|SHA256|TrashNotes|VolumeUsage)\\.cpp$")
  file(GLOB emulation_sources CONFIGURE_DEPENDS "${emulation}/*.cpp")
  set_property(SOURCE ${emulation_sources} PROPERTY SKIP_UNITY_BUILD_INCLUSION ON)
  set(list ${${variable}})
  foreach(source IN LISTS darwin_sources)
    string(REPLACE "/Platform/Darwin/" "/Platform/Linux/" counterpart "${source}")
    list(REMOVE_ITEM list "${counterpart}")
  endforeach()
  set_source_files_properties(${darwin_sources} PROPERTIES
    INCLUDE_DIRECTORIES "${emulation}/include"
    # Devices and flags are narrower there.
    COMPILE_OPTIONS "-include;${emulation}/Prelude.hpp;-Wno-conversion")
  set(${variable} ${list} ${darwin_sources} ${emulation_sources} PARENT_SCOPE)
endfunction()

target_compile_options(tarnwell_compile_settings INTERFACE -include "${emulation}/Errors.hpp")
