#pragma once

#include <windows.h>
#include <mfidl.h>
#include <wrl/client.h>

#include <vector>

namespace check {

// The activation objects of the video sources that Media Foundation lists, in the service's order: the sensor
// cameras, then all. Its platform has to be started. The HRESULT of the call that failed, with what was found
// before.
[[nodiscard]] HRESULT ListVideoSources(std::vector<Microsoft::WRL::ComPtr<IMFActivate>>& sources);

}  // namespace check
