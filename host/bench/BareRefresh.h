#pragma once

#include <cstddef>

namespace bench {

// What no refresh of the watcher's list can do without, and nothing else: gets the list of the interfaces
// present, folds each link with towlower into one string, and searches that once for one pattern. The number
// of links that have the pattern in them.
[[nodiscard]] std::size_t RefreshBare();

}  // namespace bench
