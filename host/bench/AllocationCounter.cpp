#include "host/bench/AllocationCounter.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

bool isCounting = false;
bench::Allocations counted;

}  // namespace

// The array forms come here too; nothing here asks for more than the usual alignment.
// NOLINTBEGIN(cppcoreguidelines-no-malloc): operator new has to get its memory somewhere.
void* operator new(std::size_t size) {
    if (isCounting) {
        ++counted.count;
        counted.bytes += size;
        counted.largest = std::max(counted.largest, size);
    }
    if (void* const memory = std::malloc(std::max<std::size_t>(size, 1))) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
// NOLINTEND(cppcoreguidelines-no-malloc)

namespace bench {

void AllocationCounter::Start() {
    counted = {};
    isCounting = true;
}

Allocations AllocationCounter::Stop() {
    isCounting = false;
    return counted;
}

}  // namespace bench
