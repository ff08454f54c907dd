#pragma once

#include "lab/camera/FlashMemory.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace lab {

// The running camera's firmware command control: a SET carries a command frame, a GET reads back the answer
// to the last command that was accepted. The frame, little-endian: u16 length of what follows the magic and
// counts (20 and the data), bytes AB CD, u32 opcode, four u32 parameters, 1000 bytes of data.
class ExtensionUnit {
  public:
    static constexpr std::size_t kFrameSize = 1024;
    static constexpr std::size_t kInfoBlockSize = 230;

    enum class Outcome {
        Refused,  // a malformed frame; the answer before it stays
        Done,
        SwitchToDfu,  // done, and the camera is to re-enumerate in DFU mode
    };

    // Carries out the command in a frame. Opcode 0x10 answers the device information block, whose bytes 12 to
    // 15 are the flash's version bytes; every other opcode is answered by its echo alone.
    [[nodiscard]] Outcome Write(std::span<const std::uint8_t> frame, const FlashMemory& flash);

    // u32 opcode echo and the answer's data; four zero bytes before the first command.
    [[nodiscard]] const std::vector<std::uint8_t>& Reply() const { return reply_; }

    // The firmware starts anew.
    void Restart();

  private:
    std::vector<std::uint8_t> reply_ = std::vector<std::uint8_t>(4);
};

}  // namespace lab
