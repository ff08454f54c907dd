#pragma once

#include <string_view>

namespace toast {

// How the firmware that is offered stands to the one that the camera has.
enum class VersionRelation { kNewer, kOlder, kDifferent };

// Newer or older when both texts are four unsigned numbers of 32 bits joined by "." that differ, the first
// different one deciding; otherwise just different.
[[nodiscard]] VersionRelation RelationOf(std::wstring_view offered, std::wstring_view present);

}  // namespace toast
