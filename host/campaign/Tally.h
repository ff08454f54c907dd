#pragma once

#include "host/campaign/Trial.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace campaign {

// What became of trials, counted.
class Tally {
  public:
    void Add(const TrialPlan& plan, const TrialEnd& end);

    [[nodiscard]] std::size_t Trials() const { return trials_; }
    // Of the trials in which each planned fault struck.
    [[nodiscard]] std::size_t AllMet() const { return allMet_; }
    // By how the last of the faulted updates ended, and by what became of the good one behind it.
    [[nodiscard]] const std::map<std::string, std::size_t>& Ends() const { return ends_; }
    [[nodiscard]] const std::map<std::string, std::size_t>& GoodUpdates() const { return goodUpdates_; }
    // By the names of what was allowed.
    [[nodiscard]] const std::map<std::string, std::size_t>& Allowed() const { return allowed_; }

  private:
    std::size_t trials_ = 0;
    std::size_t allMet_ = 0;
    std::map<std::string, std::size_t> ends_;
    std::map<std::string, std::size_t> goodUpdates_;
    std::map<std::string, std::size_t> allowed_;
};

// "none", "old", "image", or "wrong": valid-looking, and none of these.
[[nodiscard]] std::string_view FirmwareInWords(const lab::FirmwareVerdict& verdict);
// Words for how an update ended and what the camera has then.
[[nodiscard]] std::string InWords(const UpdateEnd& end);

}  // namespace campaign
