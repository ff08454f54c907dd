// What test_symbolize has every file of the product see: a line can ask whether the crash is to be there.
#pragma once
#pragma GCC system_header

#include <windows.h>

namespace seeded {

// Whether the machine's registry names this place.
inline bool Is(DWORD place) {
    DWORD value = 0;
    DWORD size = sizeof value;
    return RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\VeyraSeeded", L"Place", RRF_RT_REG_DWORD, nullptr,
                        &value, &size) == ERROR_SUCCESS &&
           value == place;
}

}  // namespace seeded
