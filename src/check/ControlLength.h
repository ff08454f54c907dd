#pragma once

#include <windows.h>
#include <mfidl.h>
#include <wrl/client.h>

#include <optional>

namespace check {

// Asks a camera for its version, once, and tells how many bytes the read of the control gave. Empty for a
// camera that does not open, has no firmware extension unit or does not answer.
[[nodiscard]] std::optional<ULONG> ReadControlLength(const Microsoft::WRL::ComPtr<IMFActivate>& source);

}  // namespace check
