#include "check/Redaction.h"

#include "check/Words.h"

#include <algorithm>
#include <array>

namespace check {
namespace {

constexpr std::string_view kHidden = "...";
constexpr std::array<std::string_view, 6> kOwnNames{"BUILTIN\\", "NT AUTHORITY\\", "NT SERVICE\\",
                                                    "Everyone",  "CREATOR ",       "LocalSystem"};

bool StartsIgnoringCase(std::string_view text, std::string_view beginning) {
    return text.size() >= beginning.size() && EqualsIgnoringCase(text.substr(0, beginning.size()), beginning);
}

// Replaces what stands between two texts, everywhere; what has no end goes to the end.
std::string WithoutBetween(std::string_view text, std::string_view beginning, std::string_view end) {
    std::string result;
    while (true) {
        const std::size_t found = text.find(beginning);
        if (found == std::string_view::npos) {
            return result + std::string(text);
        }
        result += text.substr(0, found + beginning.size());
        text.remove_prefix(found + beginning.size());
        text.remove_prefix(std::min(text.find(end), text.size()));
    }
}

void HideIn(std::vector<std::string>& accounts) {
    std::transform(accounts.begin(), accounts.end(), accounts.begin(), WithoutPerson);
}

}  // namespace

std::string WithoutUserNames(std::string_view text) {
    constexpr std::string_view kUsers = "\\Users\\";
    constexpr std::string_view kEnds = "\\/\"<>|\r\n";
    std::string result;
    while (!text.empty()) {
        if (!StartsIgnoringCase(text, kUsers)) {
            result += text.front();
            text.remove_prefix(1);
            continue;
        }
        result += text.substr(0, kUsers.size());
        text.remove_prefix(kUsers.size());
        text.remove_prefix(std::min(text.find_first_of(kEnds), text.size()));
        result += kHidden;
    }
    return result;
}

std::string WithoutPerson(const std::string& account) {
    const bool isOwn = std::any_of(kOwnNames.begin(), kOwnNames.end(), [&account](std::string_view name) {
        return StartsIgnoringCase(account, name);
    });
    return isOwn ? account : "another account";
}

MachineState WithoutPersons(MachineState machine) {
    ServiceState& service = machine.service;
    service.account = service.isInstalled ? WithoutPerson(service.account) : service.account;
    HideIn(service.programWriters);
    HideIn(service.folderWriters);
    HideIn(machine.toastController.programWriters);
    for (std::string* text :
         {&service.commandLine, &service.program, &service.startedInstead,
          &machine.toastController.commandLine, &machine.toastController.program, &machine.image.path}) {
        *text = WithoutUserNames(*text);
    }
    return machine;
}

std::string EventWithoutPersons(std::string_view xml) {
    std::string text = WithoutBetween(xml, "<Computer>", "<");
    text = WithoutBetween(text, "UserID='", "'");
    text = WithoutBetween(text, "UserID=\"", "\"");
    return WithoutUserNames(text);
}

}  // namespace check
