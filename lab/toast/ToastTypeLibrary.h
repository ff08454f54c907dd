#pragma once

#include <oaidl.h>

namespace lab::toast {

// The type library that is embedded in this program's resources and, once registered, tells the automation
// marshaller how to carry the calls of IToastCntr and the events.

// Records the library and its interfaces for the machine, at this program's path.
[[nodiscard]] HRESULT RegisterToastTypeLibrary();

// Removes what RegisterToastTypeLibrary recorded; S_OK when nothing is recorded.
[[nodiscard]] HRESULT UnregisterToastTypeLibrary();

// The registered description of IToastCntr. The caller releases it. Fails with TYPE_E_LIBNOTREGISTERED before
// the registration.
[[nodiscard]] HRESULT LoadToastTypeInfo(ITypeInfo** typeInfo);

}  // namespace lab::toast
