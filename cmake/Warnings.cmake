# The project's own code is held to this set; libraries (GoogleTest) are not.
add_library(project_warnings INTERFACE)
target_compile_options(project_warnings INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:
    -Werror -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wcast-qual -Wnull-dereference -Wformat=2 -Wundef -Wsuggest-override -Wswitch-enum
    -Wzero-as-null-pointer-constant -Wextra-semi>
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wlogical-op -Wduplicated-cond -Wduplicated-branches>)

# The product keeps to the standard: clang knows which words of a language's dialect are GNU's, and which are Microsoft's own.
add_library(product_warnings INTERFACE)
target_compile_options(product_warnings INTERFACE
    $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-pedantic-errors -Wgnu -Wmicrosoft -Wlanguage-extension-token>)
