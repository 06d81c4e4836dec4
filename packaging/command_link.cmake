# Run by CPack before it packs: a Debian package puts the console on everyone's path.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(bin "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/bin")
  file(MAKE_DIRECTORY "${bin}")
  file(CREATE_LINK ../lib/tmqkci/bin/tmqkci "${bin}/tmqkci" SYMBOLIC)
endif()
