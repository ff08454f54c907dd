#include "check/CheckArguments.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace check {
namespace {

struct CommandWord {
    std::string_view word;
    Command command;
};

constexpr std::array kCommands{
    CommandWord{"status", Command::Status},
};

const CommandWord* CommandOf(std::string_view word) {
    const auto* const found = std::find_if(kCommands.begin(), kCommands.end(),
                                           [word](const CommandWord& each) { return each.word == word; });
    return found == kCommands.end() ? nullptr : found;
}

// Whatever stands there, in one line of the screen.
std::string Quoted(std::string_view word) {
    std::string quoted = "\"";
    for (const char character : word.substr(0, 80)) {
        quoted += static_cast<unsigned char>(character) < 0x20 ? '?' : character;
    }
    return quoted + "\"";
}

}  // namespace

CheckArguments ReadArguments(const std::vector<std::string>& words) {
    CheckArguments arguments;
    bool hasCommand = false;
    for (const std::string& word : words) {
        if (word == "--help" || word == "-h" || word == "/?") {
            arguments.command = Command::Help;
            return arguments;
        }
        if (word == "--version") {
            arguments.command = Command::Version;
            return arguments;
        }
        if (word == "--json") {
            arguments.isJson = true;
        } else if (word.starts_with('-')) {
            throw UsageError("there is no option " + Quoted(word));
        } else if (!hasCommand) {
            const CommandWord* const command = CommandOf(word);
            if (command == nullptr) {
                throw UsageError("there is no command " + Quoted(word));
            }
            arguments.command = command->command;
            hasCommand = true;
        } else {
            throw UsageError("one word too many: " + Quoted(word));
        }
    }
    return arguments;
}

std::string UsageText() {
    return R"(usage: VeyraCameraDfuCheck [status] [--json]

status    how this machine stands: the service, the update mode, the image, the
          toast controller, the cameras; whether the user would be asked at the
          next plug-in, and if not, what stops it (the default)

--json    for programs
--version this program's version

It changes nothing. A camera is sent the command that reads its version, and
nothing else.

exit codes: 0 up to date, or no camera is present
            2 wrong usage
            3 the program failed
           10 an update would be offered
           20 not ready: nobody would be asked
           30 ready, but a camera needs attention
)";
}

}  // namespace check
