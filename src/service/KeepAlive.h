#pragma once

#include "win32/UniqueHandle.h"

#include <windows.h>

#include <atomic>
#include <memory>

// Marks the service as alive between start and stop: one work item of the thread pool that does nothing but
// look at the stop flag once a second. The item shares this object, so it may outlive the service.
class KeepAlive {
  public:
    // Raises win32::Win32Error when the finished event cannot be created.
    KeepAlive();

    // Queues the work item. Raises win32::Win32Error when that fails.
    static void Start(const std::shared_ptr<KeepAlive>& keepAlive);

    // Makes the item end at its next look. Any thread.
    void RequestStop() { stopRequested_ = 1; }

    // Waits for the item's end without a time-out. Raises win32::Win32Error when the wait fails.
    void WaitUntilFinished() const;

  private:
    static DWORD WINAPI WorkItem(void* context);

    std::atomic<LONG> stopRequested_{0};
    win32::UniqueKernelHandle finished_;
};
