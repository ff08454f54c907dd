#include "lab/usbip/UsbIpConnection.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "lab/camera/InterfaceSettings.h"

namespace lab {
namespace {

// More than any transfer has here; who wants more is no host.
constexpr std::size_t kMostFollowing = 1024 * 1024;

UsbIpStatus StatusOf(TransferEnd end) {
    switch (end) {
        case TransferEnd::Ok:
            return UsbIpStatus::Ok;
        case TransferEnd::Stall:
            return UsbIpStatus::Stall;
        case TransferEnd::Timeout:
        case TransferEnd::Disconnected:
            return UsbIpStatus::Gone;
    }
    return UsbIpStatus::Gone;
}

}  // namespace

UsbIpConnection::UsbIpConnection(Socket socket, ServedCameras& cameras, ImportedCameras& imported)
    : channel_(std::move(socket)), cameras_(cameras), imported_(imported) {}

UsbIpConnection::~UsbIpConnection() {
    if (camera_) {
        imported_.erase(*camera_);
    }
}

bool UsbIpConnection::Serve(std::uint64_t nowMs) {
    const bool isOpen = channel_.Fill() && channel_.Flush();
    return HandlePackets(nowMs) && isOpen;
}

bool UsbIpConnection::KeepUp(std::uint64_t nowMs) {
    held_.SendDue(nowMs);
    const bool isThere = !camera_ || cameras_.At(*camera_).Stay() == stay_;
    return channel_.Flush() && isThere;
}

bool UsbIpConnection::HandlePackets(std::uint64_t nowMs) {
    for (;;) {
        const std::span<const std::uint8_t> received = channel_.Received();
        std::size_t size = camera_ ? UsbIpCommand::kSize : UsbIpOperation::kSize;
        if (received.size() < size) {
            return true;
        }
        if (!camera_) {
            const UsbIpOperation operation = UsbIpOperation::Read(received);
            size += operation.code == UsbIpOperation::Code::ImportRequest ? UsbIpOperation::kBusIdSize : 0;
            if (received.size() < size) {
                return true;
            }
            const auto busId = received.first(size).subspan(UsbIpOperation::kSize);
            if (!HandleOperation(operation, busId)) {
                return false;
            }
        } else {
            const std::optional<UsbIpCommand> command = UsbIpCommand::Read(received);
            if (!command || command->Following() > kMostFollowing || command->length > kMostFollowing) {
                return false;
            }
            size += command->Following();
            if (received.size() < size) {
                return true;
            }
            if (command->code == UsbIpCommand::Code::Unlink) {
                HandleUnlink(*command);
            } else {
                HandleSubmit(*command, received.first(size).subspan(UsbIpCommand::kSize), nowMs);
            }
        }
        channel_.Drop(size);
    }
}

bool UsbIpConnection::HandleOperation(const UsbIpOperation& operation, std::span<const std::uint8_t> busId) {
    switch (operation.code) {
        case UsbIpOperation::Code::ListRequest:
            List();
            return true;
        case UsbIpOperation::Code::ImportRequest:
            return Import(busId);
    }
    return false;
}

void UsbIpConnection::List() {
    std::vector<std::uint8_t> devices;
    std::uint32_t count = 0;
    for (std::size_t camera = 0; camera < cameras_.Count(); ++camera) {
        if (cameras_.At(camera).Stay() != 0 && !imported_.contains(camera)) {
            const auto device = MakeListedDevice(camera, cameras_.At(camera).Device());
            devices.insert(devices.end(), device.begin(), device.end());
            ++count;
        }
    }
    channel_.Send(MakeListReply(devices, count));
}

// A camera that is not there, or another's, is refused, and the host hangs up.
bool UsbIpConnection::Import(std::span<const std::uint8_t> busId) {
    const std::string wanted(busId.begin(), std::find(busId.begin(), busId.end(), std::uint8_t{0}));
    for (std::size_t camera = 0; camera < cameras_.Count(); ++camera) {
        ServedCamera& each = cameras_.At(camera);
        if (BusIdOf(camera) == wanted && each.Stay() != 0 && imported_.insert(camera).second) {
            camera_ = camera;
            stay_ = each.Stay();
            channel_.Send(MakeImportReply(camera, &each.Device()));
            return true;
        }
    }
    channel_.Send(MakeImportReply(0, nullptr));
    return true;
}

void UsbIpConnection::HandleSubmit(const UsbIpCommand& command, std::span<const std::uint8_t> sent,
                                   std::uint64_t nowMs) {
    ServedCamera& camera = cameras_.At(*camera_);
    camera.Advance(nowMs);
    if (camera.Stay() != stay_) {
        channel_.Send(MakeSubmitReply(command.sequence, UsbIpStatus::Gone, 0, {}));
    } else if (command.endpoint == 0) {
        HandleControl(command, sent, nowMs);
    } else if (HasEndpoint(command)) {
        held_.Hold(command.sequence, std::nullopt, [] {});
    } else {
        channel_.Send(MakeSubmitReply(command.sequence, UsbIpStatus::Stall, 0, {}));
    }
}

void UsbIpConnection::HandleControl(const UsbIpCommand& command, std::span<const std::uint8_t> sent,
                                    std::uint64_t nowMs) {
    std::vector<std::uint8_t> data(sent.begin(), sent.end());
    data.resize(command.setup.length);
    const TransferResult result = cameras_.At(*camera_).Transfer(command.setup, data, nowMs);
    if (result.end == TransferEnd::Timeout) {
        held_.Hold(command.sequence, std::nullopt, [] {});
        return;
    }
    data.resize(IsToHost(command.setup) ? result.transferred : 0);
    const auto reply = MakeSubmitReply(command.sequence, StatusOf(result.end), result.transferred, data);
    if (result.tookMs == 0) {
        channel_.Send(reply);
    } else {
        held_.Hold(command.sequence, nowMs + result.tookMs, [this, reply] { channel_.Send(reply); });
    }
}

// What was answered already is told as no longer there to be taken back.
void UsbIpConnection::HandleUnlink(const UsbIpCommand& command) {
    const bool wasHeld = held_.Cancel(command.unlinked);
    channel_.Send(MakeUnlinkReply(command.sequence, wasHeld ? UsbIpStatus::Reset : UsbIpStatus::Ok));
}

bool UsbIpConnection::HasEndpoint(const UsbIpCommand& command) {
    constexpr std::uint32_t kMostEndpoint = 15;
    constexpr std::uint32_t kToHost = 0x80;
    const InterfaceSettings* const settings = cameras_.At(*camera_).Device().Interfaces();
    const auto address = static_cast<std::uint8_t>(command.endpoint | (command.isToHost ? kToHost : 0));
    return settings != nullptr && command.endpoint <= kMostEndpoint &&
           settings->IsHalted(address).has_value();
}

}  // namespace lab
