# Included by the layout of a Debian package: takes the debug symbols out of its programs and libraries, into a package
# beside it, where debuggers find them by build identifiers. CPack's own way to do so lists files that are not there.
set(symbols "${CPACK_TEMPORARY_INSTALL_DIRECTORY}-dbgsym")
file(REMOVE_RECURSE "${symbols}")
file(GLOB binaries "${own}/lib*/*.so" "${own}/bin/*")
set(build_ids)
foreach(binary ${binaries})
  execute_process(COMMAND readelf -n "${binary}" OUTPUT_VARIABLE notes ERROR_QUIET)
  if(notes MATCHES "Build ID: ([0-9a-f][0-9a-f])([0-9a-f]+)")
    set(folder "${symbols}/usr/lib/debug/.build-id/${CMAKE_MATCH_1}")
    list(APPEND build_ids "${CMAKE_MATCH_1}${CMAKE_MATCH_2}")
    file(MAKE_DIRECTORY "${folder}")
    set(debug "${folder}/${CMAKE_MATCH_2}.debug")
    execute_process(COMMAND objcopy --only-keep-debug --compress-debug-sections "${binary}" "${debug}"
      COMMAND_ERROR_IS_FATAL ANY)
    file(CHMOD "${debug}" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    execute_process(COMMAND strip --strip-unneeded --remove-section=.comment --remove-section=.note "${binary}"
      COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()
list(JOIN build_ids " " build_ids)
file(MAKE_DIRECTORY "${symbols}/usr/share/doc")
file(CREATE_LINK ${CPACK_PACKAGE_NAME} "${symbols}/usr/share/doc/${CPACK_PACKAGE_NAME}-dbgsym" SYMBOLIC)

file(WRITE "${symbols}/DEBIAN/control" "Package: ${CPACK_PACKAGE_NAME}-dbgsym
Version: ${CPACK_PACKAGE_VERSION}
Architecture: ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}
Maintainer: ${CPACK_PACKAGE_CONTACT}
Section: debug
Priority: optional
Auto-Built-Package: debug-symbols
Build-Ids: ${build_ids}
Depends: ${CPACK_PACKAGE_NAME} (= ${CPACK_PACKAGE_VERSION})
Description: debug symbols for ${CPACK_PACKAGE_NAME}
")
execute_process(COMMAND sh -c "find usr -type f | LC_ALL=C sort | xargs md5sum >DEBIAN/md5sums && \
    chmod 644 DEBIAN/* && find . -type d -exec chmod 755 {} +"
  WORKING_DIRECTORY "${symbols}" COMMAND_ERROR_IS_FATAL ANY)
set(package "${CPACK_PACKAGE_NAME}-dbgsym_${CPACK_PACKAGE_VERSION}_${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}.deb")
execute_process(COMMAND dpkg-deb --root-owner-group --build "${symbols}" "${CPACK_PACKAGE_DIRECTORY}/${package}"
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
