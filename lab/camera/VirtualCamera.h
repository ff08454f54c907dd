#pragma once

#include "lab/camera/BootLoader.h"
#include "lab/camera/BusMode.h"
#include "lab/camera/CameraSettings.h"
#include "lab/camera/DfuTypes.h"
#include "lab/camera/ExtensionUnit.h"
#include "lab/camera/FaultPlan.h"
#include "lab/camera/FirmwareVerdict.h"
#include "lab/camera/FlashMemory.h"
#include "lab/camera/RuntimeInterface.h"
#include "lab/camera/UsbTypes.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace lab {

// The camera that the laboratory puts on the bus: its running mode with the firmware command protocol, its
// DFU mode with the state machine of the USB DFU 1.1 standard, and its flash memory. No platform in it.
//
// Time is the caller's: every call that can depend on it takes `nowMs`, milliseconds on any clock that never
// runs backwards. Nothing happens by itself; Advance() makes what is due happen. Not thread-safe: the owner
// locks.
class VirtualCamera {
  public:
    // The firmware command frame and the control that is read back.
    static constexpr std::size_t kFrameSize = ExtensionUnit::kFrameSize;
    // The device information block.
    static constexpr std::size_t kInfoBlockSize = ExtensionUnit::kInfoBlockSize;
    // Where the four version bytes are in the flash.
    static constexpr std::size_t kVersionOffset = FlashMemory::kVersionOffset;
    // What UPLOAD in dfuIDLE answers, see Personality::Kv400.
    static constexpr std::size_t kStatusBlockSize = BootLoader::kStatusBlockSize;

    explicit VirtualCamera(CameraSettings settings);

    // Puts the camera on the bus in running mode, or takes it off, at once; plugging in what is plugged in,
    // even between two enumerations, does nothing. Unplugging in DFU mode with a download under way leaves
    // what the flash holds by then: when the boot loader finds no firmware in it that it would start, the
    // camera comes back in DFU mode (state dfuERROR, status errFIRMWARE).
    void Plug(std::uint64_t nowMs);
    void Unplug();
    // The host resets the port. A camera in appDETACH comes back in DFU mode, any other as from a short power
    // cycle; both at once. Nothing happens to a camera that is not on the bus.
    void Reset(std::uint64_t nowMs);

    // Makes everything happen that is due by nowMs: leaving the bus after the DFU-mode command, coming back,
    // a block written, manifestation over, the self-reset.
    void Advance(std::uint64_t nowMs);
    // When Advance has something to do next; empty when nothing is pending.
    [[nodiscard]] std::optional<std::uint64_t> NextDeadline() const;

    [[nodiscard]] BusMode Mode() const;
    // How many times it has come to the bus, in either mode: what was agreed upon before the last is void.
    [[nodiscard]] unsigned Arrivals() const { return arrivals_; }
    // As of the last call with a time. Outside DFU mode: appIDLE or appDETACH, and OK.
    [[nodiscard]] DfuState State() const;
    [[nodiscard]] DfuStatus Status() const;
    [[nodiscard]] const std::vector<std::uint8_t>& Flash() const;
    // What would be found after a power failure now, held against the two that it may rightly be.
    [[nodiscard]] FirmwareVerdict Firmware(std::span<const std::uint8_t> old,
                                           std::span<const std::uint8_t> image) const;
    // The flash as it would be then.
    [[nodiscard]] FlashMemory Survivor() const;
    // Bytes of this process's memory that the flash takes.
    [[nodiscard]] std::size_t HeldBytes() const;
    // The version text of what is in the flash: "5.10.2.0".
    [[nodiscard]] std::string Version() const;
    [[nodiscard]] const CameraSettings& Settings() const;

    // Running mode: writes a command frame to the extension unit's control, and reads the control back,
    // whole: zeros behind what the firmware has to say. Stall when the camera is in DFU mode or has no
    // extension unit, Disconnected when it is not on the bus. `reply` gets at most its size; `transferred`
    // says how much.
    TransferResult WriteCommand(std::span<const std::uint8_t> frame, std::uint64_t nowMs);
    TransferResult ReadReply(std::span<std::uint8_t> reply, std::uint64_t nowMs);

    // DFU mode: one control transfer on the default pipe. For a device-to-host request `data` is filled, else
    // read; data.size() is at least setup.length. For what is no class request to the DFU interface (wIndex
    // holds its number), Stall without any other effect; Disconnected when the camera is not on the bus. In
    // running mode the requests of the standard's appIDLE and appDETACH, or Stall, see Personality::Kv400.
    TransferResult ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data,
                                   std::uint64_t nowMs);

    // DFU mode: the host's driver sends SET_INTERFACE to the DFU interface. Stall in running mode,
    // Disconnected when the camera is not on the bus.
    TransferResult SetInterface(std::uint64_t nowMs);

    // DFU mode: the host reads the device descriptor (type 1) or the configuration descriptor (type 2), as
    // much as the buffer takes. Stall for another type or index and outside DFU mode, Disconnected when the
    // camera is not on the bus.
    TransferResult ReadDescriptor(std::uint8_t type, std::uint8_t index, std::span<std::uint8_t> buffer,
                                  std::uint64_t nowMs);

    // Descriptors of DFU mode, whole.
    [[nodiscard]] std::vector<std::uint8_t> DeviceDescriptor() const;
    [[nodiscard]] std::vector<std::uint8_t> ConfigurationDescriptor() const;
    // The interface descriptors (9 bytes each) of the configuration descriptor in force, in their order.
    [[nodiscard]] std::vector<std::array<std::uint8_t, 9>> Interfaces() const;

    // Other faults in place of those that were; their counting begins.
    void SetFaults(const std::vector<Fault>& faults);
    // Of the faults that are here, how many have struck.
    [[nodiscard]] std::size_t FaultsMet() const;
    // Page operations of the flash over the camera's life.
    [[nodiscard]] const PageOperations& FlashOperations() const;

    // Control transfers that reached the camera since it last entered DFU mode, whatever became of them.
    [[nodiscard]] unsigned Transfers() const { return transfers_; }
    // Block numbers of accepted DNLOAD requests, the closing empty one included, that did not follow their
    // predecessor in the same download by one (modulo 65,536). Counted over the camera's life.
    [[nodiscard]] unsigned BlockNumberGaps() const;

  private:
    void LeaveBus(std::uint64_t nowMs);
    void Enumerate();
    bool LeaveWithoutPower();
    TransferResult TransferWhenRunning(const SetupPacket& setup, std::span<std::uint8_t> data,
                                       std::uint64_t nowMs);
    [[nodiscard]] std::optional<TransferEnd> WhyNoCommand() const;
    [[nodiscard]] bool IsForDfuInterface(const SetupPacket& setup) const;
    TransferResult Obstruct(const Fault& fault);

    CameraSettings settings_;
    std::optional<std::uint8_t> dfuInterface_;  // its number in the configuration descriptor in force
    FaultPlan faults_;
    ExtensionUnit extensionUnit_;
    RuntimeInterface runtimeInterface_;
    BootLoader bootLoader_;
    BusMode mode_ = BusMode::Absent;
    unsigned arrivals_ = 0;
    bool isPlugged_ = false;
    unsigned transfers_ = 0;
    bool isDfuRequested_ = false;  // the next enumeration is that of DFU mode
    // When the camera leaves the bus (running mode), or is back on it (absent).
    std::optional<std::uint64_t> busDeadline_;
};

}  // namespace lab
