# GoogleTest as Debian's libgtest-dev has built it: it holds no test's data, so that it need not be under the checks.
find_package(GTest REQUIRED)

# What a test is judged by is not how fast it runs, and nobody reads its symbols but in a sanitizer's report. It is what is
# tested that stops at the first undefined operation: checks of the tests' own are half again of what they take to compile. The
# last library that is linked has the last word, against the options of what is tested.
add_library(host_test_options INTERFACE)
target_compile_options(host_test_options INTERFACE -O0 -g1 -fno-sanitize=undefined)

# What half of a test's file consists of is read once.
add_library(precompiled_headers OBJECT ${PROJECT_SOURCE_DIR}/cmake/Nothing.cpp)
target_link_libraries(precompiled_headers PRIVATE compat GTest::gtest host_warnings host_test_options)
target_precompile_headers(precompiled_headers PRIVATE <gtest/gtest.h>)

# host_test(NAME SOURCES ... LINK ... [FILTER ...]): one test program, and one CTest entry for all its cases, whose results it
# leaves in a file. FILTER is GoogleTest's, to leave cases out.
function(host_test name)
    cmake_parse_arguments(TEST "" "FILTER" "SOURCES;LINK" ${ARGN})
    add_executable(${name} ${TEST_SOURCES})
    target_link_libraries(${name} PRIVATE compat ${TEST_LINK} GTest::gtest_main host_warnings host_test_options)
    target_precompile_headers(${name} REUSE_FROM precompiled_headers)
    add_test(NAME ${name}
        COMMAND ${name} ${TEST_FILTER} --gtest_brief=1 --gtest_output=xml:${CMAKE_BINARY_DIR}/test-results/${name}.xml)
    set_tests_properties(${name} PROPERTIES TIMEOUT 300)
endfunction()
