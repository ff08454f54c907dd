#pragma once

#include <oaidl.h>
#include <wrl/client.h>

namespace toast {

// The description of IToastCntr in the type library that is embedded in this program's file. Null when the
// file has none that can be read.
[[nodiscard]] Microsoft::WRL::ComPtr<ITypeInfo> LoadToastTypeInfo();

}  // namespace toast
