# veyra_folder(NAME SOURCES ... LINK ...): one folder of src/, toast/ or lab/ as one static library. LINK lists exactly
# the folders and system libraries that it may use, so that a wrong arrow does not link.
function(veyra_folder name)
    cmake_parse_arguments(FOLDER "" "" "SOURCES;LINK" ${ARGN})
    add_library(${name} STATIC ${FOLDER_SOURCES})
    target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/..)
    target_link_libraries(${name} PUBLIC project_options ${FOLDER_LINK} PRIVATE project_warnings)
    if(CMAKE_CURRENT_SOURCE_DIR MATCHES "^${PROJECT_SOURCE_DIR}/(src|toast)/")
        target_link_libraries(${name} PRIVATE project_coverage product_warnings)
    endif()
endfunction()

# precompiled_headers(NAME HEADERS ... LINK ...): headers that many files include and that take longer than all else in them,
# read once. A target takes them with target_precompile_headers(TARGET REUSE_FROM NAME), if it is compiled with the same
# options: LINK names the libraries that bring them.
function(precompiled_headers name)
    cmake_parse_arguments(PCH "" "" "HEADERS;LINK" ${ARGN})
    add_library(${name} OBJECT ${PROJECT_SOURCE_DIR}/cmake/Nothing.cpp)
    target_link_libraries(${name} PRIVATE project_options project_warnings ${PCH_LINK})
    target_precompile_headers(${name} PRIVATE ${PCH_HEADERS})
endfunction()

# without_library_words(TARGET): what the library says about uncaught exceptions and failed assertions goes to a console that the
# product's programs do not have, and brings 68 KB along (the demangler). Both end in abort, with exit code 3: what ships goes
# there at once.
function(without_library_words target)
    if(NOT VEYRA_CHECKED)
        target_link_options(${target} PRIVATE
            -Wl,--defsym,_ZN9__gnu_cxx27__verbose_terminate_handlerEv=abort
            -Wl,--defsym,_ZSt21__glibcxx_assert_failPKciS0_S0_=abort)
    endif()
endfunction()

# split_symbols(TARGET): ships the executable stripped, in the build folder's root, with its symbols kept beside it in a file of its
# name and ".debug", which debuggers find by the link in the executable. --preserve-dates: the time in the header stays the
# linker's, which is none. The linker's map, in a file of its name and ".map", tells the packaging what of others is in it.
function(split_symbols target)
    set(file $<TARGET_FILE_NAME:${target}>)
    target_link_options(${target} PRIVATE -Wl,-Map=${file}.map)
    set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
    add_custom_command(TARGET ${target} POST_BUILD
        WORKING_DIRECTORY ${CMAKE_BINARY_DIR}
        COMMAND ${CMAKE_OBJCOPY} --preserve-dates --only-keep-debug ${file} ${file}.debug
        COMMAND ${CMAKE_OBJCOPY} --preserve-dates --strip-all ${file}
        COMMAND ${CMAKE_OBJCOPY} --preserve-dates --add-gnu-debuglink=${file}.debug ${file}
        VERBATIM)
endfunction()
