#pragma once

#include "check/CabinetWriter.h"
#include "check/ConsoleEnd.h"
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
// folder of its own, which goes with the object.
class Collection {
  public:
    // `cabinet` is the file to make, UTF-8. Throws UsageError when there is one already, or no such folder,
    // or nothing can be written there; std::runtime_error when another collection is at work on this machine.
    explicit Collection(std::string cabinet);
    ~Collection();

    Collection(const Collection&) = delete;
    Collection& operator=(const Collection&) = delete;

    // Records for so many seconds, or until Enter, the end of the input or Ctrl+C; tells each message on
    // standard output as it comes. Then collects the rest and writes the cabinet. What could not be had is
    // said in the cabinet's own list of contents, and is no failure. An empty text, or what failed: the
    // closing of the console, too, after which Windows leaves no time for more than tidying up.
    [[nodiscard]] std::string Make(std::optional<std::uint32_t> seconds, std::string_view programVersion);

  private:
    // False when the console was closed.
    [[nodiscard]] bool RecordTrace(std::optional<std::uint32_t> seconds);
    void Add(const std::string& name, const std::string& content, const std::string& about);
    void LeaveOut(const std::string& name, const std::string& why);
    [[nodiscard]] std::wstring PathOf(const std::string& name) const;

    ConsoleEnd consoleEnd_;  // before whatever has to be tidied up
    std::string cabinet_;
    win32::UniqueKernelHandle onlyOne_;
    std::wstring folder_;
    std::vector<CabinetEntry> entries_;
    std::string contents_;
    bool keepsCabinet_ = false;  // it could not be put where it was wanted
};

}  // namespace check
