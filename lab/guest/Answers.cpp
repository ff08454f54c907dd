#include "lab/guest/Answers.h"

#include <nlohmann/json.hpp>

#include "lab/guest/KernelError.h"

namespace lab::guest {

using nlohmann::json;

json DoneAnswer(std::string_view command, const json& fields) {
    json answer{{"event", "done"}, {"command", command}, {"ok", true}};
    answer.update(fields);
    return answer;
}

json KernelRefusedAnswer(std::string_view command, const std::system_error& error) {
    return DoneAnswer(command, {{"errno", ErrorName(error.code().value())}, {"why", error.what()}});
}

json RefusedAnswer(std::string_view command, std::string_view why) {
    return {{"event", "done"}, {"command", command}, {"ok", false}, {"why", why}};
}

}  // namespace lab::guest
