#pragma once

#include <cstddef>

namespace bench {

// What operator new was asked for, in bytes.
struct Allocations {
    std::size_t count = 0;
    std::size_t bytes = 0;
    std::size_t largest = 0;
};

// Counts the allocations between Start and Stop. A program that links it has its operator new replaced. For
// programs of one thread.
class AllocationCounter {
  public:
    AllocationCounter() = delete;

    static void Start();
    [[nodiscard]] static Allocations Stop();
};

}  // namespace bench
