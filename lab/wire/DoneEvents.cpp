#include "lab/wire/DoneEvents.h"

#include <nlohmann/json.hpp>

namespace lab {

using nlohmann::json;

json DoneEvent(std::string_view command) {
    return {{"event", "done"}, {"command", command}, {"ok", true}};
}

json RefusedEvent(std::string_view command, std::string_view why) {
    return {{"event", "done"}, {"command", command}, {"ok", false}, {"why", why}};
}

}  // namespace lab
