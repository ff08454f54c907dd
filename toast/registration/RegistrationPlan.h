#pragma once

#include <string>
#include <vector>

#include "toast/registration/RegistryValue.h"

namespace toast {

// Names this program in the Application log.
inline constexpr wchar_t kEventSource[] = L"VeyraCameraToastCntl";

// Where the class names the file that serves it.
inline constexpr wchar_t kServerKey[] =
    L"SOFTWARE\\Classes\\CLSID\\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}\\LocalServer32";
inline constexpr wchar_t kServerExecutable[] = L"ServerExecutable";

// What the registration of the program at this path writes, in this order: the class is last, since a client
// that finds its key takes the server for registered.
[[nodiscard]] std::vector<RegistryValue> RegistrationPlan(const std::wstring& programPath);

// The keys that are the registration's own, the class first.
[[nodiscard]] std::vector<std::wstring> RegistrationKeys();

}  // namespace toast
