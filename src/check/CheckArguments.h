#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace check {

enum class Command { Help, Version, Status, Rehearse, Windows, Collect };

// What the command line asks for.
struct CheckArguments {
    Command command = Command::Status;
    bool isJson = false;
    std::optional<std::string> image;        // that a rehearsal takes instead of the machine's
    std::string cabinet;                     // that a collection makes
    std::optional<std::uint32_t> seconds;    // of its recording, 1 to 86400
    std::optional<std::uint32_t> blockSize;  // bytes, 1 to 65535
};

// A command line that makes no sense; what() says why in one line.
class UsageError : public std::exception {
  public:
    explicit UsageError(std::string why) : why_(std::move(why)) {}
    [[nodiscard]] const char* what() const noexcept override { return why_.c_str(); }

  private:
    std::string why_;
};

// Reads the words behind the program's name, UTF-8. Throws UsageError.
[[nodiscard]] CheckArguments ReadArguments(const std::vector<std::string>& words);

// The text of --help.
[[nodiscard]] std::string UsageText();

}  // namespace check
