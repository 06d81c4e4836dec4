# Read by CPack for each package: what is in it, and where it stands. "cpack -D TMQKCI_ARCHITECTURE=amd64" makes the
# package for amd64, which has the libraries of both word sizes; without, it is the one for i386.
set(java "openjdk-17-jre-headless | java17-runtime-headless")
set(components Unspecified libraries32)
if(TMQKCI_ARCHITECTURE STREQUAL "amd64")
  list(APPEND components libraries64 tools64)
  set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "${java}, libc6-i386 | libc6:i386")
else()
  set(TMQKCI_ARCHITECTURE i386)
  list(APPEND components tools32)
  set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "${java}")
endif()
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${TMQKCI_ARCHITECTURE})
set(CPACK_PACKAGE_FILE_NAME "tmqkci-${CPACK_PACKAGE_VERSION}-linux-${TMQKCI_ARCHITECTURE}")

list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build_folder)
set(CPACK_INSTALL_CMAKE_PROJECTS)
foreach(component IN LISTS components)
  list(APPEND CPACK_INSTALL_CMAKE_PROJECTS "${build_folder}" tmqkci ${component} /)
endforeach()

# The debug symbols of a Debian package go into one beside it.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr/lib/tmqkci)
  set(CPACK_STRIP_FILES OFF)
else()
  set(CPACK_PACKAGING_INSTALL_PREFIX "")
endif()
