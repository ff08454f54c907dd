#pragma once

#include "check/CabinetWriter.h"
#include "check/EndSignal.h"
#include "check/TraceFormats.h"
#include "win32/UniqueHandle.h"

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace check {

// What a complaint should come with, in one cabinet file: the service's trace while it is recorded, event log
// records, what "status" says, versions, the setup log's lines of the vendor's devices. It is made in a
// folder of its own, which goes with the object, but for a cabinet that could not be put in its place. One at
// a time on a machine.
class Collection {
  public:
    // `cabinet` is the file to make, UTF-8. Throws UsageError when there is one already, or no such folder,
    // or nothing can be written there; std::runtime_error while another one is at work.
    explicit Collection(std::string cabinet);
    ~Collection();

    Collection(const Collection&) = delete;
    Collection& operator=(const Collection&) = delete;

    // Records for so many seconds, or until Enter, the end of the input or Ctrl+C; tells each message on
    // standard output as it comes. Then collects the rest and writes the cabinet. What could not be had is
    // said in the cabinet's own list of contents, and is no failure. An empty text, or what failed; it gives
    // up after the step at which the console closes, or Ctrl+C comes once the recording is over.
    [[nodiscard]] std::string Make(std::optional<std::uint32_t> seconds, std::string_view programVersion);

  private:
    void RecordTrace(std::optional<std::uint32_t> seconds);
    void AddEventRecords();
    void AddSetupLogs();
    void Add(const std::string& name, const std::string& content, const std::string& about);
    void LeaveOut(const std::string& name, const std::string& why);
    [[nodiscard]] std::wstring PathOf(const std::string& name) const;

    // Told last of all: Windows may end the process then.
    EndSignal end_;
    win32::UniqueKernelHandle onlyOne_;
    std::string cabinet_;
    std::vector<std::string> names_;  // to take out of all that is collected
    std::wstring folder_;
    bool isKept_ = false;  // the cabinet, and so the folder
    std::vector<CabinetEntry> entries_;
    std::string contents_;
};

}  // namespace check
