#pragma once

#include <cstdint>
#include <span>

namespace check {

// Whether the service takes the bytes of the update mode's value for "Service Controlled": that text, with
// its terminator or without, and no more; the value's type does not matter. The service's own reader can
// write, too, and so is no part of this program.
[[nodiscard]] bool IsServiceControlled(std::span<const std::uint8_t> value);

}  // namespace check
