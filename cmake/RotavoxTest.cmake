# rotavox_test(SOURCES <file_test.cpp> [<helpers...>] [LIBS <targets...>]
#              [LABELS <labels...>] [TIMEOUT <seconds>])
# One GoogleTest executable, registered as one ctest test, both named after
# the first source file (ALooper_test.cpp -> ALooper_test), so that
# `ctest -R ALooper` finds the looper's tests.  Every test executable links
# the log capture (host/testing), so tests can look at the log lines the code
# under test writes.
# ROTAVOX_TEST_TIME_FACTOR (more than 1 under an emulator) stretches the
# TIMEOUT here and, through the environment, the deadlines inside the tests.
if(NOT DEFINED ROTAVOX_TEST_TIME_FACTOR)
  set(ROTAVOX_TEST_TIME_FACTOR 1)
endif()
function(rotavox_test)
  cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  list(GET T_SOURCES 0 first)
  get_filename_component(T_FILE_NAME ${first} NAME_WE)
  if(NOT T_NAME)
    set(T_NAME ${T_FILE_NAME})
  elseif(NOT T_NAME STREQUAL T_FILE_NAME)
    message(FATAL_ERROR "rotavox_test: ${T_NAME} must be named after its file, ${T_FILE_NAME}")
  endif()
  add_executable(${T_NAME} ${T_SOURCES})
  target_compile_options(${T_NAME} PRIVATE ${ROTAVOX_WARNINGS})
  target_link_libraries(${T_NAME} PRIVATE rotavox_testing ${T_LIBS} GTest::gmock GTest::gtest_main Threads::Threads)
  add_test(NAME ${T_NAME} COMMAND ${T_NAME})
  set_tests_properties(${T_NAME} PROPERTIES
    ENVIRONMENT "ROTAVOX_FIXTURES=${CMAKE_BINARY_DIR}/fixtures;ROTAVOX_PROPERTIES_FILE=;ROTAVOX_PROPERTIES=host.audio.sink=null;ROTAVOX_TEST_TIME_FACTOR=${ROTAVOX_TEST_TIME_FACTOR}")
  if(T_LABELS)
    set_tests_properties(${T_NAME} PROPERTIES LABELS "${T_LABELS}")
  endif()
  if(T_TIMEOUT)
    math(EXPR timeout "${T_TIMEOUT} * ${ROTAVOX_TEST_TIME_FACTOR}")
    set_tests_properties(${T_NAME} PROPERTIES TIMEOUT ${timeout})
  endif()
endfunction()
