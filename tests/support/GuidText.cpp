#include "tests/support/GuidText.h"

#include <array>
#include <cstdio>

namespace test_support {

std::string GuidText(const GUID& guid) {
    const unsigned long firstWord = guid.Data1;
    std::array<char, 39> text{};
    std::snprintf(text.data(), text.size(), "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", firstWord,
                  guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3],
                  guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]);
    return text.data();
}

}  // namespace test_support
