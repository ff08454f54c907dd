#include "lab/camera/VideoFunction.h"

#include "lab/camera/DataStage.h"

#include <array>
#include <optional>
#include <vector>

namespace lab {
namespace {

bool HasRightDirection(const SetupPacket& setup) {
    return IsToHost(setup) == (UvcRequest{setup.request} != UvcRequest::SetCur);
}

// What the command control answers besides its content.
std::optional<std::vector<std::uint8_t>> CommandControlFact(UvcRequest request) {
    constexpr std::uint16_t kSize = VirtualCamera::kFrameSize;
    switch (request) {
        case UvcRequest::GetLen:
            return std::vector<std::uint8_t>{LowByte(kSize), HighByte(kSize)};
        case UvcRequest::GetInfo:
            return std::vector<std::uint8_t>{kCanGetAndSet};
        case UvcRequest::GetMin:
        case UvcRequest::GetDef:
            return std::vector<std::uint8_t>(kSize, 0x00);
        case UvcRequest::GetMax:
            return std::vector<std::uint8_t>(kSize, 0xFF);
        case UvcRequest::GetRes: {
            std::vector<std::uint8_t> step(kSize, 0x00);
            step[0] = 1;
            return step;
        }
        case UvcRequest::SetCur:
        case UvcRequest::GetCur:
            break;
    }
    return std::nullopt;
}

}  // namespace

VideoFunction::VideoFunction(const CameraSettings& settings)
    : topology_(settings), streaming_(settings.speed) {}

TransferResult VideoFunction::Handle(VirtualCamera& camera, const SetupPacket& setup,
                                     std::span<std::uint8_t> data, std::uint64_t nowMs) {
    switch (LowByte(setup.index)) {
        case kVideoControlInterface:
            return HandleControl(camera, setup, data, nowMs);
        case kVideoStreamingInterface:
            return HandleStreaming(setup, data);
        default:
            return {.end = TransferEnd::Stall};
    }
}

TransferResult VideoFunction::HandleControl(VirtualCamera& camera, const SetupPacket& setup,
                                            std::span<std::uint8_t> data, std::uint64_t nowMs) {
    const std::uint8_t unit = HighByte(setup.index);
    const std::uint8_t control = HighByte(setup.value);
    if (unit == 0 && control == kErrorCodeControl) {
        return TellError(setup, data);
    }
    const std::optional<TopologyNode> node = topology_.FindUnit(unit);
    if (unit != 0 && !node && !topology_.IsTerminal(unit)) {
        return Refuse(UvcError::InvalidUnit);
    }
    if (node != TopologyNode::ExtensionUnit || control != kCommandControl) {
        return Refuse(UvcError::InvalidControl);
    }
    if (!HasRightDirection(setup)) {
        return Refuse(UvcError::InvalidRequest);
    }
    return HandleCommand(camera, setup, data, nowMs);
}

TransferResult VideoFunction::HandleCommand(VirtualCamera& camera, const SetupPacket& setup,
                                            std::span<std::uint8_t> data, std::uint64_t nowMs) {
    const UvcRequest request{setup.request};
    TransferResult result;
    if (request == UvcRequest::SetCur) {
        result = camera.WriteCommand(data, nowMs);
    } else if (request == UvcRequest::GetCur) {
        result = camera.ReadReply(data, nowMs);
    } else if (const auto fact = CommandControlFact(request)) {
        result = Deliver(*fact, data);
    } else {
        return Refuse(UvcError::InvalidRequest);
    }
    error_ = result.end == TransferEnd::Stall ? UvcError::Unknown : UvcError::None;
    return result;
}

TransferResult VideoFunction::HandleStreaming(const SetupPacket& setup, std::span<std::uint8_t> data) const {
    const UvcRequest request{setup.request};
    if (HighByte(setup.index) != 0 || !HasRightDirection(setup)) {
        return {.end = TransferEnd::Stall};
    }
    if (request == UvcRequest::SetCur) {
        return Acknowledge(streaming_.Set(HighByte(setup.value), data), data.size());
    }
    const auto answer = streaming_.Get(request, HighByte(setup.value));
    return answer ? Deliver(*answer, data) : Acknowledge(false);
}

TransferResult VideoFunction::TellError(const SetupPacket& setup, std::span<std::uint8_t> data) {
    constexpr std::uint8_t kCanGet = 0x01;
    if (!IsToHost(setup)) {
        return Refuse(UvcError::InvalidRequest);
    }
    if (UvcRequest{setup.request} == UvcRequest::GetCur) {
        return Deliver(std::array{static_cast<std::uint8_t>(error_)}, data);
    }
    if (UvcRequest{setup.request} == UvcRequest::GetInfo) {
        return Deliver(std::array{kCanGet}, data);
    }
    return Refuse(UvcError::InvalidRequest);
}

TransferResult VideoFunction::Refuse(UvcError error) {
    error_ = error;
    return {.end = TransferEnd::Stall};
}

}  // namespace lab
