// set_start_type SERVICE Automatic|Delayed|Manual|Disabled: gives an installed service its start type. Exit
// code 0: done; 2: another number of words, or another word; else the Win32 code of the call that failed.

#include "packaging/start_type/StartType.h"

int wmain(int argc, wchar_t** argv) {
    constexpr int kWrongWords = 2;
    if (argc != 3) {
        return kWrongWords;
    }
    const auto type = start_type::StartTypeOf(argv[2]);
    return type ? static_cast<int>(start_type::SetStartType(argv[1], *type)) : kWrongWords;
}
