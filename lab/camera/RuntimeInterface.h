#pragma once

#include "lab/camera/DfuTypes.h"
#include "lab/camera/UsbTypes.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace lab {

// The DFU interface of a device that runs its firmware: the states appIDLE and appDETACH of the USB DFU 1.1
// standard.
class RuntimeInterface {
  public:
    // The firmware starts: appIDLE.
    void Restart();

    // Carries out a class request. What the standard does not list stalls and leads to appIDLE.
    [[nodiscard]] TransferEnd Handle(const SetupPacket& setup, std::uint64_t nowMs,
                                     std::vector<std::uint8_t>& reply);

    // The time-out of appDETACH, which is due at NextDeadline(), is over.
    void Advance() { Restart(); }
    [[nodiscard]] std::optional<std::uint64_t> NextDeadline() const { return deadline_; }

    [[nodiscard]] DfuState State() const { return state_; }

  private:
    DfuState state_ = DfuState::AppIdle;
    std::optional<std::uint64_t> deadline_;
};

}  // namespace lab
