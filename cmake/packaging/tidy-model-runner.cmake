# Install-time tidying of the model runner's node_modules (installed by src/answer), so the
# package holds what runs and nothing that Debian's rules forbid in an installed package:
#   - editor, linter and version-control leftovers of npm packages are removed;
#   - folders are 0755 whatever the umask of the checkout was; scripts (a "#!" line) are
#     executable, other non-ELF files are not;
#   - prebuilt ELF files (llama.cpp's libraries and Node addon) are stripped like our own
#     binaries when the install strips (cmake --install --strip, CPack), and the empty entry
#     in their RUNPATH ("$ORIGIN:", which means the current directory) is dropped, so that a
#     library in the folder the helper runs in is never loaded.
# TALLOWBROOK_STRIP is the strip program, set by the install(CODE) that includes this file.
cmake_policy(SET CMP0007 NEW)  # lists keep their empty elements
set(runner "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/lib/tallowbrook-helper/model-runner")
if(NOT IS_DIRECTORY "${runner}")
  return()
endif()
set(executable OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
    WORLD_EXECUTE)
file(GLOB_RECURSE files LIST_DIRECTORIES true "${runner}/*")
file(CHMOD "${runner}" PERMISSIONS ${executable})
foreach(file IN LISTS files)
  if(IS_SYMLINK "${file}")
    continue()
  elseif(IS_DIRECTORY "${file}")
    file(CHMOD "${file}" PERMISSIONS ${executable})
    continue()
  endif()
  get_filename_component(name "${file}" NAME)
  if(name MATCHES "^\\.(eslintrc.*|eslintignore|npmignore|gitignore|gitattributes|travis\\.yml)$"
     OR name MATCHES "(~|\\.orig|\\.rej)$")
    file(REMOVE "${file}")
    continue()
  endif()
  file(READ "${file}" head LIMIT 4 HEX)
  if(head STREQUAL "7f454c46")
    if(CMAKE_INSTALL_DO_STRIP AND TALLOWBROOK_STRIP)
      execute_process(COMMAND "${TALLOWBROOK_STRIP}" --strip-unneeded "${file}")
    endif()
    execute_process(COMMAND chrpath -l "${file}" OUTPUT_VARIABLE rpath ERROR_QUIET)
    if(rpath MATCHES "RUNPATH=([^\n]*)")
      string(REPLACE ":" ";" entries "${CMAKE_MATCH_1}")
      list(REMOVE_ITEM entries "")
      list(JOIN entries ":" kept)
      if(NOT kept STREQUAL CMAKE_MATCH_1)
        execute_process(COMMAND chrpath -r "${kept}" "${file}" OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
      endif()
    endif()
  elseif(head MATCHES "^2321")
    file(CHMOD "${file}" PERMISSIONS ${executable})
  else()
    file(CHMOD "${file}" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  endif()
endforeach()
