# Run by cpack over the files of a package before it closes it: what Debian wants in another place or form.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()

file(GLOB components "${CPACK_TEMPORARY_DIRECTORY}/*/usr/share")
foreach(share IN LISTS components)
  file(GLOB pages "${share}/man/man1/*.1")
  if(pages)
    execute_process(COMMAND gzip -9 -n -f ${pages} COMMAND_ERROR_IS_FATAL ANY)
  endif()
  # The folder site-functions is the administrator's, below /usr/local.
  if(IS_DIRECTORY "${share}/zsh/site-functions")
    file(RENAME "${share}/zsh/site-functions" "${share}/zsh/vendor-completions")
  endif()
endforeach()
