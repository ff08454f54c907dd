#include "tests/support/TaskMemory.h"

#include <objbase.h>

#include <algorithm>
#include <new>

namespace test_support {

TaskMemory::TaskMemory() : free_("CoTaskMemFree", &OnFree) {}

void* TaskMemory::Allocate(std::size_t size) {
    void* const block = CoTaskMemAlloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    const std::scoped_lock guard(lock_);
    blocks_.insert(block);
    return block;
}

wchar_t* TaskMemory::AllocateText(std::wstring_view text) {
    auto* const copy = static_cast<wchar_t*>(Allocate((text.size() + 1) * sizeof(wchar_t)));
    std::copy(text.begin(), text.end(), copy);
    copy[text.size()] = L'\0';
    return copy;
}

std::size_t TaskMemory::Outstanding() const {
    const std::scoped_lock guard(lock_);
    return blocks_.size();
}

void WINAPI TaskMemory::OnFree(void* block) {
    {
        const std::scoped_lock guard(current_->lock_);
        current_->blocks_.erase(block);
    }
    current_->free_.Original<decltype(::CoTaskMemFree)>()(block);
}

}  // namespace test_support
