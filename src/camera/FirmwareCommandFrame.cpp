#include "camera/FirmwareCommandFrame.h"

namespace {

constexpr std::size_t kLengthOffset = 0;
constexpr std::size_t kMagicOffset = 2;
constexpr std::size_t kOpcodeOffset = 4;
constexpr std::size_t kParametersOffset = 8;
constexpr std::size_t kLengthOfOpcodeAndParameters = 20;

void PutU32(FirmwareFrame& frame, std::size_t offset, std::uint32_t value) {
    for (std::size_t byte = 0; byte < sizeof value; ++byte) {
        frame[offset + byte] = static_cast<std::uint8_t>(value >> (8 * byte));
    }
}

}  // namespace

FirmwareFrame BuildFirmwareFrame(std::uint32_t opcode, std::size_t dataLength,
                                 const FirmwareParameters& parameters) {
    FirmwareFrame frame{};
    const auto length = static_cast<std::uint16_t>(kLengthOfOpcodeAndParameters + dataLength);
    frame[kLengthOffset] = static_cast<std::uint8_t>(length);
    frame[kLengthOffset + 1] = static_cast<std::uint8_t>(length >> 8);
    frame[kMagicOffset] = 0xAB;
    frame[kMagicOffset + 1] = 0xCD;
    PutU32(frame, kOpcodeOffset, opcode);
    for (std::size_t index = 0; index < parameters.size(); ++index) {
        PutU32(frame, kParametersOffset + index * sizeof(std::uint32_t), parameters[index]);
    }
    return frame;
}

bool IsReplyTo(std::span<const std::uint8_t, kFirmwareFrameSize> reply, std::size_t bytesReturned,
               std::uint32_t opcode, std::size_t dataLength) {
    if (bytesReturned < kReplyDataOffset + dataLength) {
        return false;
    }
    std::uint32_t echo = 0;
    for (std::size_t byte = 0; byte < sizeof echo; ++byte) {
        echo |= std::uint32_t{reply[byte]} << (8 * byte);
    }
    return echo == opcode;
}
