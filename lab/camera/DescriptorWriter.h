#pragma once

#include "lab/camera/UsbTypes.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace lab {

// Writes descriptors one behind the other, in the byte order of the bus. No length is told: a descriptor's
// own is counted until the next begins, a total one until it is closed. What stands before the first
// descriptor is plain bytes. For one thread.
class DescriptorWriter {
  public:
    // Begins a descriptor with bLength and bDescriptorType.
    DescriptorWriter& Begin(DescriptorType type);
    // Begins one of the MS OS 2.0 set, with wLength and wDescriptorType.
    DescriptorWriter& BeginWide(std::uint16_t type);

    DescriptorWriter& Byte(std::uint8_t value);
    DescriptorWriter& Word(std::uint16_t value);
    DescriptorWriter& Long(std::uint32_t value);
    DescriptorWriter& Bytes(std::initializer_list<std::uint8_t> bytes);
    DescriptorWriter& Bytes(std::span<const std::uint8_t> bytes);
    // UTF-16 without a terminator.
    DescriptorWriter& Text(std::u16string_view text);

    // The next two bytes count everything from the first byte of the descriptor that is being written to
    // where CloseTotal() or Finish() is called. Totals nest.
    DescriptorWriter& OpenTotal();
    DescriptorWriter& CloseTotal();

    // Everything written, with all lengths in it; the writer is empty then. Throws std::length_error when one
    // does not fit its field; so does the beginning of the next descriptor.
    [[nodiscard]] std::vector<std::uint8_t> Finish();

  private:
    struct Total {
        std::size_t from;   // the first byte that counts
        std::size_t field;  // where the two bytes are
    };

    void End();
    void PutWord(std::size_t offset, std::size_t value);

    std::vector<std::uint8_t> bytes_;
    std::optional<std::size_t> begin_;  // of the descriptor that is being written
    bool isWide_ = false;               // its length takes two bytes
    std::vector<Total> totals_;
};

}  // namespace lab
