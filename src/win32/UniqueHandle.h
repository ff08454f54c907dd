#pragma once

#include <windows.h>

#include <utility>

namespace win32 {

// Owns one handle of the kind that Traits describes (its type, its empty value, how it is closed) and closes
// it once; what the close answers is ignored. Used by one thread at a time.
template <typename Traits>
class UniqueHandle {
  public:
    using Handle = typename Traits::Handle;

    UniqueHandle() = default;
    explicit UniqueHandle(Handle handle) : handle_(handle) {}
    UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.Release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    ~UniqueHandle() { Reset(); }

    // The handle, still owned.
    [[nodiscard]] Handle Get() const { return handle_; }
    // Whether there is one.
    [[nodiscard]] explicit operator bool() const { return handle_ != Traits::Empty(); }

    // Closes what is held and takes over `handle`.
    void Reset(Handle handle = Traits::Empty()) {
        const Handle previous = std::exchange(handle_, handle);
        if (previous != Traits::Empty()) {
            Traits::Close(previous);
        }
    }

    // Gives up ownership without closing.
    [[nodiscard]] Handle Release() { return std::exchange(handle_, Traits::Empty()); }

    // For a call that writes a new handle; what is held is closed first.
    [[nodiscard]] Handle* Receive() {
        Reset();
        return &handle_;
    }

  private:
    Handle handle_ = Traits::Empty();
};

// An event, process or thread: empty is null.
struct KernelHandleTraits {
    using Handle = HANDLE;
    static Handle Empty() { return nullptr; }
    static void Close(Handle handle) { CloseHandle(handle); }
};
using UniqueKernelHandle = UniqueHandle<KernelHandleTraits>;

struct RegistryKeyTraits {
    using Handle = HKEY;
    static Handle Empty() { return nullptr; }
    static void Close(Handle key) { RegCloseKey(key); }
};
using UniqueRegistryKey = UniqueHandle<RegistryKeyTraits>;

// A handle of the service control manager, to itself or to a service.
struct ServiceHandleTraits {
    using Handle = SC_HANDLE;
    static Handle Empty() { return nullptr; }
    static void Close(Handle handle) { CloseServiceHandle(handle); }
};
using UniqueServiceHandle = UniqueHandle<ServiceHandleTraits>;

}  // namespace win32
