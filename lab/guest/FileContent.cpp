#include "lab/guest/FileContent.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "lab/guest/FileDescriptor.h"

namespace lab::guest {
namespace {

constexpr std::size_t kLongestAttribute = 4096;
constexpr std::string_view kBlanks = " \t\n";

}  // namespace

std::optional<std::string> FileContent(const std::filesystem::path& path, std::size_t most) {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) {
        return std::nullopt;
    }
    std::string content;
    std::array<char, 4096> buffer;
    while (content.size() < most) {
        const ssize_t length =
            read(file.Number(), buffer.data(), std::min(buffer.size(), most - content.size()));
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length < 0) {
            return std::nullopt;
        }
        if (length == 0) {
            break;
        }
        content.append(buffer.data(), static_cast<std::size_t>(length));
    }
    return content;
}

std::string Attribute(const std::filesystem::path& path) {
    const std::string content = FileContent(path, kLongestAttribute).value_or("");
    const std::size_t begin = content.find_first_not_of(kBlanks);
    if (begin == std::string::npos) {
        return {};
    }
    return content.substr(begin, content.find_last_not_of(kBlanks) - begin + 1);
}

}  // namespace lab::guest
