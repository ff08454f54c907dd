#include "check/ComputerNames.h"

#include "check/Utf8.h"

#include <windows.h>

#include <array>

namespace check {
namespace {

constexpr std::array kFormats{ComputerNameNetBIOS, ComputerNamePhysicalDnsHostname,
                              ComputerNamePhysicalDnsDomain, ComputerNamePhysicalDnsFullyQualified};

std::string NameOf(COMPUTER_NAME_FORMAT format) {
    DWORD size = 0;
    GetComputerNameExW(format, nullptr, &size);
    std::wstring name(size, L'\0');
    if (size == 0 || !GetComputerNameExW(format, name.data(), &size)) {
        return {};
    }
    name.resize(size);
    return Utf8(name);
}

}  // namespace

std::vector<std::string> ComputerNames() {
    std::vector<std::string> names;
    for (const COMPUTER_NAME_FORMAT format : kFormats) {
        if (std::string name = NameOf(format); !name.empty()) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

}  // namespace check
