# Cross-building for 64-bit Windows with Debian's clang: a second opinion on the sources. Headers, C++ library and linker are
# those of mingw-w64's GCC, since LLVM's linker loses the unwinding tables of that library.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-x86_64.cmake)
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-libgcc-file-name OUTPUT_VARIABLE gcc OUTPUT_STRIP_TRAILING_WHITESPACE)
cmake_path(GET gcc PARENT_PATH gcc)

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-windows-gnu)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-windows-gnu)
set(CMAKE_OBJCOPY x86_64-w64-mingw32-objcopy)
# The library's thread-local variables are GCC's, and it brings the comparison of types itself. Its functions that are rarely
# called lie in sections without a prefix of their own, by whose names GNU ld knows that two are the same.
set(CMAKE_CXX_FLAGS_INIT "-B/usr/x86_64-w64-mingw32/bin -femulated-tls -D__GXX_TYPEINFO_EQUALITY_INLINE=0")
add_compile_options(
    $<$<COMPILE_LANGUAGE:CXX>:-nostdinc++> "$<$<COMPILE_LANGUAGE:CXX>:SHELL:-mllvm -profile-guided-section-prefix=false>")
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${gcc}/include/c++ ${gcc}/include/c++/x86_64-w64-mingw32)
foreach(kind EXE SHARED)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-L${gcc}")
endforeach()
set_property(GLOBAL PROPERTY RULE_LAUNCH_LINK ${CMAKE_CURRENT_LIST_DIR}/clang-link.sh)
set(CMAKE_CXX_STANDARD_LIBRARIES
    "-Wl,--start-group -lstdc++ -lssp -lgcc -lgcc_eh -lpthread -lmingwex -lmingw32 -lmsvcrt -lkernel32 -ladvapi32 -lshell32 \
-luser32 -lole32 -loleaut32 -luuid -Wl,--end-group")
