#include "lab/usbip/UsbIpPackets.h"

#include <algorithm>

#include "lab/camera/InterfaceSettings.h"

namespace lab {
namespace {

constexpr std::uint16_t kVersion = 0x0111;
constexpr std::uint16_t kListReply = 0x0005;
constexpr std::uint16_t kImportReply = 0x0003;
constexpr std::uint32_t kSubmitReply = 3;
constexpr std::uint32_t kUnlinkReply = 4;

std::uint32_t NumberAt(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t width) {
    std::uint32_t number = 0;
    for (const std::uint8_t byte : bytes.subspan(offset, width)) {
        number = number << 8 | byte;
    }
    return number;
}

// Most significant byte first.
class NetworkWriter {
  public:
    NetworkWriter& Byte(std::uint8_t value) {
        bytes_.push_back(value);
        return *this;
    }
    NetworkWriter& Word(std::uint16_t value) { return Byte(HighByte(value)).Byte(LowByte(value)); }
    NetworkWriter& Long(std::uint32_t value) {
        return Word(static_cast<std::uint16_t>(value >> 16)).Word(static_cast<std::uint16_t>(value & 0xFFFF));
    }
    NetworkWriter& Bytes(std::span<const std::uint8_t> bytes) {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        return *this;
    }
    // Filled up with zeros.
    NetworkWriter& Text(const std::string& text, std::size_t size) {
        bytes_.insert(bytes_.end(), text.begin(), text.end());
        return Zeros(size - text.size());
    }
    NetworkWriter& Zeros(std::size_t count) {
        bytes_.resize(bytes_.size() + count);
        return *this;
    }
    [[nodiscard]] std::vector<std::uint8_t> Take() { return std::move(bytes_); }

  private:
    std::vector<std::uint8_t> bytes_;
};

// As Linux numbers them.
std::uint32_t SpeedCode(Speed speed) {
    switch (speed) {
        case Speed::Full:
            return 2;
        case Speed::High:
            return 3;
        case Speed::Super:
            return 5;
    }
    return 0;
}

std::uint16_t WordAt(const std::vector<std::uint8_t>& bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

std::vector<InterfaceSettings::Setting> SettingsOf(const UsbDevice& device) {
    return InterfaceSettings(device.Descriptors().Configuration()).Chosen();
}

void WriteDevice(NetworkWriter& writer, std::size_t camera, const UsbDevice& device) {
    constexpr std::size_t kPathSize = 256;
    const std::string busId = BusIdOf(camera);
    const std::vector<std::uint8_t> descriptor = device.Descriptors().Device();
    writer.Text("/veyra/laboratory/" + busId, kPathSize)
        .Text(busId, UsbIpOperation::kBusIdSize)
        .Long(kUsbIpBus)
        .Long(DeviceNumberOf(camera))
        .Long(SpeedCode(device.Camera().Settings().speed))
        .Word(WordAt(descriptor, 8))
        .Word(WordAt(descriptor, 10))
        .Word(WordAt(descriptor, 12))
        .Bytes(std::span(descriptor).subspan(4, 3))
        .Byte(device.Configuration())
        .Byte(descriptor[17])
        .Byte(static_cast<std::uint8_t>(SettingsOf(device).size()));
}

// What both replies to a command begin with.
NetworkWriter ReplyHead(std::uint32_t code, std::uint32_t sequence, UsbIpStatus status) {
    constexpr std::size_t kDeviceDirectionAndEndpoint = 12;  // 0 in replies
    NetworkWriter writer;
    writer.Long(code)
        .Long(sequence)
        .Zeros(kDeviceDirectionAndEndpoint)
        .Long(static_cast<std::uint32_t>(status));
    return writer;
}

}  // namespace

UsbIpOperation UsbIpOperation::Read(std::span<const std::uint8_t> bytes) {
    return {.version = static_cast<std::uint16_t>(NumberAt(bytes, 0, 2)),
            .code = Code{static_cast<std::uint16_t>(NumberAt(bytes, 2, 2))}};
}

std::optional<UsbIpCommand> UsbIpCommand::Read(std::span<const std::uint8_t> bytes) {
    constexpr std::uint32_t kNoPackets = 0xFFFFFFFF;
    constexpr std::size_t kSetup = 40;
    UsbIpCommand command{.code = Code{NumberAt(bytes, 0, 4)},
                         .sequence = NumberAt(bytes, 4, 4),
                         .isToHost = NumberAt(bytes, 12, 4) != 0,
                         .endpoint = NumberAt(bytes, 16, 4)};
    if (command.code == Code::Unlink) {
        command.unlinked = NumberAt(bytes, 20, 4);
        return command;
    }
    if (command.code != Code::Submit) {
        return std::nullopt;
    }
    command.length = NumberAt(bytes, 24, 4);
    const std::uint32_t packets = NumberAt(bytes, 32, 4);
    command.packets = packets == kNoPackets ? 0 : packets;
    const auto word = [bytes](std::size_t offset) {
        return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
    };
    command.setup = {.requestType = bytes[kSetup],
                     .request = bytes[kSetup + 1],
                     .value = word(kSetup + 2),
                     .index = word(kSetup + 4),
                     .length = word(kSetup + 6)};
    return command;
}

std::size_t UsbIpCommand::Following() const {
    if (code == Code::Unlink) {
        return 0;
    }
    return (isToHost ? 0 : std::size_t{length}) + std::size_t{packets} * kPacketSize;
}

std::string BusIdOf(std::size_t camera) {
    return std::to_string(kUsbIpBus) + "-" + std::to_string(DeviceNumberOf(camera));
}

std::vector<std::uint8_t> MakeListReply(std::span<const std::uint8_t> devices, std::uint32_t count) {
    NetworkWriter writer;
    writer.Word(kVersion).Word(kListReply).Long(0).Long(count).Bytes(devices);
    return writer.Take();
}

std::vector<std::uint8_t> MakeListedDevice(std::size_t camera, const UsbDevice& device) {
    NetworkWriter writer;
    WriteDevice(writer, camera, device);
    for (const InterfaceSettings::Setting& setting : SettingsOf(device)) {
        writer.Byte(setting.interfaceClass).Byte(setting.subclass).Byte(setting.protocol).Byte(0);
    }
    return writer.Take();
}

std::vector<std::uint8_t> MakeImportReply(std::size_t camera, const UsbDevice* device) {
    NetworkWriter writer;
    writer.Word(kVersion).Word(kImportReply).Long(device != nullptr ? 0 : 1);
    if (device != nullptr) {
        WriteDevice(writer, camera, *device);
    }
    return writer.Take();
}

std::vector<std::uint8_t> MakeSubmitReply(std::uint32_t sequence, UsbIpStatus status, std::size_t transferred,
                                          std::span<const std::uint8_t> data) {
    constexpr std::size_t kFramePacketsErrorsAndPadding = 20;
    NetworkWriter writer = ReplyHead(kSubmitReply, sequence, status);
    writer.Long(static_cast<std::uint32_t>(transferred)).Zeros(kFramePacketsErrorsAndPadding).Bytes(data);
    return writer.Take();
}

std::vector<std::uint8_t> MakeUnlinkReply(std::uint32_t sequence, UsbIpStatus status) {
    constexpr std::size_t kPadding = 24;
    return ReplyHead(kUnlinkReply, sequence, status).Zeros(kPadding).Take();
}

}  // namespace lab
