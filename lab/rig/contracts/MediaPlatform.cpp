#include "lab/rig/contracts/MediaPlatform.h"

#include <mferror.h>

#include <utility>

namespace lab::rig {
namespace {

constexpr std::string_view kStartedFirst = "Media Foundation is used between MFStartup and MFShutdown";
constexpr std::string_view kNotStatic = "MFStartup is called by a pass, and never by a static constructor";

}  // namespace

MediaPlatform::MediaPlatform(BreachReport report) : report_(std::move(report)) {}

void MediaPlatform::FailStarts(unsigned count) {
    const std::lock_guard lock(mutex_);
    failures_ = count;
}

bool MediaPlatform::TakeFailure() {
    const std::lock_guard lock(mutex_);
    if (failures_ == 0) {
        return false;
    }
    --failures_;
    return true;
}

void MediaPlatform::Started(bool isPass) {
    {
        const std::lock_guard lock(mutex_);
        ++starts_;
    }
    if (!isPass) {
        report_(kNotStatic, "MFStartup");
    }
}

void MediaPlatform::ShutDown() {
    const std::lock_guard lock(mutex_);
    if (starts_ > 0) {
        --starts_;
    }
}

HRESULT MediaPlatform::Check(std::string_view call) const {
    {
        const std::lock_guard lock(mutex_);
        if (starts_ > 0) {
            return S_OK;
        }
    }
    report_(kStartedFirst, call);
    return MF_E_PLATFORM_NOT_INITIALIZED;
}

}  // namespace lab::rig
