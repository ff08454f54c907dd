#pragma once

#include "check/AccessList.h"

#include <windows.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace check {

// What a valid security descriptor says.
[[nodiscard]] AccessList ReadSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor);

// The same of a self-relative one that stands in the registry; empty when its bytes are none.
[[nodiscard]] std::optional<AccessList> ReadSecurityDescriptor(std::span<const std::uint8_t> bytes);

// The account's name, or the SID's own text for one that Windows does not know.
[[nodiscard]] std::string NameOfSid(const std::string& sidText);

}  // namespace check
