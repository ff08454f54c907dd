#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace lab::guest {

// Cuts a stream of bytes into lines.
class LineBuffer {
  public:
    // A longer line is cut off there: it is no message any more, and whoever reads it says so.
    static constexpr std::size_t kLongestLine = 1024 * 1024;

    void Append(std::string_view bytes);
    // The next whole line, without its end; nothing when there is none yet.
    [[nodiscard]] std::optional<std::string> Next();

  private:
    std::string lines_;  // whole ones, each with its end
    std::string last_;   // the one that has not ended yet
};

}  // namespace lab::guest
