#include "lab/camera/DescriptorWriter.h"

#include <limits>
#include <stdexcept>
#include <utility>

namespace lab {

DescriptorWriter& DescriptorWriter::Begin(DescriptorType type) {
    End();
    begin_ = bytes_.size();
    isWide_ = false;
    return Byte(0).Byte(static_cast<std::uint8_t>(type));
}

DescriptorWriter& DescriptorWriter::BeginWide(std::uint16_t type) {
    End();
    begin_ = bytes_.size();
    isWide_ = true;
    return Word(0).Word(type);
}

DescriptorWriter& DescriptorWriter::Byte(std::uint8_t value) {
    bytes_.push_back(value);
    return *this;
}

DescriptorWriter& DescriptorWriter::Word(std::uint16_t value) {
    return Byte(LowByte(value)).Byte(HighByte(value));
}

DescriptorWriter& DescriptorWriter::Long(std::uint32_t value) {
    return Word(static_cast<std::uint16_t>(value & 0xFFFF)).Word(static_cast<std::uint16_t>(value >> 16));
}

DescriptorWriter& DescriptorWriter::Bytes(std::initializer_list<std::uint8_t> bytes) {
    bytes_.insert(bytes_.end(), bytes);
    return *this;
}

DescriptorWriter& DescriptorWriter::Bytes(std::span<const std::uint8_t> bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
}

DescriptorWriter& DescriptorWriter::Text(std::u16string_view text) {
    for (const char16_t character : text) {
        Word(character);
    }
    return *this;
}

DescriptorWriter& DescriptorWriter::OpenTotal() {
    totals_.push_back({.from = begin_.value_or(0), .field = bytes_.size()});
    return Word(0);
}

DescriptorWriter& DescriptorWriter::CloseTotal() {
    const Total total = totals_.back();
    totals_.pop_back();
    PutWord(total.field, bytes_.size() - total.from);
    return *this;
}

std::vector<std::uint8_t> DescriptorWriter::Finish() {
    End();
    while (!totals_.empty()) {
        CloseTotal();
    }
    return std::exchange(bytes_, {});
}

// The descriptor that is being written gets its length.
void DescriptorWriter::End() {
    if (!begin_) {
        return;
    }
    const std::size_t begin = *begin_;
    const std::size_t length = bytes_.size() - begin;
    begin_.reset();
    if (isWide_) {
        PutWord(begin, length);
    } else if (length <= std::numeric_limits<std::uint8_t>::max()) {
        bytes_[begin] = static_cast<std::uint8_t>(length);
    } else {
        throw std::length_error("a descriptor is longer than 255 bytes");
    }
}

void DescriptorWriter::PutWord(std::size_t offset, std::size_t value) {
    if (value > std::numeric_limits<std::uint16_t>::max()) {
        throw std::length_error("descriptors are longer than 65535 bytes together");
    }
    bytes_[offset] = LowByte(static_cast<std::uint16_t>(value));
    bytes_[offset + 1] = HighByte(static_cast<std::uint16_t>(value));
}

}  // namespace lab
