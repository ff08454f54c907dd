#include "check/CheckArguments.h"

#include "check/Words.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <string_view>

namespace check {
namespace {

struct CommandWord {
    std::string_view word;
    Command command;
};

constexpr std::array kCommands{
    CommandWord{"status", Command::Status},
    CommandWord{"rehearse", Command::Rehearse},
    CommandWord{"windows", Command::Windows},
    CommandWord{"collect", Command::Collect},
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

// Whether a path may mean a device or a pipe: it goes past the drives, and names none behind that.
bool IsDeviceName(std::string path) {
    std::replace(path.begin(), path.end(), '/', '\\');
    if (path.starts_with("\\\\.")) {
        return true;
    }
    if (!path.starts_with("\\\\?") && !path.starts_with("\\??")) {
        return false;
    }
    const std::string_view rest = std::string_view(path).substr(std::min<std::size_t>(path.size(), 4));
    const bool isDrive = rest.size() >= 3 && std::isalpha(static_cast<unsigned char>(rest[0])) != 0 &&
                         rest.substr(1, 2) == ":\\";
    return !isDrive && !EqualsIgnoringCase(rest.substr(0, 4), "UNC\\");
}

// The command line, word by word.
class Reader {
  public:
    explicit Reader(const std::vector<std::string>& words) : words_(words) {}

    [[nodiscard]] CheckArguments Read() {
        for (; position_ < words_.size(); ++position_) {
            const std::string& word = words_[position_];
            if (word == "--help" || word == "-h" || word == "/?") {
                return With(Command::Help);
            }
            if (word == "--version") {
                return With(Command::Version);
            }
            if (word.starts_with('-')) {
                ReadOption(word);
            } else {
                ReadWord(word);
            }
        }
        if (arguments_.seconds && arguments_.command != Command::Collect) {
            throw UsageError("--seconds belongs to collect");
        }
        if (arguments_.command == Command::Collect && arguments_.cabinet.empty()) {
            throw UsageError("collect takes the name of the file to make, which ends in .cab");
        }
        if (arguments_.command == Command::Collect && arguments_.isJson) {
            throw UsageError("collect has no --json: the file holds one");
        }
        if (arguments_.blockSize && arguments_.command != Command::Rehearse) {
            throw UsageError("--block-size belongs to rehearse");
        }
        return arguments_;
    }

  private:
    [[nodiscard]] static CheckArguments With(Command command) {
        CheckArguments arguments;
        arguments.command = command;
        return arguments;
    }

    void ReadOption(const std::string& option) {
        if (option == "--json") {
            arguments_.isJson = true;
        } else if (option == "--block-size") {
            arguments_.blockSize = Number(option, 65535);
        } else if (option == "--seconds") {
            arguments_.seconds = Number(option, 86400);
        } else {
            throw UsageError("there is no option " + Quoted(option));
        }
    }

    void ReadWord(const std::string& word) {
        if (!hasCommand_) {
            const CommandWord* const command = CommandOf(word);
            if (command == nullptr) {
                throw UsageError("there is no command " + Quoted(word));
            }
            arguments_.command = command->command;
            hasCommand_ = true;
        } else if (arguments_.command == Command::Rehearse && !arguments_.image && !word.empty()) {
            if (IsDeviceName(word)) {
                throw UsageError("an image is a file, which this is not: " + Quoted(word));
            }
            arguments_.image = word;
        } else if (arguments_.command == Command::Collect && arguments_.cabinet.empty()) {
            if (word.size() < 4 || !EqualsIgnoringCase(word.substr(word.size() - 4), ".cab")) {
                throw UsageError("the file to make ends in .cab: " + Quoted(word));
            }
            if (IsDeviceName(word)) {
                throw UsageError("what is to be made is a file, which this is not: " + Quoted(word));
            }
            arguments_.cabinet = word;
        } else {
            throw UsageError("one word too many: " + Quoted(word));
        }
    }

    [[nodiscard]] std::uint32_t Number(const std::string& option, std::uint32_t most) {
        const std::string_view word = ++position_ < words_.size() ? std::string_view(words_[position_]) : "";
        std::uint32_t number = 0;
        const char* const end = word.data() + word.size();
        const auto [next, error] = std::from_chars(word.data(), end, number);
        if (word.empty() || error != std::errc{} || next != end || number == 0 || number > most) {
            throw UsageError(option + " takes a number from 1 to " + std::to_string(most));
        }
        return number;
    }

    const std::vector<std::string>& words_;
    std::size_t position_ = 0;
    CheckArguments arguments_;
    bool hasCommand_ = false;
};

}  // namespace

CheckArguments ReadArguments(const std::vector<std::string>& words) {
    return Reader(words).Read();
}

std::string UsageText() {
    return R"(usage: VeyraCameraDfuCheck [status] [--json]
       VeyraCameraDfuCheck rehearse [IMAGE] [--block-size BYTES] [--json]
       VeyraCameraDfuCheck windows [--json]
       VeyraCameraDfuCheck collect FILE.cab [--seconds N]

status    how this machine stands: the service, the update mode, the image, the
          toast controller, the cameras; whether the user would be asked at the
          next plug-in, and if not, what stops it (the default)
rehearse  what the service would do now, camera by camera and step by step, and
          how long the download would take; with the machine's image, or with
          IMAGE in its place
windows   what this Windows does where docs/windows.md expects something of it;
          what cannot be asked without changing something is said
collect   gathers what to send with a complaint in one cabinet file: the service's
          trace while you plug the camera in (elevated), for N seconds or until
          Enter; event log records, status, versions, device setup. No personal
          data; contents.txt in it says what is inside

--block-size BYTES  what the camera takes at once, if you know it

--json    for programs
--version this program's version

status, rehearse and windows change nothing. A camera is sent the command that
reads its version, and nothing else.

exit codes: 0 up to date, or no camera is present
            2 wrong usage
            3 the program failed
           10 an update would be offered; windows: something is different
           20 not ready: nobody would be asked
           30 ready, but a camera needs attention
)";
}

}  // namespace check
