#pragma once

#include "lab/camera/UsbTypes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace lab {

// The data stage of a transfer to the host: as much of the reply as the host has asked for.
inline TransferResult Deliver(std::span<const std::uint8_t> reply, std::span<std::uint8_t> buffer) {
    const std::size_t length = std::min(reply.size(), buffer.size());
    std::copy_n(reply.begin(), length, buffer.begin());
    return {.end = TransferEnd::Ok, .transferred = length};
}

// A transfer that has no data stage, or one of so many bytes to the device.
inline TransferResult Acknowledge(bool isTaken, std::size_t taken = 0) {
    return {.end = isTaken ? TransferEnd::Ok : TransferEnd::Stall, .transferred = isTaken ? taken : 0};
}

}  // namespace lab
