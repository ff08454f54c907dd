#pragma once

#include <windows.h>
#include <unknwn.h>
#include <wrl/client.h>

#include <atomic>
#include <string_view>

#include "lab/rig/contracts/ComLibrary.h"

namespace lab::rig {

// An object that COM or Media Foundation gives out: its references, and the question that each of its methods
// asks first. Made with one reference, the maker's.
template <typename... Interfaces>
class GivenObject : public Interfaces... {
  public:
    GivenObject(const GivenObject&) = delete;
    GivenObject& operator=(const GivenObject&) = delete;

    ULONG STDMETHODCALLTYPE AddRef() override {
        IsCalled("AddRef");
        return ++references_;
    }

    ULONG STDMETHODCALLTYPE Release() override {
        IsCalled("Release");
        const ULONG left = --references_;
        if (left == 0) {
            delete this;
        }
        return left;
    }

  protected:
    // `interfaceName`, a literal, is what breaches call the object by.
    GivenObject(ComLibrary& library, std::string_view interfaceName)
        : library_(library), interfaceName_(interfaceName) {}
    virtual ~GivenObject() = default;

    // Whether the method's code is still there; a breach is told when it is not.
    bool IsCalled(std::string_view method) const { return library_.IsThereFor(interfaceName_, method); }

    // For the pointer that QueryInterface hands out.
    void AddReference() { ++references_; }

    // Releases what stands behind the object; leaves it where it is when its code is gone.
    template <typename Interface>
    void LetGo(Microsoft::WRL::ComPtr<Interface>& behind) const {
        if (!library_.IsThere()) {
            behind.Detach();
        }
        behind.Reset();
    }

    [[nodiscard]] ComLibrary& Library() const { return library_; }

  private:
    ComLibrary& library_;
    const std::string_view interfaceName_;
    std::atomic<ULONG> references_{1};
};

}  // namespace lab::rig
