#pragma once

#include <cstddef>
#include <cstdint>

namespace lab {

// The eight bytes of a USB control request's setup stage, as fields.
struct SetupPacket {
    std::uint8_t requestType = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;
};

// Requests of the USB DFU 1.1 standard (bRequest), with its numbers.
enum class DfuRequest : std::uint8_t {
    Detach = 0,
    Dnload = 1,
    Upload = 2,
    GetStatus = 3,
    ClrStatus = 4,
    GetState = 5,
    Abort = 6,
};

// States of the USB DFU 1.1 standard, with its numbers.
enum class DfuState : std::uint8_t {
    AppIdle = 0,
    AppDetach = 1,
    DfuIdle = 2,
    DnloadSync = 3,
    DnBusy = 4,
    DnloadIdle = 5,
    ManifestSync = 6,
    Manifest = 7,
    ManifestWaitReset = 8,
    UploadIdle = 9,
    Error = 10,
};

// Status codes of the USB DFU 1.1 standard (bStatus), with its numbers.
enum class DfuStatus : std::uint8_t {
    Ok = 0x00,
    ErrTarget = 0x01,
    ErrFile = 0x02,
    ErrWrite = 0x03,
    ErrErase = 0x04,
    ErrCheckErased = 0x05,
    ErrProg = 0x06,
    ErrVerify = 0x07,
    ErrAddress = 0x08,
    ErrNotDone = 0x09,
    ErrFirmware = 0x0A,
    ErrVendor = 0x0B,
    ErrUsbr = 0x0C,
    ErrPor = 0x0D,
    ErrUnknown = 0x0E,
    ErrStalledPkt = 0x0F,
};

// How a control transfer ended, as the host controller would see it.
enum class TransferEnd { Ok, Stall, Timeout, Disconnected };

struct TransferResult {
    TransferEnd end = TransferEnd::Ok;
    std::size_t transferred = 0;  // bytes of the data stage
    std::uint32_t tookMs = 0;     // what the host waited for the answer, or before it gave up
};

}  // namespace lab
