#pragma once

#include "lab/guest/CommandTable.h"
#include "lab/guest/OpenDevices.h"
#include "lab/guest/Places.h"
#include "lab/guest/UsbTree.h"

namespace lab::guest {

// The commands about USB devices: "devices", "descriptors", "control", "claim", "release", "set-interface",
// "reset" and "extension-unit". docs/laboratory.md lists their fields.
class UsbCommands {
  public:
    explicit UsbCommands(const Places& places);
    UsbCommands(const UsbCommands&) = delete;
    UsbCommands& operator=(const UsbCommands&) = delete;

    // The table's handlers live no longer than this object.
    void AddTo(CommandTable& table);
    // A device has left its place.
    void Forget(std::string_view path) { open_.Forget(path); }

  private:
    [[nodiscard]] nlohmann::json Devices() const;
    [[nodiscard]] nlohmann::json Descriptors(const Command& command) const;
    nlohmann::json Control(const Command& command);
    nlohmann::json Claim(const Command& command);
    nlohmann::json Release(const Command& command);
    nlohmann::json SetInterface(const Command& command);
    nlohmann::json Reset(const Command& command);
    [[nodiscard]] nlohmann::json ExtensionUnit(const Command& command) const;
    UsbfsNode& DeviceOf(const Command& command);

    Places places_;
    UsbTree tree_;
    OpenDevices open_;
};

}  // namespace lab::guest
