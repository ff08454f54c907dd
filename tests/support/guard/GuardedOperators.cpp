// Every new and delete of the program goes to guarded memory. The operators that are not here are the
// library's, which call these.

#include "tests/support/guard/GuardedMemory.h"

#include <new>

using test_support::GuardedMemory;

void* operator new(std::size_t size) {
    void* const block = GuardedMemory::Allocate(size, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    void* const block = GuardedMemory::Allocate(size, static_cast<std::size_t>(alignment));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void* block) noexcept {
    GuardedMemory::Free(block);
}

void operator delete(void* block, std::align_val_t) noexcept {
    GuardedMemory::Free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    GuardedMemory::Free(block);
}

void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    GuardedMemory::Free(block);
}
