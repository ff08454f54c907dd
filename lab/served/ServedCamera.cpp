#include "lab/served/ServedCamera.h"

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "lab/camera/UvcTypes.h"
#include "lab/camera/VideoFunction.h"
#include "lab/vocabulary/BusEvents.h"

namespace lab {
namespace {

using nlohmann::json;

CameraSettings WithSerialNumber(CameraSettings settings, std::size_t number) {
    constexpr std::size_t kDigits = 4;
    if (settings.serialNumber.empty()) {
        std::string digits = std::to_string(number + 1);
        digits.insert(0, kDigits - std::min(digits.size(), kDigits), '0');
        settings.serialNumber = "KV400" + digits;
    }
    return settings;
}

bool IsStandard(const SetupPacket& setup, StandardRequest request) {
    return KindOf(setup) == RequestKind::Standard && setup.request == static_cast<std::uint8_t>(request);
}

bool IsClassToInterface(const SetupPacket& setup) {
    return KindOf(setup) == RequestKind::Class && RecipientOf(setup) == Recipient::Interface;
}

// A unit's control, read or written.
bool IsCommand(const SetupPacket& setup, UvcRequest request) {
    return IsClassToInterface(setup) && LowByte(setup.index) == kVideoControlInterface &&
           HighByte(setup.index) != 0 && HighByte(setup.value) == VideoFunction::kCommandControl &&
           UvcRequest{setup.request} == request;
}

}  // namespace

ServedCamera::ServedCamera(std::size_t number, CameraSettings settings, Recorder record)
    : number_(number), record_(std::move(record)), device_(WithSerialNumber(std::move(settings), number)) {}

void ServedCamera::Plug(std::uint64_t nowMs) {
    Advance(nowMs);
    if (mode_ != BusMode::Absent || device_.NextDeadline()) {
        throw std::runtime_error("the camera is on the bus, or on its way back to it");
    }
    device_.Plug(nowMs);
    NoteChange("plugged");
}

void ServedCamera::Unplug(std::uint64_t nowMs) {
    Advance(nowMs);
    if (mode_ == BusMode::Absent && !device_.NextDeadline()) {
        throw std::runtime_error("the camera is not on the bus");
    }
    const bool wasBetweenModes = mode_ == BusMode::Absent;
    device_.Unplug();
    NoteChange();
    if (wasBetweenModes) {
        RecordChange("unplugged");
    }
}

json ServedCamera::State(std::uint64_t nowMs) {
    Advance(nowMs);
    return CameraState(device_.Camera(), mode_);
}

// Step by step, so that a camera that left and came back is seen to do both.
void ServedCamera::Advance(std::uint64_t nowMs) {
    std::optional<std::uint64_t> previous;
    for (auto due = device_.NextDeadline(); due && *due <= nowMs && due != previous;
         previous = due, due = device_.NextDeadline()) {
        device_.Advance(*due);
        NoteChange();
    }
    device_.Advance(nowMs);
    NoteChange();
}

TransferResult ServedCamera::Transfer(const SetupPacket& setup, std::span<std::uint8_t> data,
                                      std::uint64_t nowMs) {
    Advance(nowMs);
    GiveAddress(setup, nowMs);
    const BusMode mode = mode_;
    const bool wasConfigured = device_.State() == UsbState::Configured;
    const TransferResult result = device_.ControlTransfer(setup, data, nowMs);
    Record(setup, data.first(std::min<std::size_t>(data.size(), setup.length)), result, mode, wasConfigured);
    if (!wasConfigured && device_.State() == UsbState::Configured) {
        record_({{"event", "configured"}, {"camera", number_}});
    }
    NoteChange();
    return result;
}

void ServedCamera::Reset(std::uint64_t nowMs) {
    Advance(nowMs);
    const bool reachesCamera = device_.State() == UsbState::Configured;
    device_.Reset(nowMs);
    arrivals_ = device_.Camera().Arrivals();
    if (reachesCamera) {
        record_({{"event", "reset"}, {"camera", number_}});
    }
    NoteChange();
}

unsigned ServedCamera::Stay() const {
    return device_.State() == UsbState::Absent ? 0 : stay_;
}

void ServedCamera::GiveAddress(const SetupPacket& setup, std::uint64_t nowMs) {
    if (device_.State() != UsbState::Default || IsStandard(setup, StandardRequest::GetDescriptor) ||
        IsStandard(setup, StandardRequest::SetAddress)) {
        return;
    }
    const SetupPacket setAddress{.request = static_cast<std::uint8_t>(StandardRequest::SetAddress),
                                 .value = 1};
    device_.ControlTransfer(setAddress, {}, nowMs);
}

void ServedCamera::Record(const SetupPacket& setup, std::span<const std::uint8_t> data,
                          const TransferResult& result, BusMode mode, bool wasConfigured) {
    const std::uint32_t error = WinUsbError(result.end);
    if (!wasConfigured) {
        return;
    }
    if (mode == BusMode::Running && IsCommand(setup, UvcRequest::SetCur)) {
        record_(CommandEvent(data, PropertyResult(result.end)));
    } else if (mode == BusMode::Running && IsCommand(setup, UvcRequest::GetCur)) {
        record_(ReplyEvent(data.first(result.transferred), PropertyResult(result.end)));
    } else if (IsClassToInterface(setup) && (mode == BusMode::Dfu || setup.index == kRuntimeDfuInterface)) {
        record_(TransferEvent(setup, data, result.transferred, error, result.tookMs));
    } else if (mode == BusMode::Dfu && IsStandard(setup, StandardRequest::SetInterface)) {
        record_(AlternateSettingEvent(setup.index, LowByte(setup.value), error));
    } else if (mode == BusMode::Dfu && IsStandard(setup, StandardRequest::GetDescriptor)) {
        record_(DescriptorEvent(HighByte(setup.value), LowByte(setup.value), data.first(setup.length),
                                result.transferred, error));
    }
}

void ServedCamera::NoteChange(const char* changeWhenPresent) {
    const BusMode mode = device_.Camera().Mode();
    const unsigned arrivals = device_.Camera().Arrivals();
    stay_ += arrivals != arrivals_ ? 1U : 0U;
    arrivals_ = arrivals;
    if (mode == mode_) {
        return;
    }
    if (mode_ != BusMode::Absent) {
        const bool comesBack = device_.NextDeadline() || mode != BusMode::Absent;
        RecordChange(comesBack ? "left" : "unplugged");
    }
    mode_ = mode;
    if (mode != BusMode::Absent) {
        const char* const change = mode == BusMode::Dfu ? "dfu" : "running";
        RecordChange(changeWhenPresent != nullptr ? changeWhenPresent : change);
    }
}

void ServedCamera::RecordChange(const char* change) {
    record_(CameraEvent(number_, change, device_.Camera().Version()));
}

}  // namespace lab
