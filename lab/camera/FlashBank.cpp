#include "lab/camera/FlashBank.h"

#include "lab/camera/Checksum.h"

#include <algorithm>

namespace lab {

FlashBank::FlashBank(std::size_t pageSize) : pageSize_(std::max<std::size_t>(pageSize, 1)) {}

void FlashBank::ErasePage(std::size_t page, PageEnd end) {
    const std::size_t begin = std::min(page * pageSize_, cells_.size());
    const std::size_t done = end == PageEnd::Whole ? pageSize_ : (pageSize_ + 1) / 2;
    const std::size_t length = std::min(done, cells_.size() - begin);
    fits_.reset();
    std::fill_n(cells_.begin() + static_cast<std::ptrdiff_t>(begin), length, kErased);
}

void FlashBank::WritePage(std::size_t page, std::span<const std::uint8_t> data, PageEnd end) {
    const std::size_t begin = page * pageSize_;
    const auto done = data.first(end == PageEnd::Whole ? data.size() : (data.size() + 1) / 2);
    if (done.empty()) {
        return;
    }
    fits_.reset();
    cells_.resize(std::max(cells_.size(), begin + done.size()), kErased);
    std::copy(done.begin(), done.end(), cells_.begin() + static_cast<std::ptrdiff_t>(begin));
}

void FlashBank::WriteRecord(const Record& record, PageEnd end) {
    SetRecord(end == PageEnd::Whole ? record : Record{});
}

void FlashBank::Cut(std::size_t length) {
    if (length < cells_.size()) {
        fits_.reset();
        cells_.resize(length);
    }
}

std::vector<std::uint8_t> FlashBank::Overlaid(std::size_t page, std::size_t offset,
                                              std::span<const std::uint8_t> block) const {
    const std::size_t begin = page * pageSize_;
    const std::size_t first = std::max(begin, offset);
    const std::size_t last = std::min(begin + pageSize_, offset + block.size());
    const std::size_t held = std::min(cells_.size() - std::min(begin, cells_.size()), pageSize_);
    std::vector<std::uint8_t> content(std::max(held, last - begin), kErased);
    std::copy_n(cells_.begin() + static_cast<std::ptrdiff_t>(std::min(begin, cells_.size())), held,
                content.begin());
    std::copy_n(block.begin() + static_cast<std::ptrdiff_t>(first - offset), last - first,
                content.begin() + static_cast<std::ptrdiff_t>(first - begin));
    return content;
}

bool FlashBank::HasBeginning() const {
    const auto beginning = std::span(cells_).first(std::min((pageSize_ + 1) / 2, cells_.size()));
    return std::any_of(beginning.begin(), beginning.end(), [](std::uint8_t cell) { return cell != kErased; });
}

bool FlashBank::FitsItsRecord() const {
    if (!fits_) {
        fits_ = record_.isWritten && record_.length <= cells_.size() &&
                Checksum(std::span(cells_).first(record_.length)) == record_.checksum;
    }
    return *fits_;
}

void FlashBank::SetRecord(const Record& record) {
    record_ = record;
    fits_.reset();
}

}  // namespace lab
