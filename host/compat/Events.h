#pragma once

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace host {

// The events of this process and their handles. All handles that were made with one name are of one event,
// which is there until the last of them is closed. May be used from any thread.
class Events {
  public:
    // Those that the functions of Windows are about.
    [[nodiscard]] static Events& OfProcess();

    // A handle of its own each time. `name` may be null; an event that is there already stays as it is.
    [[nodiscard]] HANDLE Create(bool isResetByHand, bool isSignalled, const wchar_t* name);
    // Each of these does nothing and returns false or nothing when there is no such handle.
    bool Close(HANDLE handle);
    bool Signal(HANDLE handle, bool isSignalled);
    // Whether the event was signalled within the time. An event that resets by hand stays so, another is
    // reset by the wait that it ends.
    [[nodiscard]] std::optional<bool> Wait(HANDLE handle, std::chrono::milliseconds patience);

    // Open handles.
    [[nodiscard]] std::size_t Handles();
    // What the end of a process does to its handles.
    void CloseAll();

  private:
    struct Event {
        bool isResetByHand = false;
        bool isSignalled = false;
    };

    [[nodiscard]] std::shared_ptr<Event> Find(HANDLE handle) const;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::map<HANDLE, std::shared_ptr<Event>> handles_;
    std::map<std::wstring, std::weak_ptr<Event>> named_;
    std::uintptr_t lastHandle_ = 0;
};

}  // namespace host
