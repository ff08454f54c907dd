#include "lab/camera/FlashMemory.h"

#include "lab/camera/Checksum.h"

#include <algorithm>
#include <utility>

namespace lab {
namespace {

constexpr std::size_t kInitialSize = 4096;

std::vector<std::uint8_t> InitialContent(const std::array<std::uint8_t, 4>& version) {
    std::vector<std::uint8_t> content(kInitialSize);
    for (std::size_t offset = 0; offset < content.size(); ++offset) {
        content[offset] = static_cast<std::uint8_t>(offset * 31 + 7);
    }
    for (std::size_t number = 0; number < version.size(); ++number) {
        content[FlashMemory::kVersionOffset + 3 - number] = version[number];
    }
    return content;
}

}  // namespace

FlashMemory::FlashMemory(const std::array<std::uint8_t, 4>& version, const FlashSettings& settings)
    : bootCheck_(settings.bootCheck),
      putsBack_(settings.putsBack),
      banks_(settings.hasTwoBanks ? 2 : 1, FlashBank(settings.pageSize)),
      target_(banks_.size() - 1),
      faults_(settings.faults) {
    FlashBank& bank = banks_[active_];
    const std::vector<std::uint8_t> content = InitialContent(version);
    for (std::size_t offset = 0; offset < content.size(); offset += bank.PageSize()) {
        const std::size_t length = std::min(bank.PageSize(), content.size() - offset);
        bank.WritePage(offset / bank.PageSize(), std::span(content).subspan(offset, length), PageEnd::Whole);
    }
    bank.WriteRecord({.isWritten = true,
                      .sequence = NextSequence(),
                      .length = content.size(),
                      .checksum = Checksum(content)},
                     PageEnd::Whole);
}

const std::vector<std::uint8_t>& FlashMemory::Bytes() const {
    return kept_ ? *kept_ : banks_[active_].Cells();
}

std::array<std::uint8_t, 4> FlashMemory::VersionBytes() const {
    const std::vector<std::uint8_t>& bytes = Bytes();
    std::array<std::uint8_t, 4> version{};
    for (std::size_t number = 0; number < version.size(); ++number) {
        if (kVersionOffset + number < bytes.size()) {
            version[number] = bytes[kVersionOffset + number];
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
    std::size_t bytes = kept_ ? kept_->capacity() : 0;
    for (const FlashBank& bank : banks_) {
        bytes += bank.Cells().capacity();
    }
    return bytes;
}

void FlashMemory::BeginImage() {
    if (!imageLength_ && putsBack_ && target_ == active_) {
        kept_ = Target().Cells();
        keptRecord_ = Target().CurrentRecord();
    }
    imageLength_ = 0;
    if (UsesRecord()) {
        EraseRecord();
    }
}

void FlashMemory::AppendToImage(std::span<const std::uint8_t> block) {
    PutIntoImage(imageLength_.value_or(0), block);
}

void FlashMemory::PutIntoImage(std::size_t offset, std::span<const std::uint8_t> block) {
    if (!imageLength_ || block.empty()) {
        return;
    }
    imageLength_ = std::max(*imageLength_, offset + block.size());
    const std::size_t pageSize = Target().PageSize();
    for (std::size_t page = offset / pageSize; page * pageSize < offset + block.size(); ++page) {
        const std::vector<std::uint8_t> content = Target().Overlaid(page, offset, block);
        ErasePage(page);
        WritePage(page, content);
    }
}

void FlashMemory::CommitImage() {
    if (!imageLength_) {
        return;
    }
    const std::size_t length = std::exchange(imageLength_, std::nullopt).value_or(0);
    if (UsesRecord()) {
        const auto image = std::span(Target().Cells()).first(std::min(length, Target().Cells().size()));
        WriteRecord(
            {.isWritten = true, .sequence = NextSequence(), .length = length, .checksum = Checksum(image)});
    }
    if (hasPower_) {
        Target().Cut(length);
        kept_.reset();
        active_ = target_;
        target_ = Other(active_);
    }
}

void FlashMemory::DiscardImage() {
    if (!imageLength_) {
        return;
    }
    if (kept_) {
        PutBack();
    } else if (target_ != active_ && !UsesRecord() && WouldStart(Target())) {
        ErasePage(0);
    }
    imageLength_.reset();
    if (hasPower_) {
        kept_.reset();
    }
}

void FlashMemory::LosePower() {
    hasPower_ = true;
    imageLength_.reset();
    kept_.reset();
    active_ = BankToStart().value_or(active_);
    target_ = Other(active_);
    FlashBank& bank = banks_[active_];
    if (UsesRecord() && bank.FitsItsRecord()) {
        bank.Cut(bank.CurrentRecord().length);
    }
}

void FlashMemory::ErasePage(std::size_t page) {
    Operate(Fault::Where::FlashErase, [&](PageEnd end) {
        Target().ErasePage(page, end);
        if (page == 0 && !UsesRecord()) {
            Target().EraseRecord();
        }
    });
}

void FlashMemory::WritePage(std::size_t page, std::span<const std::uint8_t> data) {
    Operate(Fault::Where::FlashWrite, [&](PageEnd end) {
        Target().WritePage(page, data, end);
        // Its header, by which the newer of two banks is known, stands in its first half.
        if (page == 0 && !UsesRecord()) {
            Target().WriteRecord({.isWritten = true, .sequence = NextSequence()}, PageEnd::Whole);
        }
    });
}

void FlashMemory::EraseRecord() {
    Operate(Fault::Where::FlashErase, [&](PageEnd) { Target().EraseRecord(); });
}

void FlashMemory::WriteRecord(const FlashBank::Record& record) {
    Operate(Fault::Where::FlashWrite, [&](PageEnd end) { Target().WriteRecord(record, end); });
}

template <typename Operation>
void FlashMemory::Operate(Fault::Where where, const Operation& operation) {
    if (!hasPower_) {
        return;
    }
    ++(where == Fault::Where::FlashErase ? operations_.erased : operations_.written);
    const std::vector<Fault> faults = faults_.Strike(where);
    if (faults.empty()) {
        operation(PageEnd::Whole);
        return;
    }
    const Fault::Moment moment = faults.front().moment;
    if (moment != Fault::Moment::Before) {
        operation(moment == Fault::Moment::Middle ? PageEnd::Torn : PageEnd::Whole);
    }
    hasPower_ = false;
}

// The pages of the image, with what they had; then the record.
void FlashMemory::PutBack() {
    const std::size_t pageSize = Target().PageSize();
    const std::span<const std::uint8_t> before(*kept_);
    for (std::size_t begin = 0; begin < *imageLength_; begin += pageSize) {
        ErasePage(begin / pageSize);
        if (begin < before.size()) {
            WritePage(begin / pageSize, before.subspan(begin, std::min(pageSize, before.size() - begin)));
        }
    }
    if (hasPower_) {
        Target().Cut(before.size());
    }
    if (UsesRecord() && keptRecord_.isWritten) {
        WriteRecord(keptRecord_);
    }
}

std::optional<std::size_t> FlashMemory::BankToStart() const {
    std::optional<std::size_t> newest;
    for (std::size_t bank = 0; bank < banks_.size(); ++bank) {
        const bool isNewer =
            !newest || banks_[bank].CurrentRecord().sequence > banks_[*newest].CurrentRecord().sequence;
        if (WouldStart(banks_[bank]) && isNewer) {
            newest = bank;
        }
    }
    return newest;
}

bool FlashMemory::WouldStart(const FlashBank& bank) const {
    return UsesRecord() ? bank.FitsItsRecord() : bank.HasBeginning();
}

std::uint32_t FlashMemory::NextSequence() const {
    std::uint32_t sequence = 0;
    for (const FlashBank& bank : banks_) {
        sequence = std::max(sequence, bank.CurrentRecord().sequence);
    }
    return sequence + 1;
}

}  // namespace lab
