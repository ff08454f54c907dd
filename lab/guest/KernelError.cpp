#include "lab/guest/KernelError.h"

#include <cerrno>
#include <cstring>

namespace lab::guest {

std::system_error KernelError(int number, const std::string& what) {
    return {number, std::generic_category(), what};
}

int Checked(int result, std::string_view what) {
    if (result < 0) {
        throw KernelError(errno, std::string(what));
    }
    return result;
}

std::string ErrorName(int number) {
    const char* const name = strerrorname_np(number);
    return name != nullptr ? name : std::to_string(number);
}

}  // namespace lab::guest
