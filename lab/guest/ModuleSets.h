#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace lab::guest {

// The kernel's modules that the image brings, uncompressed, in sets with names. The file "sets" beside them
// has a line for each: its name and the names of its modules' files, each behind those that it needs.
class ModuleSets {
  public:
    // Throws std::runtime_error when the file is not there.
    explicit ModuleSets(const std::filesystem::path& folder);

    // Loads all that is not loaded yet. Throws InvalidCommand when there is no such set, and
    // std::system_error, which names the module, when the kernel refuses one.
    void Load(std::string_view set) const;

  private:
    std::filesystem::path folder_;
    std::map<std::string, std::vector<std::string>, std::less<>> sets_;
};

}  // namespace lab::guest
