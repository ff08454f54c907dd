#pragma once

#include <map>
#include <string>
#include <string_view>

#include "lab/guest/UsbTree.h"
#include "lab/guest/UsbfsNode.h"

namespace lab::guest {

// The devices that the host has had something done with. They stay open, and what was claimed stays claimed,
// until they leave: a device that is enumerated anew has left before.
class OpenDevices {
  public:
    // The tree lives longer.
    explicit OpenDevices(const UsbTree& tree) : tree_(tree) {}

    // The one at this place, opened when it is not. Good until the next call. Throws std::system_error as
    // UsbTree::Find does, or when it cannot be opened.
    UsbfsNode& At(std::string_view path);
    // It has left. One that is not open does no harm.
    void Forget(std::string_view path);

  private:
    const UsbTree& tree_;
    std::map<std::string, UsbfsNode, std::less<>> open_;
};

}  // namespace lab::guest
