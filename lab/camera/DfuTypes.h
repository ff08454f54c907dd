#pragma once

#include <cstdint>

namespace lab {

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

}  // namespace lab
