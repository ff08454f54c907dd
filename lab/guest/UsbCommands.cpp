#include "lab/guest/UsbCommands.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "lab/guest/ExtensionUnit.h"
#include "lab/guest/KernelError.h"
#include "lab/vocabulary/HexText.h"

namespace lab::guest {
namespace {

using nlohmann::json;

constexpr std::uint64_t kDefaultLimitMs = 5000;
// Whoever asks gives up at some time; so does the helper.
constexpr std::uint64_t kLongestLimitMs = 600'000;

json InterfaceFields(const UsbInterface& interface) {
    return {{"number", interface.number},     {"setting", interface.setting},
            {"class", interface.deviceClass}, {"subclass", interface.subClass},
            {"protocol", interface.protocol}, {"driver", interface.driver}};
}

json DeviceFields(const UsbDevice& device) {
    json interfaces = json::array();
    for (const UsbInterface& interface : device.interfaces) {
        interfaces.push_back(InterfaceFields(interface));
    }
    return {{"path", device.path},
            {"bus", device.bus},
            {"number", device.number},
            {"vendor", device.vendor},
            {"product", device.product},
            {"release", device.release},
            {"usb", device.usb},
            {"speed", device.speed},
            {"configuration", device.configuration},
            {"manufacturer_text", device.manufacturerText},
            {"product_text", device.productText},
            {"serial_text", device.serialText},
            {"video_node", device.videoNode},
            {"interfaces", interfaces}};
}

std::uint8_t ByteOf(const Command& command, std::string_view field) {
    return static_cast<std::uint8_t>(command.Number(field, 0, 0xFF));
}

UsbfsNode::Setup SetupOf(const Command& command) {
    UsbfsNode::Setup setup{};
    const auto bytes = command.Bytes("setup", setup.size());
    if (bytes.size() != setup.size()) {
        throw InvalidCommand("setup has not 8 bytes");
    }
    std::copy(bytes.begin(), bytes.end(), setup.begin());
    if (LengthOf(setup) > UsbfsNode::kMostControlBytes) {
        throw InvalidCommand("wLength is more than " + std::to_string(UsbfsNode::kMostControlBytes));
    }
    return setup;
}

// What is to be sent, or room for what comes.
std::vector<std::uint8_t> StageOf(const Command& command, const UsbfsNode::Setup& setup) {
    if (IsFromDevice(setup) || LengthOf(setup) == 0) {
        return std::vector<std::uint8_t>(LengthOf(setup));
    }
    auto data = command.Bytes("data", UsbfsNode::kMostControlBytes);
    if (data.size() != LengthOf(setup)) {
        throw InvalidCommand("data is not as long as wLength says");
    }
    return data;
}

}  // namespace

UsbCommands::UsbCommands(const Places& places) : places_(places), tree_(places), open_(tree_) {}

void UsbCommands::AddTo(CommandTable& table) {
    table.Add("devices", [this](const Command&) { return Devices(); });
    table.Add("descriptors", [this](const Command& command) { return Descriptors(command); });
    table.Add("control", [this](const Command& command) { return Control(command); });
    table.Add("claim", [this](const Command& command) { return Claim(command); });
    table.Add("release", [this](const Command& command) { return Release(command); });
    table.Add("set-interface", [this](const Command& command) { return SetInterface(command); });
    table.Add("reset", [this](const Command& command) { return Reset(command); });
    table.Add("extension-unit", [this](const Command& command) { return ExtensionUnit(command); });
}

json UsbCommands::Devices() const {
    json devices = json::array();
    for (const UsbDevice& device : tree_.Devices()) {
        devices.push_back(DeviceFields(device));
    }
    return {{"devices", devices}};
}

json UsbCommands::Descriptors(const Command& command) const {
    return {{"data", HexText(tree_.Descriptors(command.Text("device")))}};
}

json UsbCommands::Control(const Command& command) {
    const UsbfsNode::Setup setup = SetupOf(command);
    std::vector<std::uint8_t> data = StageOf(command, setup);
    const auto limit = std::chrono::milliseconds(
        command.Has("limit_ms") ? command.Number("limit_ms", 1, kLongestLimitMs) : kDefaultLimitMs);
    const std::size_t transferred = DeviceOf(command).Control(setup, data, limit);
    json fields{{"transferred", transferred}};
    if (IsFromDevice(setup)) {
        data.resize(std::min(data.size(), transferred));
        fields["data"] = HexText(data);
    }
    return fields;
}

json UsbCommands::Claim(const Command& command) {
    DeviceOf(command).Claim(ByteOf(command, "interface"));
    return json::object();
}

json UsbCommands::Release(const Command& command) {
    DeviceOf(command).Release(ByteOf(command, "interface"));
    return json::object();
}

json UsbCommands::SetInterface(const Command& command) {
    DeviceOf(command).SetInterface(ByteOf(command, "interface"), ByteOf(command, "setting"));
    return json::object();
}

json UsbCommands::Reset(const Command& command) {
    DeviceOf(command).Reset();
    return json::object();
}

json UsbCommands::ExtensionUnit(const Command& command) const {
    const auto query = UvcQuery(command.Text("query"));
    if (!query) {
        throw InvalidCommand("query is none of the UVC 1.1 standard's");
    }
    const std::uint8_t unit = ByteOf(command, "unit");
    const std::uint8_t selector = ByteOf(command, "selector");
    std::vector<std::uint8_t> data =
        IsFromDevice(*query) ? std::vector<std::uint8_t>(command.Number("length", 1, kMostUnitBytes))
                             : command.Bytes("data", kMostUnitBytes);
    const std::string device = command.Text("device");
    const std::string node = tree_.VideoNode(device);
    if (node.empty()) {
        throw KernelError(ENOTTY, tree_.Find(device).path + " is no camera to the UVC driver");
    }
    QueryExtensionUnit(places_.dev / node, unit, selector, *query, data);
    return IsFromDevice(*query) ? json{{"data", HexText(data)}} : json::object();
}

UsbfsNode& UsbCommands::DeviceOf(const Command& command) {
    return open_.At(command.Text("device"));
}

}  // namespace lab::guest
