#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace test_support {

// The place of a virtual member function in its class's table, counted from 0. The destructor takes two
// places with this compiler, complete and deleting, so that the operation behind it has place 2.
template <typename Method>
[[nodiscard]] std::size_t VirtualSlot(Method method) {
    std::uintptr_t representation = 0;
    std::memcpy(&representation, &method, sizeof representation);
    if (representation % 2 == 0) {
        throw std::logic_error("this member function is not virtual");
    }
    return (representation - 1) / sizeof(void*);
}

}  // namespace test_support
