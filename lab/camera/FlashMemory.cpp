#include "lab/camera/FlashMemory.h"

#include <algorithm>
#include <utility>

namespace lab {
namespace {

constexpr std::size_t kInitialSize = 4096;

}  // namespace

FlashMemory::FlashMemory(const std::array<std::uint8_t, 4>& version, bool hasTwoBanks)
    : hasTwoBanks_(hasTwoBanks), bytes_(kInitialSize) {
    for (std::size_t offset = 0; offset < bytes_.size(); ++offset) {
        bytes_[offset] = static_cast<std::uint8_t>(offset * 31 + 7);
    }
    for (std::size_t number = 0; number < version.size(); ++number) {
        bytes_[kVersionOffset + 3 - number] = version[number];
    }
}

std::array<std::uint8_t, 4> FlashMemory::VersionBytes() const {
    std::array<std::uint8_t, 4> version{};
    for (std::size_t number = 0; number < version.size(); ++number) {
        if (kVersionOffset + number < bytes_.size()) {
            version[number] = bytes_[kVersionOffset + number];
        }
    }
    return version;
}

std::string FlashMemory::VersionText() const {
    const std::array<std::uint8_t, 4> version = VersionBytes();
    return std::to_string(version[3]) + "." + std::to_string(version[2]) + "." + std::to_string(version[1]) +
           "." + std::to_string(version[0]);
}

std::size_t FlashMemory::HeldBytes() const {
    return bytes_.capacity() + (image_ ? image_->capacity() : 0);
}

void FlashMemory::BeginImage() {
    image_.emplace();
}

void FlashMemory::AppendToImage(std::span<const std::uint8_t> block) {
    if (image_) {
        image_->insert(image_->end(), block.begin(), block.end());
    }
}

void FlashMemory::PutIntoImage(std::size_t offset, std::span<const std::uint8_t> block) {
    if (image_) {
        image_->resize(std::max(image_->size(), offset + block.size()));
        std::copy(block.begin(), block.end(), image_->begin() + static_cast<std::ptrdiff_t>(offset));
    }
}

void FlashMemory::CommitImage() {
    if (image_) {
        bytes_ = std::move(*image_);
        image_.reset();
        isValid_ = true;
    }
}

void FlashMemory::DiscardImage() {
    image_.reset();
}

void FlashMemory::LosePower() {
    if (!image_ || hasTwoBanks_) {
        image_.reset();
        return;
    }
    bytes_.resize(std::max(bytes_.size(), image_->size()));
    std::copy(image_->begin(), image_->end(), bytes_.begin());
    image_.reset();
    isValid_ = false;
}

}  // namespace lab
