#pragma once

#include <windows.h>

#include <map>
#include <mutex>
#include <string>

namespace lab::toast {

// The methods of IToastCntr that a scenario wants to fail. All members may be called from every thread.
class ScriptedFailures {
  public:
    // From now on the method returns `result`; S_OK ends the failure. False when there is no method of that
    // name.
    [[nodiscard]] bool Set(const std::string& method, HRESULT result);

    // No method fails any more.
    void Clear();

    // Whether there is a method of that name.
    [[nodiscard]] bool Knows(const std::string& method) const;

    // What the method is to return.
    [[nodiscard]] HRESULT ResultOf(const std::string& method) const;

  private:
    mutable std::mutex mutex_;
    std::map<std::string, HRESULT> results_{
        {"ShowUpdatePrompt", S_OK}, {"NotifyProgress", S_OK}, {"NotifyComplete", S_OK}};
};

}  // namespace lab::toast
