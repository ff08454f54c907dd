#pragma once

#include "host/campaign/Crossing.h"
#include "host/campaign/VirtualTime.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace campaign {

// Knows the only request that the service may send to a camera in DFU mode next, with its fields and its
// data, and the moment for it, from the answers so far; and in the end the only result, the only lines and
// the only progress. Written from what the requests and answers mean, not from the service's code. Throws
// BrokenRule.
class DownloadJudge {
  public:
    explicit DownloadJudge(const VirtualTime& time) : time_(time) {}

    // A device is about to be opened; `image`, which outlives the download, is meant for it. Its DFU
    // interface has this number. A stale last error makes a short descriptor one that could not be read;
    // without it what has come of the descriptor counts.
    void BeginOpening(std::span<const std::uint8_t> image, std::uint8_t interfaceNumber, bool hasStaleError);
    void EndOpening(bool isOpened);
    void EndDownload(std::int32_t result, const std::string& log, const std::vector<std::int32_t>& progress);

    void OnCrossing(const Crossing& crossing);

    // The request that has to come next, by its name in the USB DFU 1.1 standard, and EMPTY for the DNLOAD
    // without data; empty when none may.
    [[nodiscard]] std::string_view Next() const;
    // Whether GETSTATUS has told dfuMANIFEST-WAIT-RESET.
    [[nodiscard]] bool SawTheEnd() const { return sawTheEnd_; }

  private:
    enum class Step {
        Nothing,
        DeviceDescriptor,
        ConfigurationHeader,
        Configuration,
        Setting,
        Opened,
        NotOpened,
        FirstState,
        Detach,
        SecondState,
        Probe,
        Block,
        BlockStatus,
        LastBlock,
        ManifestStatus,
        LastStatus,
        Over,
    };

    void CheckDescriptor(const Crossing& crossing, std::uint8_t type, std::size_t length) const;
    void CheckRequest(const Crossing& crossing, std::uint8_t type, std::uint8_t request, std::size_t value,
                      std::size_t length) const;
    void CheckStatusRequest(const Crossing& crossing) const;
    // Of a descriptor whose read has not failed.
    [[nodiscard]] bool CountsAsRead(const Crossing& crossing) const;
    void FollowOpening(const Crossing& crossing);
    void FollowDownload(const Crossing& crossing);
    void FollowBeforeBlocks(const Crossing& crossing);
    void FollowBlock(const Crossing& crossing);
    void FollowManifestation(const Crossing& crossing);
    void FollowStatus(const Crossing& crossing, std::uint8_t wanted, Step next);
    void BeginDownload();
    void BeginBlocks();
    void NextBlock();
    void TakeConfiguration(std::span<const std::uint8_t> configuration);
    [[nodiscard]] const char* OrderRule() const;
    // The update is over: the rule by which it is, and its lines, innermost first.
    void End(const char* why, std::int32_t result, std::initializer_list<std::string_view> lines);

    [[nodiscard]] std::size_t Offset() const { return block_ * transferSize_; }
    [[nodiscard]] std::size_t BlockLength() const;

    const VirtualTime& time_;
    Step step_ = Step::Nothing;
    const char* whyOver_ = "";
    std::span<const std::uint8_t> image_;
    std::uint8_t interfaceNumber_ = 0;
    bool hasStaleError_ = false;
    std::size_t transferSize_ = 0;
    std::uint64_t nextAtMs_ = 0;
    std::uint64_t giveUpAtMs_ = 0;
    std::size_t block_ = 0;
    std::int32_t result_ = 0;
    std::string log_;
    bool sawTheEnd_ = false;
};

}  // namespace campaign
