# Tests of the bridge over the local client library. Each class has a process of its own, since the bridge's state
# belongs to the process.
set(junit_jars /usr/share/java/junit-jupiter-api.jar
  /usr/share/java/apiguardian-api.jar /usr/share/java/opentest4j.jar)
set(test_jar "${CMAKE_CURRENT_BINARY_DIR}/tmqkci-tests.jar")
tmqkci_jar("${test_jar}" test CLASSPATH "${product_jar}" ${junit_jars})

# What the tests see as an installation: links to the libraries, and one with the scripted client library alone.
set(test_installation "${CMAKE_CURRENT_BINARY_DIR}/kestrune")
set(scripted_installation "${CMAKE_CURRENT_BINARY_DIR}/scripted")
# The same with the stores exchanged: each library finds a store of the other word size.
set(crossed_installation "${CMAKE_CURRENT_BINARY_DIR}/crossed")
# Another without what starts host processes.
set(plain_installation "${CMAKE_CURRENT_BINARY_DIR}/plain")
set(other_folder_of_32 lib64)
set(other_folder_of_64 lib)
set(links)
foreach(installation "${test_installation}" "${crossed_installation}" "${plain_installation}")
  list(APPEND links COMMAND "${CMAKE_COMMAND}" -E make_directory "${installation}/lib" "${installation}/lib64"
    "${installation}/bin")
endforeach()
set(java_tests)
foreach(size IN LISTS TMQKCI_WORD_SIZES)
  tmqkci_word_size(${size})
  set(host tmqkci-host${size})
  foreach(installation "${test_installation}" "${crossed_installation}")
    list(APPEND links COMMAND "${CMAKE_COMMAND}" -E create_symlink "$<TARGET_FILE:${host}>" "${installation}/bin/${host}")
    foreach(library tmqkci313${suffix} kcirpc67${suffix})
      list(APPEND links COMMAND "${CMAKE_COMMAND}" -E create_symlink "$<TARGET_FILE:${library}>"
        "${installation}/${library_folder}/$<TARGET_FILE_NAME:${library}>")
    endforeach()
  endforeach()
  foreach(folder "${test_installation}/${library_folder}" "${plain_installation}/${library_folder}"
      "${crossed_installation}/${other_folder_of_${size}}")
    list(APPEND links COMMAND "${CMAKE_COMMAND}" -E create_symlink "$<TARGET_FILE:kcilnk67${suffix}>"
      "${folder}/libkcilnk67.so")
  endforeach()
  list(APPEND links COMMAND "${CMAKE_COMMAND}" -E create_symlink "$<TARGET_FILE:tmqkci313${suffix}>"
    "${plain_installation}/${library_folder}/libtmqkci313.so")
  # What the tests in a Java of this word size need.
  add_custom_target(tmqkci_java_tests${size} DEPENDS "${test_jar}" "${test_installation}/.made")
  add_dependencies(tmqkci_java_tests${size} messages tmqkci313${suffix} kcirpc67${suffix} kcilnk67${suffix} ${host}
    java_test_scripted${suffix})
  list(APPEND java_tests tmqkci_java_tests${size})
endforeach()
add_custom_command(OUTPUT "${test_installation}/.made"
  ${links}
  COMMAND "${CMAKE_COMMAND}" -E touch "${test_installation}/.made"
  VERBATIM)
add_custom_target(tmqkci_java_tests ALL DEPENDS ${java_tests})

set(documents using-the-bridge session-api threading security upgrading)
list(TRANSFORM documents PREPEND "${PROJECT_SOURCE_DIR}/docs/")
list(TRANSFORM documents APPEND ".md")

# java_test(NAME command...): a test in the configuration at hand, over the local store.
function(java_test name)
  set(name "Java.${name}.${configuration}")
  add_test(NAME "${name}" COMMAND ${ARGN} WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")
  set_tests_properties("${name}" PROPERTIES TIMEOUT 120 ENVIRONMENT "KESTRUNE=${test_installation}")
endfunction()

# java_class(CLASS [option...] [NAME name]): a class of tests, run with the given options of the virtual machine.
function(java_class class)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" NAME "")
  if(NOT arg_NAME)
    set(arg_NAME ${class})
  endif()
  java_test(${arg_NAME} "${PROJECT_SOURCE_DIR}/scripts/run-java-tests" "${java}" "${CMAKE_CURRENT_BINARY_DIR}"
    "com.kestrune.tmqkci.${class}" ${arg_UNPARSED_ARGUMENTS})
endfunction()

foreach(configuration IN LISTS java_configurations)
  set(java "${home_of_${configuration}}")
  string(REGEX MATCH "[0-9]+" size "${configuration}")
  tmqkci_word_size(${size})
  java_class(InitializationTest -Xcheck:jni)
  set_property(TEST Java.InitializationTest.${configuration} PROPERTY ENVIRONMENT "KESTRUNE=${plain_installation}")
  # It sends double-byte strings: the release of one that was lent ends a checked virtual machine.
  java_class(KciSessionTest)
  java_class(KciMonitorTest)
  java_class(KciSessionPoolTest)
  java_class(KciStoppingTest -Xcheck:jni)
  java_class(ReferenceCountTest)
  java_class(SecondCopyTest -Xcheck:jni)
  java_class(ScriptedClientTest "-Dcom.kestrune.tmqkci.library=$<TARGET_FILE:tmqkci313${suffix}>" -Xcheck:jni)
  set_property(TEST Java.ScriptedClientTest.${configuration} PROPERTY ENVIRONMENT "KESTRUNE=${scripted_installation}")
  java_class(LibraryTest "-Dtests.java32=${home_of_java32}/bin/java" "-Dtests.java64=${home_of_java64}/bin/java")
  java_class(KciMessagesTest -Xcheck:jni)
  set_property(TEST Java.KciMessagesTest.${configuration} Java.SecondCopyTest.${configuration} APPEND PROPERTY ENVIRONMENT
    "KESTRUNE_LANG=${PROJECT_BINARY_DIR}/messages/english67.err")
  # The same over stores in host processes.
  foreach(class KciSessionTest KciSessionPoolTest KciStoppingTest)
    foreach(host own other)
      java_class(${class} NAME ${class}.${host}Host)
    endforeach()
    set_property(TEST Java.${class}.ownHost.${configuration} APPEND PROPERTY ENVIRONMENT KCIRTL_HOST=1)
    set_property(TEST Java.${class}.otherHost.${configuration} PROPERTY ENVIRONMENT "KESTRUNE=${crossed_installation}")
  endforeach()
  java_test(Examples src/test/run-snippets "${JAVAC}" "${java}" "${product_jar}" ${documents})
  java_test(Demo src/test/run-demo "${java}" "${product_jar}:${demo_jar}")
endforeach()
