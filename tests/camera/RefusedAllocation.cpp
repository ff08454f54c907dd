#include "tests/camera/RefusedAllocation.h"

#include <cstdlib>
#include <new>

namespace {

bool isRefusing = false;

}  // namespace

// The library's own gives memory of malloc too, and its operator delete frees it.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return isRefusing ? nullptr : std::malloc(size == 0 ? 1 : size);
}

RefusedAllocation::RefusedAllocation() {
    isRefusing = true;
}

RefusedAllocation::~RefusedAllocation() {
    isRefusing = false;
}
