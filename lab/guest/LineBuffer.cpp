#include "lab/guest/LineBuffer.h"

#include <algorithm>

namespace lab::guest {

void LineBuffer::Append(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t end = std::min(bytes.find('\n'), bytes.size());
        last_.append(bytes.substr(0, std::min(end, kLongestLine - last_.size())));
        if (end == bytes.size()) {
            return;
        }
        lines_ += last_;
        lines_ += '\n';
        last_.clear();
        bytes.remove_prefix(end + 1);
    }
}

std::optional<std::string> LineBuffer::Next() {
    const std::size_t end = lines_.find('\n');
    if (end == std::string::npos) {
        return std::nullopt;
    }
    std::string line = lines_.substr(0, end);
    lines_.erase(0, end + 1);
    return line;
}

}  // namespace lab::guest
