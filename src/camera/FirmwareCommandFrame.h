#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

// The frame in which a firmware command travels, and the reply that is read back: 1024 bytes each, fields
// little-endian.
//
// Command: u16 length (20 + data length), bytes AB CD, u32 opcode, four u32 parameters, data.
// Reply:   u32 echo of the opcode, data.

inline constexpr std::size_t kFirmwareFrameSize = 1024;
inline constexpr std::size_t kCommandDataOffset = 24;
inline constexpr std::size_t kMaxCommandData = kFirmwareFrameSize - kCommandDataOffset;
inline constexpr std::size_t kReplyDataOffset = 4;
inline constexpr std::size_t kMaxReplyData = kFirmwareFrameSize - kReplyDataOffset;

using FirmwareFrame = std::array<std::uint8_t, kFirmwareFrameSize>;
using FirmwareParameters = std::array<std::uint32_t, 4>;

// A frame without its data, the bytes behind the parameters zero. The length field holds the low 16 bits of
// 20 + dataLength.
[[nodiscard]] FirmwareFrame BuildFirmwareFrame(std::uint32_t opcode, std::size_t dataLength,
                                               const FirmwareParameters& parameters);

// Whether a reply of which `bytesReturned` bytes came back begins with the opcode and has at least
// `dataLength` bytes of data.
[[nodiscard]] bool IsReplyTo(std::span<const std::uint8_t, kFirmwareFrameSize> reply,
                             std::size_t bytesReturned, std::uint32_t opcode, std::size_t dataLength);
