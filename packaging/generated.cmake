# What is generated of the finished programs: manual pages, command completion, the list of what the packages hold.
set(generated "${PROJECT_BINARY_DIR}/packaging")
set(generated_files)

# Completion of the console's options, by the library that reads them.
set(completion "${generated}/tmqkci.bash")
add_custom_command(OUTPUT "${completion}"
  COMMAND "${JAVA64}" -cp "${TMQKCI_CONSOLE_CLASSPATH}" picocli.AutoComplete --force --name tmqkci
    --completionScript "${completion}" com.kestrune.tmqkci.console.Tmqkci
  # It is read by a shell, not run.
  COMMAND sed -i "1{/^#!/d}" "${completion}"
  DEPENDS "${TMQKCI_CONSOLE_HELP}" VERBATIM)
list(APPEND generated_files "${completion}")
install(FILES "${completion}" DESTINATION share/bash-completion/completions RENAME tmqkci)

find_program(HELP2MAN help2man)
if(HELP2MAN)
  # tmqkci_manual_page(NAME SUMMARY FOLDER DEPENDENCY): of what the program of that name in the folder prints as help.
  # It is started by a short name, since help2man hands it to a shell as it is.
  function(tmqkci_manual_page name summary folder dependency)
    set(page "${generated}/${name}.1")
    add_custom_command(OUTPUT "${page}"
      COMMAND "${CMAKE_COMMAND}" -E env LC_ALL=C.UTF-8 "${HELP2MAN}" --no-info --no-discard-stderr --name "${summary}"
        --version-string "${name} ${PROJECT_VERSION}" --manual "User Commands" --source "tmqkci ${PROJECT_VERSION}"
        --output "${page}" "./${name}"
      WORKING_DIRECTORY "${folder}" DEPENDS "${dependency}" VERBATIM)
    list(APPEND generated_files "${page}")
    set(generated_files "${generated_files}" PARENT_SCOPE)
    install(FILES "${page}" DESTINATION share/man/man1)
  endfunction()
  # The launcher would look for a Java; this prints the same.
  file(CONFIGURE OUTPUT "${generated}/tmqkci" CONTENT "#!/bin/sh\ncat \"${TMQKCI_CONSOLE_HELP}\"\n")
  file(CHMOD "${generated}/tmqkci" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
  tmqkci_manual_page(tmqkci "evaluate expressions on an object database server" "${generated}"
    "${TMQKCI_CONSOLE_HELP}")
  foreach(tool errmsgc gstack)
    string(REPLACE errmsgc "compile and examine message files" summary "${tool}")
    string(REPLACE gstack "print the C stacks of a process" summary "${summary}")
    tmqkci_manual_page(${tool} "${summary}" "$<TARGET_FILE_DIR:${tool}>" ${tool})
  endforeach()
else()
  message(STATUS "help2man is not there: packages get no manual pages")
endif()

# What the packages hold of other makers, in SPDX 2.3.
function(tmqkci_debian_version package variable)
  execute_process(COMMAND dpkg-query -W -f "\${Version}" ${package} OUTPUT_VARIABLE version ERROR_QUIET)
  set(${variable} "${version}" PARENT_SCOPE)
endfunction()
tmqkci_debian_version(libjline3-java jline_version)
tmqkci_debian_version(libpicocli-java picocli_version)
file(SHA256 /usr/share/java/jline3.jar jline_sha256)
file(SHA256 /usr/share/java/picocli.jar picocli_sha256)
string(TIMESTAMP sbom_time "%Y-%m-%dT%H:%M:%SZ" UTC)
string(SHA256 sbom_name "${PROJECT_VERSION} ${jline_sha256} ${picocli_sha256} ${CMAKE_CXX_COMPILER_VERSION}")
configure_file("${PROJECT_SOURCE_DIR}/packaging/tmqkci.spdx.json.in" "${generated}/tmqkci.spdx.json" @ONLY)
install(FILES "${generated}/tmqkci.spdx.json" DESTINATION share/doc/tmqkci)

configure_file("${PROJECT_SOURCE_DIR}/packaging/changelog.in" "${generated}/changelog" @ONLY)
install(FILES "${generated}/changelog" "${PROJECT_SOURCE_DIR}/packaging/copyright" DESTINATION share/doc/tmqkci)

add_custom_target(tmqkci_generated ALL DEPENDS ${generated_files})
