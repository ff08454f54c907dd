#pragma once

#include <algorithm>
#include <span>
#include <string_view>

namespace fuzz {

// Whether a target tells on standard output, a JSON object a line, what it makes of its input; chosen by the
// word --tell on its command line, which libFuzzer itself leaves alone. A target tells once: libFuzzer may
// run the same input again to look for leaks.
inline bool isTelling = false;

inline void ReadCommandLine(int count, char** words) {
    const std::span all(words, static_cast<std::size_t>(count));
    isTelling = std::ranges::any_of(all, [](const char* word) { return std::string_view(word) == "--tell"; });
}

}  // namespace fuzz
