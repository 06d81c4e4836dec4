# Tests of the bridge over the local client library, in a 32-bit Java. Each class has a process of its own, since the
# bridge's state belongs to the process.
set(junit_jars /usr/share/java/junit-jupiter-api.jar
  /usr/share/java/apiguardian-api.jar /usr/share/java/opentest4j.jar)
set(test_jar "${CMAKE_CURRENT_BINARY_DIR}/tmqkci-tests.jar")
tmqkci_jar("${test_jar}" test CLASSPATH "${product_jar}" ${junit_jars})

find_program(JAVA64 java HINTS /usr/lib/jvm/java-17-openjdk-amd64/bin REQUIRED)

# Libraries that cannot be loaded: one needs a library that is nowhere to be found, one a C library of the future.
add_library(java_test_absent SHARED src/test/c/absent.c)
add_library(java_test_needs_absent SHARED src/test/c/needs.c)
target_link_libraries(java_test_needs_absent PRIVATE java_test_absent)
add_library(java_test_future_libc SHARED src/test/c/absent.c)
set_target_properties(java_test_future_libc PROPERTIES NO_SONAME ON)
target_link_options(java_test_future_libc PRIVATE -Wl,-soname,libc.so.6
  "-Wl,--version-script,${CMAKE_CURRENT_SOURCE_DIR}/src/test/c/future.map")
add_library(java_test_needs_future SHARED src/test/c/needs.c)
target_link_libraries(java_test_needs_future PRIVATE java_test_future_libc)
set_target_properties(java_test_absent java_test_needs_absent java_test_future_libc java_test_needs_future PROPERTIES
  C_VISIBILITY_PRESET default SKIP_BUILD_RPATH ON)

# A client library that answers late and fails at each step, as the tests tell it; alone in an installation.
set(scripted_installation "${CMAKE_CURRENT_BINARY_DIR}/scripted")
add_library(java_test_scripted SHARED src/test/c/scripted.cpp)
target_include_directories(java_test_scripted PRIVATE "${PROJECT_SOURCE_DIR}/include")
set_target_properties(java_test_scripted PROPERTIES OUTPUT_NAME kcilnk67
  LIBRARY_OUTPUT_DIRECTORY "${scripted_installation}/lib")

# What the tests see as an installation.
set(test_installation "${CMAKE_CURRENT_BINARY_DIR}/kestrune")
set(links)
foreach(library tmqkci313 kcilnk67)
  list(APPEND links COMMAND "${CMAKE_COMMAND}" -E create_symlink "$<TARGET_FILE:${library}>"
    "${test_installation}/lib/$<TARGET_FILE_NAME:${library}>")
endforeach()
add_custom_command(OUTPUT "${test_installation}/.made"
  COMMAND "${CMAKE_COMMAND}" -E make_directory "${test_installation}/lib"
  ${links}
  COMMAND "${CMAKE_COMMAND}" -E touch "${test_installation}/.made"
  VERBATIM)
add_custom_target(tmqkci_java_tests ALL DEPENDS "${test_jar}" "${test_installation}/.made" tmqkci313 kcilnk67
  java_test_scripted java_test_needs_absent java_test_needs_future)

# tmqkci_java_test(CLASS [option...]): a class of tests, run with the given options of the virtual machine.
function(tmqkci_java_test class)
  add_test(NAME "Java.${class}"
    COMMAND "${PROJECT_SOURCE_DIR}/scripts/run-java-tests" "${CMAKE_CURRENT_BINARY_DIR}" "com.kestrune.tmqkci.${class}"
      ${ARGN})
  set_tests_properties("Java.${class}" PROPERTIES TIMEOUT 120 ENVIRONMENT "KESTRUNE=${test_installation}")
endfunction()

tmqkci_java_test(InitializationTest -Xcheck:jni)
tmqkci_java_test(NativeMethodsTest -Xcheck:jni)
# It sends double-byte strings: the release of one that was lent ends a checked virtual machine.
tmqkci_java_test(KciSessionTest)
tmqkci_java_test(KciThreadsTest)
tmqkci_java_test(ReferenceCountTest)
tmqkci_java_test(SecondCopyTest -Xcheck:jni)
tmqkci_java_test(ScriptedClientTest "-Dcom.kestrune.tmqkci.library=$<TARGET_FILE:tmqkci313>" -Xcheck:jni)
set_tests_properties(Java.ScriptedClientTest PROPERTIES ENVIRONMENT "KESTRUNE=${scripted_installation}")
tmqkci_java_test(LibraryTest "-Dtests.java64=${JAVA64}" "-Dtests.needsAbsent=$<TARGET_FILE:java_test_needs_absent>"
  "-Dtests.needsFuture=$<TARGET_FILE:java_test_needs_future>")

tmqkci_java_test(KciMessagesTest -Xcheck:jni)
set_property(TEST Java.KciMessagesTest Java.SecondCopyTest APPEND PROPERTY ENVIRONMENT
  "KESTRUNE_LANG=${PROJECT_BINARY_DIR}/messages/english67.err")
add_dependencies(tmqkci_java_tests messages)

set(documents using-the-bridge session-api threading security upgrading)
list(TRANSFORM documents PREPEND "${PROJECT_SOURCE_DIR}/docs/")
list(TRANSFORM documents APPEND ".md")
add_test(NAME Java.Examples COMMAND src/test/run-snippets "${JAVAC}" "${product_jar}" ${documents}
  WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")
add_test(NAME Java.Demo COMMAND src/test/run-demo "${product_jar}:${demo_jar}"
  WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")
set_tests_properties(Java.Examples Java.Demo PROPERTIES
  ENVIRONMENT "KESTRUNE=${test_installation}" TIMEOUT 120)
