#pragma once

#include <string_view>

namespace lab::guest {

// Whether a text is a USB device's place in the kernel's tree: bus and ports ("1-2", "1-2.4"), or a bus' root
// hub
// ("usb1"). Such a text is safe as the name of a folder.
[[nodiscard]] bool IsUsbPath(std::string_view text);

}  // namespace lab::guest
