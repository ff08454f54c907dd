#pragma once

#include <string>
#include <vector>

namespace check {

// One file of a cabinet: its name there, ASCII, and where it lies.
struct CabinetEntry {
    std::string name;
    std::string path;
};

// Writes a cabinet file with Windows' own cabinet.dll. `folder` is one that this call may use for its own
// files, which it removes; both paths have to be shorter than 200 bytes of UTF-8. An empty text, or what
// failed.
[[nodiscard]] std::string WriteCabinet(const std::vector<CabinetEntry>& entries, const std::string& folder,
                                       const std::string& name);

}  // namespace check
