#pragma once

#include "lab/camera/CameraSettings.h"
#include "lab/camera/DfuTraits.h"
#include "lab/camera/DfuTypes.h"
#include "lab/camera/FlashMemory.h"
#include "lab/camera/UsbTypes.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace lab {

// What a DFU request came to: how it ended, the bytes taken from the host, and the bytes for the host.
struct DfuAnswer {
    TransferEnd end = TransferEnd::Ok;
    std::size_t taken = 0;
    std::vector<std::uint8_t> reply = {};
    std::uint64_t lateMs = 0;  // from the request to the answer
};

// The camera's boot loader: the state machine of the USB DFU 1.1 standard in DFU mode, and the flash that it
// writes. Times are the caller's milliseconds; what is due by a request's time is made to happen with
// Advance() before Handle() is called.
class BootLoader {
  public:
    static constexpr std::size_t kStatusBlockSize = 68;

    explicit BootLoader(const CameraSettings& settings);

    // DFU mode begins: dfuIDLE, or dfuERROR with errFIRMWARE when the flash holds nothing that could run. Of
    // what was before, the flash alone is left, and the gaps that were counted.
    void Start();
    // Power is gone, in whatever state.
    void LosePower();
    // It went at a page operation of the flash: LosePower() is due.
    [[nodiscard]] bool HasLostPower() const { return flash_.HasLostPower(); }
    // Other faults of page operations in place of those that were.
    void SetFaults(const std::vector<Fault>& faults) { flash_.SetFaults(faults); }

    // Makes the one thing happen that is due at NextDeadline(), which is `atMs`.
    void Advance(std::uint64_t atMs);
    [[nodiscard]] std::optional<std::uint64_t> NextDeadline() const { return deadline_; }

    // Carries out a class request to the DFU interface, when it is heard. `data` is what the host sends. The
    // answer to a GETSTATUS that makes the device reset itself is Disconnected.
    [[nodiscard]] DfuAnswer Handle(const SetupPacket& setup, std::span<const std::uint8_t> data,
                                   std::uint64_t nowMs);
    // A DNLOAD breaks off in its data stage: the device has taken these bytes, when it takes blocks at all.
    void TakePart(std::uint16_t blockNumber, std::span<const std::uint8_t> part);
    // The host chooses an alternate setting of the DFU interface.
    [[nodiscard]] TransferEnd SetInterface();
    // Moves to dfuERROR, whatever the personality; a device that is there already keeps its status.
    void Fail(DfuStatus status);

    // The device is about to leave the bus by itself; stays true until Start().
    [[nodiscard]] bool WantsReset() const { return wantsReset_; }
    // It comes back in DFU mode then, though its firmware could run.
    [[nodiscard]] bool StaysInDfuMode() const { return staysInDfuMode_; }
    [[nodiscard]] DfuState State() const { return state_; }
    [[nodiscard]] DfuStatus Status() const { return status_; }
    [[nodiscard]] const FlashMemory& Flash() const { return flash_; }
    [[nodiscard]] unsigned BlockNumberGaps() const { return blockNumberGaps_; }

  private:
    DfuAnswer CarryOut(const SetupPacket& setup, std::span<const std::uint8_t> data, std::uint64_t nowMs);
    DfuAnswer Detach();
    DfuAnswer Dnload(std::uint16_t blockNumber, std::span<const std::uint8_t> data, std::uint64_t nowMs);
    DfuAnswer Upload(std::size_t length);
    DfuAnswer GetStatus(std::uint64_t nowMs);
    DfuAnswer ClrStatus();
    DfuAnswer GetState();
    DfuAnswer Abort();

    DfuAnswer Refuse(DfuStatus status = DfuStatus::ErrStalledPkt);
    void ReturnToIdle();
    void EndManifestation(std::uint64_t atMs);
    void CountGap(std::uint16_t blockNumber);
    [[nodiscard]] bool TakesBlocks() const;
    void Write(std::uint16_t blockNumber, std::span<const std::uint8_t> data);
    void BeginWriting(std::uint64_t nowMs, std::uint32_t ms);
    [[nodiscard]] bool AnswersQueries() const;
    [[nodiscard]] DfuAnswer StatusReply(std::uint64_t nowMs) const;
    [[nodiscard]] DfuAnswer UploadStatusBlock(std::size_t length) const;

    DfuTraits traits_;
    std::uint16_t transferSize_;
    std::uint32_t blockMs_;
    std::uint32_t manifestMs_;
    bool manifestsAtOnce_;
    std::uint32_t resetMs_;
    FlashMemory flash_;

    DfuState state_ = DfuState::DfuIdle;
    DfuStatus status_ = DfuStatus::Ok;
    // End of writing a block (dfuDNLOAD-SYNC, dfuDNBUSY), of dfuMANIFEST, or of dfuMANIFEST-WAIT-RESET.
    std::optional<std::uint64_t> deadline_;
    bool busyReported_ = false;       // since the last block, GETSTATUS told dfuDNBUSY or what follows it
    bool isManifested_ = false;       // in dfuMANIFEST-SYNC: on the way back from dfuMANIFEST
    bool waitResetReported_ = false;  // in dfuMANIFEST-WAIT-RESET: GETSTATUS told the host
    bool wantsReset_ = false;
    bool staysInDfuMode_ = false;
    std::uint64_t hearsFromMs_ = 0;  // a request that comes before is heard then
    std::size_t uploaded_ = 0;       // bytes of the flash that the upload under way has sent
    std::optional<std::uint16_t> lastBlockNumber_;
    unsigned blockNumberGaps_ = 0;
};

}  // namespace lab
