#pragma once

#include <windows.h>

#include <mutex>
#include <string_view>

#include "lab/rig/contracts/BreachReport.h"

namespace lab::rig {

// Media Foundation's platform as Windows keeps it, for the process: up from the first MFStartup until every
// one has had its MFShutdown. Any thread.
class MediaPlatform {
  public:
    explicit MediaPlatform(BreachReport report);

    // The next so many starts fail.
    void FailStarts(unsigned count);
    // MFStartup: whether it is to fail, and that it has succeeded. `isPass`: the caller handles a
    // control, or the program is no service.
    [[nodiscard]] bool TakeFailure();
    void Started(bool isPass);
    // MFShutdown. Without its start it is ignored.
    void ShutDown();

    // S_OK while the platform is up; MF_E_PLATFORM_NOT_INITIALIZED otherwise, and the breach is told.
    [[nodiscard]] HRESULT Check(std::string_view call) const;

  private:
    const BreachReport report_;
    mutable std::mutex mutex_;
    unsigned starts_ = 0;
    unsigned failures_ = 0;
};

}  // namespace lab::rig
