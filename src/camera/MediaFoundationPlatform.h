#pragma once

#include <windows.h>

// Media Foundation's platform, without which it lists no camera and opens none. Once started it stays up
// until the process ends: a camera that waits for its user's answer holds a source, which must not outlive
// the platform. For one thread.
class MediaFoundationPlatform {
  public:
    // Starts the platform unless that was done before. What MFStartup answered; after a failure the next call
    // tries again.
    [[nodiscard]] HRESULT EnsureStarted();

  private:
    bool isStarted_ = false;
};
