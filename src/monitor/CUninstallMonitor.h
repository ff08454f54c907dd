#pragma once

#include <windows.h>

#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>

// Removes the service from the machine once the cameras' driver package is gone: looks in the registry for an
// interface instance of the camera family, and when none is left asks the service to stop and has the service
// control tool stop and delete it. Driven by the service's device events; every operation takes the monitor's
// lock.
class CUninstallMonitor {
  public:
    // Asks the service to end its run. Called on the thread of Check, or on the watch thread, with the lock
    // held.
    using StopRequest = std::function<void()>;

    explicit CUninstallMonitor(StopRequest requestStop);
    // Waits for the watch thread and the two commands.
    ~CUninstallMonitor();

    CUninstallMonitor(const CUninstallMonitor&) = delete;
    CUninstallMonitor& operator=(const CUninstallMonitor&) = delete;

    // A camera interface was removed: scans, and either watches on or stops and deletes the service. Sleeps
    // one second first when no watch is running; the lock is held all the while. Raises std::system_error
    // when a thread cannot be started.
    void Check();

    // A device has arrived: stops watching. Waits for a Check in progress.
    void Stop();

    // 0 when an instance of the camera family is present; otherwise the HRESULT of the registry call that
    // failed, or 0x80630501 when no instance matches. The first instance that lacks its parameters ends the
    // scan with that failure. The keys it opens stay open for the life of the process.
    [[nodiscard]] HRESULT Scan() const;

  private:
    // The body of the watch thread.
    void Watch();
    // The caller holds the lock.
    void StartWatching();
    void WaitForChange(std::unique_lock<std::mutex>& guard);
    void StopAndDelete();

    std::shared_ptr<std::thread> watchThread_;
    std::mutex lock_;
    bool running_ = false;
    // Nothing ever opens it: arming the notification fails and the watch ends at once. Removal events drive
    // the monitor.
    HKEY watchedKey_ = nullptr;
    std::future<int> stopResult_;
    std::future<int> deleteResult_;

    StopRequest requestStop_;
    int watchThreads_ = 0;
    std::condition_variable watchThreadEnded_;
};
