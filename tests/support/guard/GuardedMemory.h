#pragma once

#include <cstddef>

namespace test_support {

// Memory in which a wrong access stops at its instruction: each block ends, but for its alignment, at an
// inaccessible page, and a freed block's pages stay inaccessible for as long as the program runs. Fresh
// memory is filled with 0xCD. Any thread.
class GuardedMemory {
  public:
    // At least `size` bytes, aligned to `alignment`, a power of two up to the page size. Null when there is
    // no memory.
    static void* Allocate(std::size_t size, std::size_t alignment) noexcept;
    // Frees a block of Allocate; null is ignored. Ends the program with a line on standard error when the
    // bytes just before the block, or between its end and the inaccessible page, were written.
    static void Free(void* block) noexcept;
};

}  // namespace test_support
