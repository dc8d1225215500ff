# cairn_test(NAME source...) builds the executable test_NAME and registers each of its cases with
# CTest under the prefix NAME.
function(cairn_test name)
  add_executable(test_${name} ${ARGN})
  target_link_libraries(test_${name} PRIVATE MrouteCairn::Types GTest::gmock GTest::gtest_main)
  target_include_directories(test_${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests ${CMAKE_SOURCE_DIR})
  target_precompile_headers(test_${name} REUSE_FROM cairn_test_headers)
  cairn_count_deaths(test_${name})
  gtest_discover_tests(test_${name} TEST_PREFIX "${name}." DISCOVERY_MODE PRE_TEST
                       PROPERTIES TIMEOUT 300)
endfunction()

# In a build that counts what runs: counts what runs until an assertion fails, too.
function(cairn_count_deaths target)
  if(CAIRN_COVERAGE)
    target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/tests/support/Flush.cpp)
  endif()
endfunction()
