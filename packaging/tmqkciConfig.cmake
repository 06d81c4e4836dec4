# find_package(tmqkci): the target tmqkci::tmqkci, the support layer of the bridge for C and C++ programs.
if(NOT CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(tmqkci_FOUND FALSE)
  set(tmqkci_NOT_FOUND_MESSAGE "tmqkci is a 32-bit (i386) library: configure with -m32 in CMAKE_C_FLAGS and "
    "CMAKE_CXX_FLAGS")
  list(JOIN tmqkci_NOT_FOUND_MESSAGE "" tmqkci_NOT_FOUND_MESSAGE)
  return()
endif()

get_filename_component(tmqkci_PREFIX "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
if(NOT TARGET tmqkci::tmqkci)
  add_library(tmqkci::tmqkci SHARED IMPORTED)
  set_target_properties(tmqkci::tmqkci PROPERTIES
    IMPORTED_LOCATION "${tmqkci_PREFIX}/lib/libtmqkci313.so"
    IMPORTED_SONAME libtmqkci313.so
    INTERFACE_INCLUDE_DIRECTORIES "${tmqkci_PREFIX}/include")
endif()
