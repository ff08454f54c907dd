#pragma once

namespace lab::guest {

// Mounts the file systems of the kernel's own, and one for what programs write. Throws std::system_error.
void MountFileSystems();
// Switches the machine off. Returns only when the kernel refuses.
void PowerOff();

}  // namespace lab::guest
