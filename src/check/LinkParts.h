#pragma once

#include <string>
#include <string_view>

namespace check {

// What the links of one device have in common, in lower case: all before the interface class.
[[nodiscard]] std::string DeviceOfLink(std::string_view link);

// The class that a link ends in, in words: "sensor camera", "video camera", "capture" or "other". "capture"
// is what the service passes over, who tells it by its text in lower case.
[[nodiscard]] std::string_view CategoryOfLink(std::string_view link);

}  // namespace check
