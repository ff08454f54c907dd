#pragma once

#include <nlohmann/json_fwd.hpp>

namespace campaign {

// What a boot loader of the laboratory answers to a conversation, for whoever models it. `asked` has a
// "camera" in the words of the wire, and "requests", each with its time ("ms", which never falls), its
// "setup" packet and the "data" of the host in hexadecimal digits: class requests to the DFU interface, and
// SET_INTERFACE. Answers a list with the "end" of each, "ok", "stall" or "gone", and the "data" of those that
// ask for some; it ends when the device has left. Throws std::runtime_error or a JSON exception for what
// makes no sense.
[[nodiscard]] nlohmann::json AnswersOfBootLoader(const nlohmann::json& asked);

}  // namespace campaign
