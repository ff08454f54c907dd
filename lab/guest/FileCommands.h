#pragma once

#include <cstddef>
#include <filesystem>

#include "lab/guest/CommandTable.h"
#include "lab/guest/Places.h"

namespace lab::guest {

// The commands about files in one folder, for what a program of the image is given and what it leaves:
// "write-file", "read-file" and "remove-file". docs/laboratory.md lists their fields. A file is moved in
// pieces, since a line of the port has an end.
class FileCommands {
  public:
    static constexpr std::size_t kMostPieceBytes = std::size_t{256} * 1024;
    static constexpr std::size_t kMostFileBytes = std::size_t{16} * 1024 * 1024;

    explicit FileCommands(const Places& places) : folder_(places.files) {}
    FileCommands(const FileCommands&) = delete;
    FileCommands& operator=(const FileCommands&) = delete;

    // The table's handlers live no longer than this object.
    void AddTo(CommandTable& table);

  private:
    [[nodiscard]] nlohmann::json Write(const Command& command) const;
    [[nodiscard]] nlohmann::json Read(const Command& command) const;
    [[nodiscard]] nlohmann::json Remove(const Command& command) const;
    // A file of the folder by its name. Throws InvalidCommand for what is none: "a/b", "..", "".
    [[nodiscard]] std::filesystem::path FileOf(const Command& command) const;

    std::filesystem::path folder_;
};

}  // namespace lab::guest
