#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace check {

// The sections of Windows' device installation log (setupapi.dev.log) that have to do with devices of the
// vendor, each from its ">>>" line to its "<<<" lines, without persons and the names (see WithoutTraces).
[[nodiscard]] std::string VendorSections(std::string_view log, const std::vector<std::string>& names = {});

}  // namespace check
