find_package(GTest REQUIRED)
include(GoogleTest)

# Seconds for one case. The longest takes 40 s with every core busy; sanitizers and emulators slow it down several times.
set(ORV_TEST_TIMEOUT 180)
if(ORV_SANITIZE OR CMAKE_CROSSCOMPILING)
  set(ORV_TEST_TIMEOUT 480)
endif()

# orv_add_test(NAME name SOURCES a.cpp ... [LIBS target ...] [TIMEOUT seconds] [PROPERTIES ...])
# One executable of GoogleTest cases, each its own CTest entry. A parameterised case is named by its name function, as
# GoogleTest names it, and not by its printed value, which may hold addresses. Each has the executable's name as label
# (ctest -L), and finds what tests share as <support/...>. The cases of the whole system take seconds each, so they start first.
function(orv_add_test)
  cmake_parse_arguments(arg "" "NAME;TIMEOUT" "SOURCES;LIBS;PROPERTIES" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT ${ORV_TEST_TIMEOUT})
  endif()
  add_executable(${arg_NAME} ${arg_SOURCES})
  target_link_libraries(${arg_NAME} PRIVATE ${arg_LIBS} orv::build_options GTest::gmock GTest::gtest_main)
  target_include_directories(${arg_NAME} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  set_target_properties(${arg_NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  # Half of a clean build's time goes into tests, and a fifth of theirs is the difference of these two.
  target_compile_options(${arg_NAME} PRIVATE $<$<CONFIG:Release>:-O1>)
  if(CMAKE_CURRENT_SOURCE_DIR STREQUAL "${PROJECT_SOURCE_DIR}/tests")
    list(APPEND arg_PROPERTIES COST 10)
  endif()
  if(ORV_SANITIZE MATCHES "thread")
    list(APPEND arg_PROPERTIES ENVIRONMENT "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/cmake/tsan.supp")
  endif()
  if(CMAKE_CROSSCOMPILING)
    list(APPEND arg_PROPERTIES ENVIRONMENT "ORV_EMULATED=1")
  endif()
  gtest_discover_tests(${arg_NAME} DISCOVERY_TIMEOUT 60 NO_PRETTY_VALUES
    PROPERTIES LABELS ${arg_NAME} TIMEOUT ${arg_TIMEOUT} ${arg_PROPERTIES})
endfunction()

# orv_add_fuzz_replay_test(name task source [library ...])
# The corpus of fuzz/<task> through the same functions as its fuzzers call, without one; `source` names the cases.
function(orv_add_fuzz_replay_test name task source)
  set(fuzz_folder ${PROJECT_SOURCE_DIR}/fuzz/${task})
  orv_add_test(NAME ${name} SOURCES ${source} ${fuzz_folder}/exercise.cpp LIBS ${ARGN})
  target_include_directories(${name} PRIVATE ${fuzz_folder} ${PROJECT_SOURCE_DIR}/fuzz)
  set_property(SOURCE ${source} PROPERTY COMPILE_DEFINITIONS ORV_FUZZ_CORPUS="${fuzz_folder}/corpus")
endfunction()
