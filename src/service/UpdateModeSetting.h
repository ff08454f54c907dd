#pragma once

#include "diagnostics/DfuLogger.h"

#include <windows.h>

// The three texts of the update mode. Only the last one lets this service update cameras.
inline constexpr const wchar_t* kUpdateModeDisabled = L"Disabled";
inline constexpr const wchar_t* kUpdateModeAuto = L"Auto";
inline constexpr const wchar_t* kUpdateModeServiceControlled = L"Service Controlled";

// The update mode: the REG_SZ value "DFUAutoMode" under HKEY_LOCAL_MACHINE
// "SYSTEM\CurrentControlSet\Services\VeyraCameraDFU". A missing key or value, or any text but "Service
// Controlled", is as good as "Disabled". That the key is not the installed service's own
// ("VeyraCameraDfuService") is deliberate. Nothing is kept between the calls, which any thread may make.
class UpdateModeSetting : public DfuLogger {
  public:
    // Failures to write are logged to `logStream`, which may be null; reading never logs.
    explicit UpdateModeSetting(std::ostream* logStream);

    // S_OK when the value reads exactly "Service Controlled"; E_FAIL when it reads anything else; the HRESULT
    // of the registry error when the key or value is missing or longer than that text.
    [[nodiscard]] HRESULT IsServiceControlled() const;

    // Stores one of the texts above, without its terminator. S_OK; E_FAIL for every failure, the logged line
    // has the Win32 code.
    HRESULT WriteUpdateMode(const wchar_t* text) const;
};
