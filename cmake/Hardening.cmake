# What both presets share, and what each adds: the release is what ships, the checked build stops at the
# first undefined operation or library misuse.
add_library(project_options INTERFACE)
target_compile_features(project_options INTERFACE cxx_std_20)
target_compile_definitions(project_options INTERFACE
    UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00 WINVER=0x0A00 NTDDI_VERSION=0x0A000006)
target_compile_options(project_options INTERFACE -ffunction-sections -fdata-sections -fstack-protector-strong)
target_link_options(project_options INTERFACE -static -Wl,--gc-sections -fstack-protector-strong)
# GCC looks for memory to free less often than it would: a twentieth of its time.
target_compile_options(project_options INTERFACE
    $<$<CXX_COMPILER_ID:GNU>:--param=ggc-min-expand=400 --param=ggc-min-heapsize=1048576>)

# The release of the same sources has the same bytes, in whatever folder and at whatever time it is built.
target_compile_options(project_options INTERFACE $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CONFIG:Release>>:
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=build>)
target_link_options(project_options INTERFACE -Wl,--no-insert-timestamp)

option(VEYRA_CHECKED "Assertions, trapping undefined-behaviour checks, the checked C++ library" OFF)
if(VEYRA_CHECKED)
    target_compile_options(project_options INTERFACE -fsanitize=undefined -fsanitize-undefined-trap-on-error)
    target_compile_definitions(project_options INTERFACE _GLIBCXX_DEBUG)
else()
    target_compile_definitions(project_options INTERFACE _GLIBCXX_ASSERTIONS)
endif()

# The system's marshaller hands QueryInterface ids that lie unaligned in its format tables: the checked build would stop
# at each. This comes behind the options that switch the checks on.
add_library(unaligned_interface_ids INTERFACE)
target_compile_options(unaligned_interface_ids INTERFACE -fno-sanitize=alignment)

option(VEYRA_COVERAGE "Count which lines and branches of src/ run" OFF)
add_library(project_coverage INTERFACE)
if(VEYRA_COVERAGE)
    target_compile_options(project_coverage INTERFACE --coverage -O0 -fprofile-update=atomic)
    target_link_options(project_options INTERFACE --coverage)
endif()
