#include "tests/support/GuidText.h"

#include <array>
#include <cstdio>

// As the tests have it, for a GUID whose first word is no long.

namespace test_support {

std::string GuidText(const GUID& guid) {
    std::array<char, 39> text{};
    std::snprintf(text.data(), text.size(), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.Data1,
                  guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3],
                  guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]);
    return text.data();
}

}  // namespace test_support
