#pragma once

#include "check/TraceFormats.h"
#include "check/TraceSession.h"

#include <string>

namespace check {

// A message as tracefmt writes it, in local time, with a line break at its end:
// [0]0EC4.1A2C::11/23/2026-14:05:09.123 [FDUService]The camera's firmware version is 5.10.2.0
[[nodiscard]] std::string TraceLine(const TraceFormats& formats, const TraceEvent& event);

}  // namespace check
