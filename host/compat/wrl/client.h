#pragma once

#include <utility>

namespace Microsoft::WRL {

// Owns one reference of a COM object.
template <typename Interface>
class ComPtr {
  public:
    ComPtr() = default;
    // Adds a reference of its own.
    ComPtr(Interface* object) : object_(object) {
        if (object_ != nullptr) {
            object_->AddRef();
        }
    }
    ComPtr(const ComPtr& other) : ComPtr(other.object_) {}
    ComPtr(ComPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~ComPtr() {
        if (object_ != nullptr) {
            object_->Release();
        }
    }

    [[nodiscard]] Interface* Get() const { return object_; }
    Interface* operator->() const { return object_; }

  private:
    Interface* object_ = nullptr;
};

}  // namespace Microsoft::WRL
