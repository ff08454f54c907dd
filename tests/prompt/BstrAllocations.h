#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>
#include <oleauto.h>

#include <set>

// Follows the BSTRs that the program allocates and frees, and refuses one of them. Only one exists at a time.
class BstrAllocations : public test_support::OnlyOne<BstrAllocations> {
  public:
    BstrAllocations();

    // The `allocation`-th allocation (from 1) gives null.
    void Refuse(int allocation) { refused_ = allocation; }

    [[nodiscard]] int Count() const { return count_; }
    // Allocated and not freed.
    [[nodiscard]] std::size_t Live() const { return live_.size(); }

  private:
    static BSTR WINAPI OnAllocate(const OLECHAR* text);
    static BSTR WINAPI OnAllocateBytes(const char* bytes, UINT length);
    static void WINAPI OnFree(BSTR text);

    template <typename Allocate>
    BSTR Follow(Allocate allocate);

    int refused_ = 0;
    int count_ = 0;
    std::set<BSTR> live_;
    test_support::ImportRedirect allocate_;
    test_support::ImportRedirect allocateBytes_;
    test_support::ImportRedirect free_;
};
