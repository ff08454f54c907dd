#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace check {

// The texts of the service's numbered trace messages, as the package's trace-format files have them.
class TraceFormats {
  public:
    // Takes what a trace-format file says. What is none of its lines is passed over.
    void Read(std::string_view file);

    // How many messages are known.
    [[nodiscard]] std::size_t Count() const { return messages_.size(); }

    // A message in words: `group` is its GUID's text, lower case without braces, `payload` its arguments one
    // behind the other. One that no file describes, or whose payload ends too early, is told in its bytes.
    [[nodiscard]] std::string Text(const std::string& group, unsigned number,
                                   std::span<const std::uint8_t> payload) const;
    // The name of a group, or its GUID.
    [[nodiscard]] std::string NameOf(const std::string& group) const;

  private:
    struct Message {
        std::string text;
        std::vector<std::string> kinds;  // of its arguments
    };

    std::map<std::pair<std::string, unsigned>, Message> messages_;
    std::map<std::string, std::string> names_;
};

}  // namespace check
