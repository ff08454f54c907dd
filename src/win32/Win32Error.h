#pragma once

#include <windows.h>

#include <exception>

namespace win32 {

// The error-code exception: a Win32 error that set-up code raises where no result can be returned. The
// service base catches it and reports the code to the service control manager.
class Win32Error : public std::exception {
  public:
    explicit Win32Error(DWORD code) : code_(code) {}

    // The Win32 error.
    [[nodiscard]] DWORD Code() const { return code_; }
    [[nodiscard]] const char* what() const noexcept override;

  private:
    DWORD code_;
};

// Raises the calling thread's last error.
[[noreturn]] void ThrowLastError();

}  // namespace win32
