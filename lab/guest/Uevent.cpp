#include "lab/guest/Uevent.h"

#include <algorithm>

namespace lab::guest {
namespace {

// The part in front of the next zero, which is taken off as well.
std::string_view TakePart(std::string_view& rest) {
    const std::size_t end = std::min(rest.find('\0'), rest.size());
    const std::string_view part = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return part;
}

}  // namespace

std::string_view Uevent::Field(std::string_view key) const {
    const auto found = fields.find(key);
    return found != fields.end() ? std::string_view(found->second) : std::string_view();
}

std::optional<Uevent> ParseUevent(std::string_view message) {
    if (TakePart(message).find('@') == std::string_view::npos) {
        return std::nullopt;
    }
    Uevent uevent;
    while (!message.empty()) {
        const std::string_view part = TakePart(message);
        const std::size_t equals = part.find('=');
        if (equals == std::string_view::npos) {
            return std::nullopt;
        }
        uevent.fields.emplace(part.substr(0, equals), part.substr(equals + 1));
    }
    return uevent;
}

}  // namespace lab::guest
