# Debian's googletest package holds the sources; they are built here under the same checks.
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
foreach(library gtest gtest_main)
    target_link_libraries(${library} PUBLIC host_options)
endforeach()

# host_test(NAME SOURCES ... LINK ... [FILTER ...]): one test program, and one CTest entry for all its cases, whose results it
# leaves in a file. FILTER is GoogleTest's, to leave cases out.
function(host_test name)
    cmake_parse_arguments(TEST "" "FILTER" "SOURCES;LINK" ${ARGN})
    add_executable(${name} ${TEST_SOURCES})
    target_link_libraries(${name} PRIVATE ${TEST_LINK} gtest_main host_warnings)
    add_test(NAME ${name}
        COMMAND ${name} ${TEST_FILTER} --gtest_brief=1 --gtest_output=xml:${CMAKE_BINARY_DIR}/test-results/${name}.xml)
    set_tests_properties(${name} PROPERTIES TIMEOUT 300)
endfunction()
