#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace lab {

// How far a page operation came: torn, power went in its middle, and only the first half of the page is done.
enum class PageEnd { Whole, Torn };

// One bank of the flash: cells, whose pages are erased to 0xFF and then written, and a page in front of them
// for the record by which the boot loader knows what they hold.
class FlashBank {
  public:
    static constexpr std::uint8_t kErased = 0xFF;

    // The record. Torn or erased it says nothing.
    struct Record {
        bool isWritten = false;
        std::uint32_t sequence = 0;  // of two banks the one with the higher is the newer
        std::size_t length = 0;      // bytes of the image
        std::uint32_t checksum = 0;  // of the image
    };

    // Bytes of a page; 0 counts as 1.
    explicit FlashBank(std::size_t pageSize);

    // As far as anything was ever written; what is behind is erased.
    [[nodiscard]] const std::vector<std::uint8_t>& Cells() const { return cells_; }
    [[nodiscard]] std::size_t PageSize() const { return pageSize_; }
    [[nodiscard]] const Record& CurrentRecord() const { return record_; }

    void ErasePage(std::size_t page, PageEnd end);
    // `data` is at most a page.
    void WritePage(std::size_t page, std::span<const std::uint8_t> data, PageEnd end);
    void EraseRecord() { SetRecord({}); }
    void WriteRecord(const Record& record, PageEnd end);
    // The cells from `length` on hold nothing that matters any more.
    void Cut(std::size_t length);

    // The content of a page with a block, which begins at the offset, over it; as far as either goes.
    [[nodiscard]] std::vector<std::uint8_t> Overlaid(std::size_t page, std::size_t offset,
                                                     std::span<const std::uint8_t> block) const;
    // Whether anything is written in the first half of the first page.
    [[nodiscard]] bool HasBeginning() const;
    // Whether the record is that of what the cells hold.
    [[nodiscard]] bool FitsItsRecord() const;

  private:
    void SetRecord(const Record& record);

    std::size_t pageSize_;
    std::vector<std::uint8_t> cells_;
    Record record_;
    mutable std::optional<bool> fits_;  // empty when cells or record have changed since it was looked at
};

}  // namespace lab
