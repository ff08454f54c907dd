#pragma once

#include <guiddef.h>

#include <string>

namespace test_support {

// The text form with braces, in upper case.
[[nodiscard]] std::string GuidText(const GUID& guid);

}  // namespace test_support
