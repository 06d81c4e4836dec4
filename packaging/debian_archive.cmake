# Run by CPack after it has packed: its Debian archive tells the mask of who packs, that of dpkg-deb does not.
if(CPACK_GENERATOR STREQUAL "DEB")
  foreach(package ${CPACK_PACKAGE_FILES})
    execute_process(COMMAND dpkg-deb --raw-extract "${package}" "${package}.content" COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND dpkg-deb --root-owner-group --build "${package}.content" "${package}" OUTPUT_QUIET
      COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE "${package}.content")
  endforeach()
endif()
