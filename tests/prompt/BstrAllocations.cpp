#include "tests/prompt/BstrAllocations.h"

BstrAllocations::BstrAllocations()
    : allocate_("SysAllocString", OnAllocate),
      allocateBytes_("SysAllocStringByteLen", OnAllocateBytes),
      free_("SysFreeString", OnFree) {}

template <typename Allocate>
BSTR BstrAllocations::Follow(Allocate allocate) {
    if (++count_ == refused_) {
        return nullptr;
    }
    const BSTR text = allocate();
    live_.insert(text);
    return text;
}

BSTR WINAPI BstrAllocations::OnAllocate(const OLECHAR* text) {
    return current_->Follow(
        [text] { return current_->allocate_.Original<decltype(SysAllocString)>()(text); });
}

BSTR WINAPI BstrAllocations::OnAllocateBytes(const char* bytes, UINT length) {
    return current_->Follow([bytes, length] {
        return current_->allocateBytes_.Original<decltype(SysAllocStringByteLen)>()(bytes, length);
    });
}

void WINAPI BstrAllocations::OnFree(BSTR text) {
    current_->live_.erase(text);
    current_->free_.Original<decltype(SysFreeString)>()(text);
}
