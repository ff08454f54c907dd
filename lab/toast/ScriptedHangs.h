#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

namespace lab::toast {

// The calls of IToastCntr, and of Unadvise, that a scenario wants to hang. All members may be called from
// every thread.
class ScriptedHangs {
  public:
    // One call of the method is to hang: the one behind the next `skip`, for that time (0: until Release()).
    // Replaces what was set for the method before.
    void Set(const std::string& method, unsigned skip, std::chrono::milliseconds time);

    // Called by a call of the method; returns at once unless it is the one that is to hang.
    void Pass(const std::string& method);

    // Lets whatever hangs go on, and forgets what was to hang.
    void Release();

  private:
    struct Hang {
        unsigned skip = 0;
        std::chrono::milliseconds time{0};
    };

    std::mutex mutex_;  // guards everything below
    std::condition_variable released_;
    std::map<std::string, Hang> hangs_;
    unsigned releases_ = 0;
};

}  // namespace lab::toast
