#include "lab/rig/contracts/ComLibrary.h"

#include <string>
#include <utility>

namespace lab::rig {
namespace {

constexpr std::string_view kNotAfterTheEnd = "nothing that COM gave is called after the last CoUninitialize";

}  // namespace

ComLibrary::ComLibrary(BreachReport report) : report_(std::move(report)) {}

void ComLibrary::Entered() {
    const std::lock_guard lock(mutex_);
    ++entries_[GetCurrentThreadId()];
    isGone_ = false;
}

void ComLibrary::Left() {
    const std::lock_guard lock(mutex_);
    const auto here = entries_.find(GetCurrentThreadId());
    if (here == entries_.end()) {
        return;
    }
    if (--here->second == 0) {
        entries_.erase(here);
    }
    isGone_ = entries_.empty() && kept_ == 0;
}

void ComLibrary::Kept() {
    const std::lock_guard lock(mutex_);
    ++kept_;
    isGone_ = false;
}

void ComLibrary::GivenBack() {
    const std::lock_guard lock(mutex_);
    if (kept_ > 0) {
        --kept_;
        isGone_ = entries_.empty() && kept_ == 0;
    }
}

bool ComLibrary::IsThere() const {
    const std::lock_guard lock(mutex_);
    return !isGone_;
}

bool ComLibrary::IsThereFor(std::string_view interfaceName, std::string_view method) const {
    const bool isThere = IsThere();
    if (!isThere) {
        report_(kNotAfterTheEnd, std::string(interfaceName) + "::" + std::string(method));
    }
    return isThere;
}

}  // namespace lab::rig
