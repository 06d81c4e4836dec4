# Run by CPack before it packs: a Debian package keeps the installation below /usr/lib/tmqkci, but what serves any
# architecture below /usr/share, with links to it, and puts the console on everyone's path.
cmake_policy(VERSION 3.25)

# Folders that others can enter, whatever the mask of who packs.
function(open_folders)
  file(GLOB_RECURSE entries LIST_DIRECTORIES true "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*")
  foreach(entry "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" ${entries})
    if(IS_DIRECTORY "${entry}" AND NOT IS_SYMLINK "${entry}")
      file(CHMOD "${entry}" DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
        WORLD_EXECUTE)
    endif()
  endforeach()
endfunction()

if(NOT CPACK_GENERATOR STREQUAL "DEB")
  open_folders()
  return()
endif()
set(usr "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr")
set(own "${usr}/lib/tmqkci")

include("${CMAKE_CURRENT_LIST_DIR}/debug_symbols.cmake")

# move(FROM TO [LINK]): below usr, to be found by the link at the former place.
function(move from to)
  get_filename_component(folder "${usr}/${to}" DIRECTORY)
  file(MAKE_DIRECTORY "${folder}")
  file(RENAME "${usr}/${from}" "${usr}/${to}")
  if(ARGC GREATER 2)
    file(CREATE_LINK "${ARGV2}" "${usr}/${from}" SYMBOLIC)
  endif()
endfunction()

function(compress file)
  execute_process(COMMAND gzip -9n "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(MAKE_DIRECTORY "${usr}/bin")
foreach(program tmqkci errmsgc)
  file(CREATE_LINK ../lib/tmqkci/bin/${program} "${usr}/bin/${program}" SYMBOLIC)
endforeach()
# Its own name may be taken by a program of the debugger's package.
file(CREATE_LINK ../lib/tmqkci/bin/gstack "${usr}/bin/tmqkci-gstack" SYMBOLIC)
move(lib/tmqkci/lib/tmqkci.jar "share/java/tmqkci-${CPACK_PACKAGE_VERSION}.jar" ../../../share/java/tmqkci.jar)
file(CREATE_LINK "tmqkci-${CPACK_PACKAGE_VERSION}.jar" "${usr}/share/java/tmqkci.jar" SYMBOLIC)
foreach(jar tmqkci-console jline3 picocli)
  move(lib/tmqkci/lib/${jar}.jar share/tmqkci/${jar}.jar ../../../share/tmqkci/${jar}.jar)
endforeach()
# For repositories of other build tools, which take them from the archive.
file(REMOVE_RECURSE "${own}/share/java")

move(lib/tmqkci/share/doc/tmqkci share/doc/tmqkci ../../../../share/doc/tmqkci)
# Debian has the text itself.
file(REMOVE "${usr}/share/doc/tmqkci/Apache-2.0")
compress("${usr}/share/doc/tmqkci/changelog")
if(EXISTS "${own}/share/man")
  move(lib/tmqkci/share/man share/man)
  move(share/man/man1/gstack.1 share/man/man1/tmqkci-gstack.1)
  file(GLOB pages "${usr}/share/man/man1/*.1")
  foreach(page ${pages})
    compress("${page}")
  endforeach()
endif()
move(lib/tmqkci/share/bash-completion share/bash-completion)

# The libraries of the other word size serve Javas of that kind.
if(TMQKCI_ARCHITECTURE STREQUAL "amd64")
  set(overrides "${usr}/share/lintian/overrides/tmqkci")
  file(WRITE "${overrides}" "tmqkci: binary-from-other-architecture *\n")
  file(CHMOD "${overrides}" FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endif()

file(GLOB compressed "${usr}/share/doc/tmqkci/*.gz" "${usr}/share/man/man1/*.gz")
file(CHMOD ${compressed} FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
open_folders()
