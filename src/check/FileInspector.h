#pragma once

#include "check/AccessList.h"
#include "check/MachineState.h"

#include <cstdint>
#include <string>

namespace check {

// Looks at files and folders from outside: what is there, who may change it. Reads nothing but their metadata
// and version resource, and changes nothing. Paths are UTF-8.
class FileInspector {
  public:
    [[nodiscard]] static bool IsFile(const std::string& path);
    // Why it cannot be told whether there is something of this name: a Win32 code, 0 when it can be told.
    [[nodiscard]] static std::uint32_t ErrorOf(const std::string& path);
    // Of the version resource: "1.0.0.0". Empty when there is none.
    [[nodiscard]] static std::string VersionOf(const std::string& path);
    // Names of the accounts, besides Windows and the administrators, that may put another program in this
    // one's place, or for a folder, put something beside it.
    [[nodiscard]] static WritersState WritersOf(const std::string& path, Protected what);
};

}  // namespace check
