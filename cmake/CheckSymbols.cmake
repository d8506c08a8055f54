# A build with the toolchain darwin-cross leaves what it does not find to the loader. This makes such a build fail
# when something that is not found is ours: first the libraries as one, so that also what no program uses is looked
# at, then each program.

function(tarnwell_collect_targets folder result)
  get_property(targets DIRECTORY "${folder}" PROPERTY BUILDSYSTEM_TARGETS)
  get_property(below DIRECTORY "${folder}" PROPERTY SUBDIRECTORIES)
  foreach(subfolder IN LISTS below)
    tarnwell_collect_targets("${subfolder}" more)
    list(APPEND targets ${more})
  endforeach()
  set(${result} ${targets} PARENT_SCOPE)
endfunction()

tarnwell_collect_targets("${PROJECT_SOURCE_DIR}" targets)
set(checker "${CMAKE_CURRENT_LIST_DIR}/check-symbols" "${CMAKE_NM}")
set(libraries TarnwellCore TarnwellCLIKit TarnwellTidyKit)
list(TRANSFORM libraries REPLACE "(.+)" "$<TARGET_FILE:\\1>" OUTPUT_VARIABLE archives)
set(commands COMMAND ${checker} ${archives})
set(programs)
foreach(target IN LISTS targets)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL EXECUTABLE)
    list(APPEND programs ${target})
    list(APPEND commands COMMAND ${checker} $<TARGET_FILE:${target}>)
  endif()
endforeach()
add_custom_target(symbol-check ALL ${commands}
  DEPENDS ${libraries} ${programs} COMMENT "Looking for missing symbols" VERBATIM)
