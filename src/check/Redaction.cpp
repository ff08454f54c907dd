#include "check/Redaction.h"

#include "check/Words.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace check {
namespace {

constexpr std::string_view kHidden = "...";
constexpr std::string_view kInteractiveUser = "Interactive User";
// The SIDs of accounts that somebody has made: of a machine or a domain, and of a cloud's directory.
constexpr std::array<std::string_view, 2> kSidsOfPersons{"S-1-5-21-", "S-1-12-1-"};
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

std::string WithoutSids(std::string_view text) {
    std::string result(text);
    for (const std::string_view beginning : kSidsOfPersons) {
        for (std::size_t found = result.find(beginning); found != std::string::npos;
             found = result.find(beginning, found + kHidden.size())) {
            const std::size_t end = result.find_first_not_of("0123456789-", found + beginning.size());
            result.replace(found, std::min(end, result.size()) - found, kHidden);
        }
    }
    return result;
}

// Where the value of an event's named datum stands, and how long it is; nothing when there is none.
std::optional<std::pair<std::size_t, std::size_t>> DatumIn(std::string_view xml, const std::string& name) {
    for (const char quote : {'\'', '"'}) {
        const std::string beginning = "<Data Name=" + (quote + name) + quote + ">";
        const std::size_t found = xml.find(beginning);
        if (found != std::string_view::npos) {
            const std::size_t place = found + beginning.size();
            return std::pair(place, std::min(xml.find('<', place), xml.size()) - place);
        }
    }
    return std::nullopt;
}

std::string Datum(std::string_view xml, const std::string& name) {
    const auto datum = DatumIn(xml, name);
    return datum ? std::string(xml.substr(datum->first, datum->second)) : std::string();
}

void HideDatum(std::string& xml, const std::string& name, std::string_view instead) {
    if (const auto datum = DatumIn(xml, name)) {
        xml.replace(datum->first, datum->second, instead);
    }
}

bool IsOfPerson(std::string_view sid) {
    return std::any_of(kSidsOfPersons.begin(), kSidsOfPersons.end(),
                       [sid](std::string_view beginning) { return sid.starts_with(beginning); });
}

bool IsOfWord(char character) {
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'z') ||
           (character >= 'A' && character <= 'Z') || character == '-' || character == '_';
}

void HideIn(Writing& accounts) {
    if (accounts) {
        std::transform(accounts->begin(), accounts->end(), accounts->begin(), WithoutPerson);
    }
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
    std::string& runAs = machine.toastController.runAs;
    runAs = runAs.empty() || EqualsIgnoringCase(runAs, kInteractiveUser) ? runAs : WithoutPerson(runAs);
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
    // COM's refusals name a domain, a user and a SID.
    if (IsOfPerson(Datum(text, "param8"))) {
        HideDatum(text, "param6", kHidden);
        HideDatum(text, "param7", kHidden);
    }
    // A service that was installed names its account.
    if (const std::string account = Datum(text, "AccountName"); !account.empty()) {
        HideDatum(text, "AccountName", WithoutPerson(account));
    }
    return WithoutUserNames(WithoutSids(text));
}

std::string WithoutWord(std::string_view text, std::string_view word) {
    std::string result;
    while (!text.empty()) {
        const bool begins = result.empty() || !IsOfWord(result.back());
        const bool ends = text.size() <= word.size() || !IsOfWord(text[word.size()]);
        if (!word.empty() && begins && ends && StartsIgnoringCase(text, word)) {
            result += kHidden;
            text.remove_prefix(word.size());
        } else {
            result += text.front();
            text.remove_prefix(1);
        }
    }
    return result;
}

}  // namespace check
