# Read by CPack for each generator: where an installation stands. The debug symbols of a Debian package go into one
# beside it.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr/lib/tmqkci)
  set(CPACK_STRIP_FILES OFF)
else()
  set(CPACK_PACKAGING_INSTALL_PREFIX "")
endif()
