#pragma once

#include <windows.h>

#include <map>
#include <mutex>
#include <string_view>

#include "lab/rig/contracts/BreachReport.h"

namespace lab::rig {

// COM's code as Windows keeps it in the process: from the first CoInitializeEx until each has had its
// CoUninitialize and nothing keeps the multithreaded apartment. Then it unloads its servers, and a call on
// anything that came from them runs into nothing. Any thread.
class ComLibrary {
  public:
    explicit ComLibrary(BreachReport report);

    // A CoInitializeEx that succeeded, and a CoUninitialize. One on a thread that has none to end is ignored,
    // as there.
    void Entered();
    void Left();
    // CoIncrementMTAUsage and CoDecrementMTAUsage.
    void Kept();
    void GivenBack();

    [[nodiscard]] bool IsThere() const;
    // To be asked by each method of each object that the rig gives in COM's or Media Foundation's name: the
    // same, and tells the breach when it is not there.
    bool IsThereFor(std::string_view interfaceName, std::string_view method) const;

  private:
    const BreachReport report_;
    mutable std::mutex mutex_;
    std::map<DWORD, unsigned> entries_;  // by thread
    unsigned kept_ = 0;
    bool isGone_ = false;
};

}  // namespace lab::rig
