#pragma once

#include <string>
#include <string_view>

namespace check {

// The sections of Windows' device installation log (setupapi.dev.log) that have to do with devices of the
// vendor, each from its ">>>" line to its "<<<" lines, without users' names.
[[nodiscard]] std::string VendorSections(std::string_view log);

}  // namespace check
