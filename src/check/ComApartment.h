#pragma once

#include <windows.h>
#include <objbase.h>

namespace check {

// COM's multithreaded apartment, as long as the object lives: all that COM gives has to be released before.
class ComApartment {
  public:
    ComApartment() : result_(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ~ComApartment() {
        if (SUCCEEDED(result_)) {
            CoUninitialize();
        }
    }

    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;

    // What CoInitializeEx answered.
    [[nodiscard]] HRESULT Result() const { return result_; }

  private:
    HRESULT result_;
};

}  // namespace check
