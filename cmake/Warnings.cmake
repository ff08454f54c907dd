# The project's own code is held to this set; libraries (GoogleTest) are not.
add_library(project_warnings INTERFACE)
target_compile_options(project_warnings INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:
    -Werror -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Wcast-qual -Wlogical-op -Wduplicated-cond -Wduplicated-branches -Wnull-dereference -Wformat=2
    -Wundef -Wsuggest-override -Wswitch-enum -Wzero-as-null-pointer-constant -Wextra-semi>)
