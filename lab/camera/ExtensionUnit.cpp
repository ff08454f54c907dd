#include "lab/camera/ExtensionUnit.h"

#include <algorithm>
#include <array>

namespace lab {
namespace {

constexpr std::uint32_t kReadInformation = 0x10;
constexpr std::uint32_t kEnterDfuMode = 0x1E;
constexpr std::uint32_t kLengthWithoutData = 20;
constexpr std::uint32_t kMostData = 1000;
constexpr std::size_t kVersionInInformation = 12;

// What the information block holds besides the version means nothing to anybody. The filler is not 0, so that
// a version read at the wrong place shows.
constexpr std::uint8_t kFiller = 0xEE;

std::uint32_t Word(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return std::uint32_t{bytes[offset]} | std::uint32_t{bytes[offset + 1]} << 8 |
           std::uint32_t{bytes[offset + 2]} << 16 | std::uint32_t{bytes[offset + 3]} << 24;
}

bool IsWellFormed(std::span<const std::uint8_t> frame) {
    if (frame.size() != ExtensionUnit::kFrameSize || frame[2] != 0xAB || frame[3] != 0xCD) {
        return false;
    }
    const std::uint32_t length = std::uint32_t{frame[0]} | std::uint32_t{frame[1]} << 8;
    return length >= kLengthWithoutData && length <= kLengthWithoutData + kMostData;
}

}  // namespace

ExtensionUnit::Outcome ExtensionUnit::Write(std::span<const std::uint8_t> frame, const FlashMemory& flash) {
    if (!IsWellFormed(frame)) {
        return Outcome::Refused;
    }
    reply_.assign(frame.begin() + 4, frame.begin() + 8);
    const std::uint32_t opcode = Word(frame, 4);
    if (opcode == kReadInformation) {
        const std::array<std::uint8_t, 4> version = flash.VersionBytes();
        reply_.resize(4 + kInfoBlockSize, kFiller);
        std::copy(version.begin(), version.end(), reply_.begin() + 4 + kVersionInInformation);
    }
    const bool isSwitch = opcode == kEnterDfuMode && Word(frame, 8) == 1 && Word(frame, 12) == 0 &&
                          Word(frame, 16) == 0 && Word(frame, 20) == 0;
    return isSwitch ? Outcome::SwitchToDfu : Outcome::Done;
}

void ExtensionUnit::Restart() {
    reply_.assign(4, 0);
}

}  // namespace lab
