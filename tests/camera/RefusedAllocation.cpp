#include "tests/camera/RefusedAllocation.h"

#include <new>

namespace {

bool isRefusing = false;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (isRefusing) {
        return nullptr;
    }
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

RefusedAllocation::RefusedAllocation() {
    isRefusing = true;
}

RefusedAllocation::~RefusedAllocation() {
    isRefusing = false;
}
