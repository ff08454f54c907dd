#include "lab/rig/bus/KernelPort.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/camera/CameraDescriptors.h"
#include "lab/camera/UvcTypes.h"
#include "lab/camera/VideoFunction.h"
#include "lab/camera/VideoTopology.h"
#include "lab/vocabulary/HexText.h"

namespace lab::rig {
namespace {

using nlohmann::json;

constexpr std::chrono::milliseconds kWay{100};

// What Linux says when a device is gone, or the bus breaks because it goes.
constexpr std::array<std::string_view, 6> kGone{"ENODEV", "ESHUTDOWN", "EPROTO", "EILSEQ", "ENOENT", "ENXIO"};

TransferEnd EndOf(const json& answer) {
    const auto error = answer.find("errno");
    if (error == answer.end()) {
        return TransferEnd::Ok;
    }
    const auto& name = error->get_ref<const std::string&>();
    if (name == "ETIMEDOUT") {
        return TransferEnd::Timeout;
    }
    // A stall is EPIPE; the UVC driver has other words for it, by the reason that the camera gives.
    return std::ranges::find(kGone, name) != kGone.end() ? TransferEnd::Disconnected : TransferEnd::Stall;
}

BusMode ModeOf(std::string_view product) {
    const auto isProduct = [&](std::uint16_t id) {
        const std::array<std::uint8_t, 2> bytes{HighByte(id), LowByte(id)};
        return product == HexText(bytes);
    };
    if (isProduct(CameraDescriptors::kRunningProductId)) {
        return BusMode::Running;
    }
    return isProduct(CameraDescriptors::kDfuProductId) ? BusMode::Dfu : BusMode::Absent;
}

std::string SetupText(const SetupPacket& setup) {
    const std::array<std::uint8_t, 8> bytes{
        setup.requestType,    setup.request,         LowByte(setup.value),  HighByte(setup.value),
        LowByte(setup.index), HighByte(setup.index), LowByte(setup.length), HighByte(setup.length)};
    return HexText(bytes);
}

}  // namespace

KernelPort::KernelPort(std::size_t camera, const CameraSettings& settings, KernelBus& kernel)
    : place_("-" + std::to_string(camera + 1)), settings_(settings), kernel_(kernel) {}

bool KernelPort::TakeDevice(std::string_view path, std::string_view product) {
    if (!path.ends_with(place_)) {
        return false;
    }
    path_ = path;
    mode_ = ModeOf(product);
    claimed_.reset();
    ++devices_;
    return true;
}

TransferResult KernelPort::WriteCommand(std::span<const std::uint8_t> frame, const Turn& turn) {
    TransferResult result = ExtensionUnit({{"query", "SET_CUR"}, {"data", HexText(frame)}}, {}, turn);
    result.transferred = result.end == TransferEnd::Ok ? frame.size() : 0;
    return result;
}

TransferResult KernelPort::ReadReply(std::span<std::uint8_t> reply, const Turn& turn) {
    return ExtensionUnit({{"query", "GET_CUR"}, {"length", reply.size()}}, reply, turn);
}

TransferResult KernelPort::ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data,
                                           const Turn& turn) {
    if (RecipientOf(setup) == Recipient::Interface) {
        if (const TransferResult claimed = Claim(LowByte(setup.index), turn);
            claimed.end != TransferEnd::Ok) {
            return claimed;
        }
    }
    json fields{{"setup", SetupText(setup)}, {"limit_ms", settings_.timeoutMs}};
    if (!IsToHost(setup) && setup.length > 0) {
        fields["data"] = HexText(data.first(setup.length));
    }
    return Ask("control", std::move(fields), IsToHost(setup) ? data : std::span<std::uint8_t>(), turn);
}

TransferResult KernelPort::SetInterface(std::uint8_t number, std::uint8_t setting, const Turn& turn) {
    if (const TransferResult claimed = Claim(number, turn); claimed.end != TransferEnd::Ok) {
        return claimed;
    }
    return Ask("set-interface", {{"interface", number}, {"setting", setting}}, {}, turn);
}

TransferResult KernelPort::ReadDescriptor(std::uint8_t type, std::uint8_t index,
                                          std::span<std::uint8_t> buffer, const Turn& turn) {
    constexpr std::uint8_t kToHost = 0x80;
    const SetupPacket setup{.requestType = kToHost,
                            .request = static_cast<std::uint8_t>(StandardRequest::GetDescriptor),
                            .value = static_cast<std::uint16_t>(type << 8 | index),
                            .index = 0,
                            .length = static_cast<std::uint16_t>(buffer.size())};
    return ControlTransfer(setup, buffer, turn);
}

std::optional<InterfaceDescriptors> KernelPort::Interfaces(const Turn& turn) {
    constexpr std::size_t kDeviceDescriptorSize = 18;
    const json answer = kernel_.Ask(turn.bus, "descriptors", {{"device", path_}});
    if (answer.contains("errno")) {
        return std::nullopt;
    }
    const auto bytes = BytesFromHex(answer.value("data", ""));
    if (!bytes || bytes->size() < kDeviceDescriptorSize) {
        return InterfaceDescriptors();
    }
    return FindInterfaces(std::span(*bytes).subspan(kDeviceDescriptorSize));
}

TransferResult KernelPort::Ask(std::string_view command, json fields, std::span<std::uint8_t> data,
                               const Turn& turn) {
    fields["device"] = path_;
    const auto begin = std::chrono::steady_clock::now();
    const json answer = kernel_.Ask(turn.bus, command, std::move(fields));
    const auto took = std::chrono::steady_clock::now() - begin;
    TransferResult result;
    result.end = EndOf(answer);
    // What it takes longer than the way there and back is what the camera, or the kernel's patience, has
    // taken.
    if (took > kWay) {
        const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(took);
        result.tookMs = static_cast<std::uint32_t>(waited.count());
    }
    result.transferred = answer.value("transferred", std::size_t{0});
    if (!data.empty()) {
        const auto sent = BytesFromHex(answer.value("data", "")).value_or(std::vector<std::uint8_t>());
        result.transferred = std::min(sent.size(), data.size());
        std::copy_n(sent.begin(), result.transferred, data.begin());
    }
    return result;
}

TransferResult KernelPort::ExtensionUnit(json fields, std::span<std::uint8_t> data, const Turn& turn) {
    const VideoTopology topology(settings_);
    for (const VideoTopology::Unit& unit : topology.Units()) {
        if (unit.node == TopologyNode::ExtensionUnit) {
            fields["unit"] = unit.id;
            fields["selector"] = VideoFunction::kCommandControl;
            return Ask("extension-unit", std::move(fields), data, turn);
        }
    }
    return {.end = TransferEnd::Stall};
}

TransferResult KernelPort::Claim(std::uint8_t number, const Turn& turn) {
    if (claimed_ == number) {
        return {};
    }
    const unsigned device = devices_;
    const TransferResult result = Ask("claim", {{"interface", number}}, {}, turn);
    if (device != devices_) {
        return {.end = TransferEnd::Disconnected};
    }
    if (result.end == TransferEnd::Ok) {
        claimed_ = number;
    }
    return result;
}

}  // namespace lab::rig
