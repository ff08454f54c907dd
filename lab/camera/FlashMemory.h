#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace lab {

// The camera's firmware storage. A download collects its image in memory beside it; only CommitImage() makes
// the image the flash's content. A power failure in between is the one thing that spoils the flash.
class FlashMemory {
  public:
    static constexpr std::size_t kVersionOffset = 398;

    // A deterministic pattern of 4096 bytes with the version (most significant number first) in it.
    // With two banks a power failure leaves the content alone.
    explicit FlashMemory(const std::array<std::uint8_t, 4>& version, bool hasTwoBanks = false);

    [[nodiscard]] const std::vector<std::uint8_t>& Bytes() const { return bytes_; }
    // Whether there is firmware that can be started.
    [[nodiscard]] bool IsValid() const { return isValid_; }
    // The four bytes at kVersionOffset, in the order of the flash: least significant first. Bytes that the
    // flash does not have are 0.
    [[nodiscard]] std::array<std::uint8_t, 4> VersionBytes() const;
    // "5.10.2.0"
    [[nodiscard]] std::string VersionText() const;

    // Bytes of this process's memory that the contents take.
    [[nodiscard]] std::size_t HeldBytes() const;

    // Begins an empty image; an image that was under way is dropped.
    void BeginImage();
    // Appends to the image that was begun.
    void AppendToImage(std::span<const std::uint8_t> block);
    // Writes into the image that was begun, which grows as far as it has to.
    void PutIntoImage(std::size_t offset, std::span<const std::uint8_t> block);
    // The image becomes the flash's content, with its length.
    void CommitImage();
    // Drops the image, if there is one; the flash stays as it was.
    void DiscardImage();
    // Power is gone. With an image under way the flash then holds what had arrived, followed by what was
    // there before, and is not valid.
    void LosePower();

  private:
    bool hasTwoBanks_;
    std::vector<std::uint8_t> bytes_;
    std::optional<std::vector<std::uint8_t>> image_;
    bool isValid_ = true;
};

}  // namespace lab
