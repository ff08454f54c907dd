#pragma once

#include "lab/camera/StreamingControl.h"
#include "lab/camera/UsbTypes.h"
#include "lab/camera/UvcTypes.h"
#include "lab/camera/VideoTopology.h"
#include "lab/camera/VirtualCamera.h"

#include <cstdint>
#include <span>

namespace lab {

// The class requests of the running camera's video function: the extension unit's command control, which is
// the camera's, the negotiation of the video stream, and nothing else. For one thread.
class VideoFunction {
  public:
    // The command control of the firmware's extension unit, and the only one that it has.
    static constexpr std::uint8_t kCommandControl = 1;
    // The control of the video control interface that tells why its last request was refused.
    static constexpr std::uint8_t kErrorCodeControl = 2;

    explicit VideoFunction(const CameraSettings& settings);

    // The firmware starts.
    void Restart() { error_ = UvcError::None; }

    // A class request to one of the two video interfaces (wIndex: interface and unit, wValue: control). Reads
    // of the command control are 1,024 bytes; its smallest, largest and default values mean nothing. `data`
    // as in VirtualCamera::ControlTransfer(). What does not exist stalls.
    TransferResult Handle(VirtualCamera& camera, const SetupPacket& setup, std::span<std::uint8_t> data,
                          std::uint64_t nowMs);

  private:
    TransferResult HandleControl(VirtualCamera& camera, const SetupPacket& setup,
                                 std::span<std::uint8_t> data, std::uint64_t nowMs);
    TransferResult HandleCommand(VirtualCamera& camera, const SetupPacket& setup,
                                 std::span<std::uint8_t> data, std::uint64_t nowMs);
    TransferResult HandleStreaming(const SetupPacket& setup, std::span<std::uint8_t> data) const;
    TransferResult TellError(const SetupPacket& setup, std::span<std::uint8_t> data);
    TransferResult Refuse(UvcError error);

    VideoTopology topology_;
    StreamingControl streaming_;
    UvcError error_ = UvcError::None;
};

}  // namespace lab
