#pragma once

#include "lab/camera/DfuTraits.h"
#include "lab/camera/Fault.h"
#include "lab/camera/FaultPlan.h"
#include "lab/camera/FlashBank.h"
#include "lab/camera/PageOperations.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace lab {

// What the flash is like, and what goes wrong in it: of the faults those whose place is a page operation.
struct FlashSettings {
    // A download goes to the bank that is not in use.
    bool hasTwoBanks = false;
    std::size_t pageSize = 1024;
    DfuTraits::BootCheck bootCheck = DfuTraits::BootCheck::Record;
    bool putsBack = true;
    std::vector<Fault> faults = {};
};

// The camera's firmware storage. A download writes its blocks into the pages of a bank as they come, each
// page erased and then written; a page that a block fills in part keeps the rest. CommitImage() makes the
// image the flash's content. Power may go at each page operation; from then on nothing is done until
// LosePower().
//
// The operations of a download, in order: with BootCheck::Record the bank's record is erased; for each block
// each of its pages is erased and written; with BootCheck::Record the record is written.
class FlashMemory {
  public:
    static constexpr std::size_t kVersionOffset = 398;

    // A deterministic pattern of 4096 bytes with the version (most significant number first) in it.
    explicit FlashMemory(const std::array<std::uint8_t, 4>& version, const FlashSettings& settings = {});

    // The content. While an image is under way it is what was there before, or, in a single bank that does
    // not put back, what the cells hold.
    [[nodiscard]] const std::vector<std::uint8_t>& Bytes() const;
    // Whether the boot loader would find firmware that it starts, if power went now.
    [[nodiscard]] bool IsValid() const { return BankToStart().has_value(); }
    // The four bytes at kVersionOffset, in the order of the flash: least significant first. Bytes that the
    // flash does not have are 0.
    [[nodiscard]] std::array<std::uint8_t, 4> VersionBytes() const;
    // "5.10.2.0"
    [[nodiscard]] std::string VersionText() const;

    // Bytes of this process's memory that the contents take.
    [[nodiscard]] std::size_t HeldBytes() const;

    // Begins an empty image; an image that was under way is dropped, and not put back.
    void BeginImage();
    // Appends to the image that was begun.
    void AppendToImage(std::span<const std::uint8_t> block);
    // Writes into the image that was begun, which grows as far as it has to.
    void PutIntoImage(std::size_t offset, std::span<const std::uint8_t> block);
    // The image becomes the flash's content, with its length.
    void CommitImage();
    // Drops the image, if there is one. What it has overwritten is put back, page by page, by a flash that
    // does so; of a second bank nothing is left that would be started.
    void DiscardImage();

    // Since it was made.
    [[nodiscard]] const PageOperations& Operations() const { return operations_; }
    // Whether power went at a page operation.
    [[nodiscard]] bool HasLostPower() const { return !hasPower_; }
    // Power is gone, whenever it was, and comes back: there is what the cells hold, in the bank that the boot
    // loader starts, or in the one that was in use.
    void LosePower();
    // Of the faults that are here, how many have struck.
    [[nodiscard]] std::size_t FaultsMet() const { return faults_.Met(); }
    // Other faults in place of those that were; their counting begins.
    void SetFaults(const std::vector<Fault>& faults) { faults_ = FaultPlan(faults); }

  private:
    // One after the other, as far as there is power.
    void ErasePage(std::size_t page);
    void WritePage(std::size_t page, std::span<const std::uint8_t> data);
    void EraseRecord();
    void WriteRecord(const FlashBank::Record& record);
    template <typename Operation>
    void Operate(Fault::Where where, const Operation& operation);

    void PutBack();
    [[nodiscard]] std::optional<std::size_t> BankToStart() const;
    [[nodiscard]] bool WouldStart(const FlashBank& bank) const;
    [[nodiscard]] std::uint32_t NextSequence() const;
    [[nodiscard]] bool UsesRecord() const { return bootCheck_ == DfuTraits::BootCheck::Record; }
    // The one that a download goes to while this one is in use: itself when there is no other.
    [[nodiscard]] std::size_t Other(std::size_t bank) const { return banks_.size() == 1 ? bank : 1 - bank; }
    // The bank of the image under way.
    [[nodiscard]] FlashBank& Target() { return banks_[target_]; }

    DfuTraits::BootCheck bootCheck_;
    bool putsBack_;
    std::vector<FlashBank> banks_;
    std::size_t active_ = 0;                         // the bank in use
    std::size_t target_ = 0;                         // the bank that downloads go to
    std::optional<std::size_t> imageLength_;         // of the image under way
    std::optional<std::vector<std::uint8_t>> kept_;  // what an image in a single bank overwrites
    FlashBank::Record keptRecord_;
    bool hasPower_ = true;
    PageOperations operations_;
    FaultPlan faults_;
};

}  // namespace lab
