#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>

#include <mutex>
#include <set>
#include <string_view>

namespace test_support {

// COM's memory, as far as fakes hand it out to the program: knows which of those blocks the program has not
// freed yet. While it lives, the program's CoTaskMemFree goes to it and on to Windows. May be used from any
// thread; one at a time.
class TaskMemory : public OnlyOne<TaskMemory> {
  public:
    TaskMemory();

    [[nodiscard]] void* Allocate(std::size_t size);
    // A copy with a terminator.
    [[nodiscard]] wchar_t* AllocateText(std::wstring_view text);

    [[nodiscard]] std::size_t Outstanding() const;

  private:
    static void WINAPI OnFree(void* block);

    mutable std::mutex lock_;
    std::set<void*> blocks_;
    ImportRedirect free_;
};

}  // namespace test_support
