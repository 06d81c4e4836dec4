# The rest of an installation (headers, CMake package, pkg-config file, Maven description), and its packages.
include(CMakePackageConfigHelpers)

set(packaging "${CMAKE_CURRENT_LIST_DIR}")
set(package_files "${PROJECT_BINARY_DIR}/packaging")

install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/" DESTINATION include FILES_MATCHING PATTERN "*.h")

# Which word size a consumer has is asked in the configuration file, which can say so.
write_basic_package_version_file("${package_files}/tmqkciConfigVersion.cmake" COMPATIBILITY SameMajorVersion
  ARCH_INDEPENDENT)
foreach(size IN LISTS TMQKCI_WORD_SIZES)
  tmqkci_word_size(${size})
  configure_file("${packaging}/tmqkci.pc.in" "${package_files}/${library_folder}/tmqkci.pc" @ONLY)
  install(FILES "${package_files}/${library_folder}/tmqkci.pc" DESTINATION ${library_folder}/pkgconfig
    COMPONENT libraries${word_size})
endforeach()
configure_file("${packaging}/tmqkci.pom.in" "${package_files}/tmqkci.pom" @ONLY)
install(FILES "${packaging}/tmqkciConfig.cmake" "${package_files}/tmqkciConfigVersion.cmake"
  DESTINATION lib/cmake/tmqkci)
install(FILES "${package_files}/tmqkci.pom" DESTINATION share/java)

include("${packaging}/generated.cmake")

set(CPACK_PACKAGE_NAME tmqkci)
set(CPACK_PACKAGE_VENDOR Kestrune)
set(CPACK_PACKAGE_CONTACT "Kestrune <tmqkci@kestrune.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Java bridge to an object database, with console and local store")
# A package's description has lines of at most 80 characters with the space before them.
set(CPACK_PACKAGE_DESCRIPTION "A library with the native methods of com.kestrune.tmqkci,
the Java package over it, a console, a diagnosis of what works on
this system, and a store inside the process for work without a server.")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_STRIP_FILES ON)
set(CPACK_GENERATOR TGZ DEB)
set(CPACK_PROJECT_CONFIG_FILE "${packaging}/package.cmake")

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION database)
# The highest version that a program or library needs of it; a test of the package holds them and the documents to it.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.35)")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS gdb)
set(CPACK_PRE_BUILD_SCRIPTS "${packaging}/debian_layout.cmake")
set(CPACK_POST_BUILD_SCRIPTS "${packaging}/debian_archive.cmake")
include(CPack)
