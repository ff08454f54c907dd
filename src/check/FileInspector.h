#pragma once

#include "check/AccessList.h"

#include <cstdint>
#include <string>
#include <vector>

namespace check {

// Looks at files and folders from outside: what is there, who may change it. Reads nothing but their metadata
// and version resource, and changes nothing. Paths are UTF-8.
class FileInspector {
  public:
    [[nodiscard]] static bool IsFile(const std::string& path);
    // Of the version resource: "1.0.0.0". Empty when there is none.
    [[nodiscard]] static std::string VersionOf(const std::string& path);
    // Names of the accounts, besides Windows and the administrators, that may put another program in this
    // one's place, or for a folder, put something beside it. Empty, too, when Windows does not tell.
    [[nodiscard]] static std::vector<std::string> WritersOf(const std::string& path, Protected what);
};

}  // namespace check
