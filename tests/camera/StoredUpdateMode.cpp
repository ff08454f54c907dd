#include "tests/camera/StoredUpdateMode.h"

#include <windows.h>

#include <array>

namespace {

constexpr const wchar_t* kKey = L"SYSTEM\\CurrentControlSet\\Services\\VeyraCameraDFU";

}  // namespace

StoredUpdateMode::StoredUpdateMode() {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey);
}

StoredUpdateMode::~StoredUpdateMode() {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey);
}

std::optional<std::wstring> StoredUpdateMode::Text() const {
    std::array<wchar_t, 64> text{};
    DWORD size = sizeof text;
    if (RegGetValueW(HKEY_LOCAL_MACHINE, kKey, L"DFUAutoMode", RRF_RT_REG_SZ, nullptr, text.data(), &size) !=
        ERROR_SUCCESS) {
        return std::nullopt;
    }
    return std::wstring(text.data());
}
