#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>
#include <objbase.h>

#include <functional>
#include <string>
#include <vector>

namespace test_support {

// Stands in for the activation of COM classes: gives one object to everybody who asks, and records who asked
// for what. Only one exists at a time.
class FakeActivation : public OnlyOne<FakeActivation> {
  public:
    struct Creation {
        CLSID classId;
        IUnknown* outer;
        DWORD context;
        IID interfaceId;
    };

    // `object` is not owned.
    explicit FakeActivation(IUnknown* object);

    // Results of CoCreateInstance and OleRun; a failed creation gives null.
    HRESULT creationResult = S_OK;
    HRESULT runResult = S_OK;
    // Told the name of each function that is called.
    std::function<void(const std::string& function)> report;

    std::vector<Creation> creations;
    std::vector<IUnknown*> runs;

  private:
    static HRESULT WINAPI OnCreate(REFCLSID classId, IUnknown* outer, DWORD context, REFIID interfaceId,
                                   void** created);
    static HRESULT WINAPI OnRun(IUnknown* unknown);

    IUnknown* object_;
    ImportRedirect create_;
    ImportRedirect run_;
};

}  // namespace test_support
