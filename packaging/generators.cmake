# Read by CPack for each generator: where an installation stands.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr/lib/tmqkci)
else()
  set(CPACK_PACKAGING_INSTALL_PREFIX "")
endif()
