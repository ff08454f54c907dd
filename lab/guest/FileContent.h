#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace lab::guest {

// At most the first `most` bytes of a file; nothing when it cannot be opened or read. Files of sysfs tell no
// size.
[[nodiscard]] std::optional<std::string> FileContent(const std::filesystem::path& path, std::size_t most);

// An attribute of sysfs: a line, without its end and the blanks around it; empty when it is not there.
[[nodiscard]] std::string Attribute(const std::filesystem::path& path);

}  // namespace lab::guest
