#pragma once

#include <windows.h>

#include <exception>
#include <new>

namespace toast {

// Runs the body of a COM method and turns what it throws into a code: no exception leaves an object through
// COM.
template <typename Body>
[[nodiscard]] HRESULT AtComBoundary(Body&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const std::exception&) {
        return E_FAIL;
    }
}

}  // namespace toast
