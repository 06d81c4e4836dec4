# find_package(tmqkci): the target tmqkci::tmqkci, the support layer of the bridge for C and C++ programs.
math(EXPR tmqkci_bits "8 * ${CMAKE_SIZEOF_VOID_P}")
if(NOT EXISTS "${CMAKE_CURRENT_LIST_DIR}/tmqkciTargets${tmqkci_bits}.cmake")
  set(tmqkci_FOUND FALSE)
  set(tmqkci_NOT_FOUND_MESSAGE "this installation of tmqkci has no ${tmqkci_bits}-bit library: install the package that has one, or configure with "
    "-m32 (-m64) in CMAKE_C_FLAGS and CMAKE_CXX_FLAGS")
  list(JOIN tmqkci_NOT_FOUND_MESSAGE "" tmqkci_NOT_FOUND_MESSAGE)
  return()
endif()
include("${CMAKE_CURRENT_LIST_DIR}/tmqkciTargets${tmqkci_bits}.cmake")
