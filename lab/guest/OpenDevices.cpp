#include "lab/guest/OpenDevices.h"

namespace lab::guest {

UsbfsNode& OpenDevices::At(std::string_view path) {
    if (const auto found = open_.find(path); found != open_.end()) {
        return found->second;
    }
    const UsbDevice device = tree_.Find(path);
    return open_.emplace(device.path, UsbfsNode(tree_.NodeOf(device))).first->second;
}

void OpenDevices::Forget(std::string_view path) {
    if (const auto found = open_.find(path); found != open_.end()) {
        open_.erase(found);
    }
}

}  // namespace lab::guest
