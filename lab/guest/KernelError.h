#pragma once

#include <string>
#include <string_view>
#include <system_error>

namespace lab::guest {

// An error of the kernel's as an exception; `what` says what was tried.
[[nodiscard]] std::system_error KernelError(int number, const std::string& what);

// What a call of the kernel's has returned. Throws the KernelError of errno when that is negative.
int Checked(int result, std::string_view what);

// The name of an error of the kernel's: "EPIPE"; its number in decimal digits when it has none.
[[nodiscard]] std::string ErrorName(int number);

}  // namespace lab::guest
