#pragma once

#include <cstdio>
#include <cstdlib>

namespace fuzz {

// A property that the target holds the code to: when it is broken, the program says which and dies, and the
// fuzzer keeps the input.
inline void Promise(bool isKept, const char* promise) {
    if (!isKept) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

}  // namespace fuzz
