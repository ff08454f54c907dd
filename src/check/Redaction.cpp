#include "check/Redaction.h"

#include "check/Words.h"

#include <algorithm>
#include <array>

namespace check {
namespace {

constexpr std::string_view kHidden = "...";
constexpr std::string_view kInteractiveUser = "Interactive User";
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

bool IsPartOfName(char character) {
    return character == '-' || character == '_' || (character >= '0' && character <= '9') ||
           (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
}

// Whether a name stands before an account or as a server's: "PC\anna", "\\PC\share". In C:\PC\x it does not.
bool IsBeforeBackslash(std::string_view text, std::size_t position, std::size_t size) {
    constexpr std::string_view kOfPath = "\\/:.";
    const std::string_view before = text.substr(0, position);
    return text.substr(position + size).starts_with('\\') &&
           (before.empty() || before.ends_with("\\\\") ||
            kOfPath.find(before.back()) == std::string_view::npos);
}

bool IsNameAt(std::string_view text, std::size_t position, std::string_view name) {
    constexpr std::size_t kShort = 2;
    const std::string_view rest = text.substr(position);
    return !name.empty() && StartsIgnoringCase(rest, name) &&
           (position == 0 || !IsPartOfName(text[position - 1])) &&
           (rest.size() == name.size() || !IsPartOfName(rest[name.size()])) &&
           (name.size() > kShort || IsBeforeBackslash(text, position, name.size()));
}

// The size of the longest of the names that stands for itself there; 0 when none does.
std::size_t NameAt(std::string_view text, std::size_t position, const std::vector<std::string>& names) {
    std::size_t longest = 0;
    for (const std::string& name : names) {
        if (name.size() > longest && IsNameAt(text, position, name)) {
            longest = name.size();
        }
    }
    return longest;
}

enum class Form { Plain, Xml };

// The names, and the user's behind one, but not the rest of a path with a folder of that name; in XML, those
// between the tags.
std::string WithoutNames(std::string_view text, const std::vector<std::string>& names, Form form) {
    std::string result;
    bool isInTag = false;
    for (std::size_t position = 0; position < text.size();) {
        if (const std::size_t size = isInTag ? 0 : NameAt(text, position, names); size > 0) {
            const bool isBeforeAccount = IsBeforeBackslash(text, position, size);
            result += kHidden;
            position += size;
            if (isBeforeAccount) {
                position = std::min(text.find_first_of("/\"<>|,; \r\n", position), text.size());
            }
            continue;
        }
        const char character = text[position];
        isInTag = form == Form::Xml && (character == '<' || (isInTag && character != '>'));
        result += character;
        ++position;
    }
    return result;
}

// SIDs of accounts of a computer, of a domain and of a directory in the cloud; not those that each Windows
// has.
std::string WithoutSids(std::string_view text) {
    constexpr std::array<std::string_view, 2> kBeginnings{"S-1-5-21-", "S-1-12-1-"};
    std::string result;
    while (!text.empty()) {
        if (std::none_of(kBeginnings.begin(), kBeginnings.end(),
                         [text](std::string_view each) { return StartsIgnoringCase(text, each); })) {
            result += text.front();
            text.remove_prefix(1);
            continue;
        }
        result += kHidden;
        text.remove_prefix(std::min(text.find_first_not_of("-0123456789", 1), text.size()));
    }
    return result;
}

// The values of an event's data of this name. Windows quotes the name in one way or the other.
std::string DataOf(std::string_view xml, std::string_view name) {
    for (const char quote : {'\'', '"'}) {
        const std::string tag = std::string("<Data Name=") + quote + std::string(name) + quote + ">";
        if (const std::size_t found = xml.find(tag); found != std::string_view::npos) {
            const std::string_view value = xml.substr(found + tag.size());
            return std::string(value.substr(0, value.find('<')));
        }
    }
    return {};
}

std::string WithoutData(const std::string& xml, std::string_view name) {
    const std::string beginning = "<Data Name=";
    const std::string text = WithoutBetween(xml, beginning + "'" + std::string(name) + "'>", "<");
    return WithoutBetween(text, beginning + "\"" + std::string(name) + "\">", "<");
}

bool IsEvent(std::string_view xml, std::string_view id) {
    const std::size_t begin = xml.find("<EventID");
    const std::size_t end = begin == std::string_view::npos ? begin : xml.find('>', begin);
    return end != std::string_view::npos && xml.substr(end + 1).starts_with(std::string(id) + "<");
}

// Of a refused start, domain, name and SID of the account; of a new service, the account.
std::string WithoutAccounts(const std::string& xml) {
    if (IsEvent(xml, "10016")) {
        const std::string sid = DataOf(xml, "param8");
        const bool isOwn = sid == "S-1-5-18" || sid == "S-1-5-19" || sid == "S-1-5-20";
        return isOwn ? xml : WithoutData(WithoutData(WithoutData(xml, "param6"), "param7"), "param8");
    }
    if (IsEvent(xml, "7045") && WithoutPerson(DataOf(xml, "AccountName")) != DataOf(xml, "AccountName")) {
        return WithoutData(xml, "AccountName");
    }
    return xml;
}

void HideIn(WritersState& writers) {
    std::transform(writers.names.begin(), writers.names.end(), writers.names.begin(), WithoutPerson);
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

std::string WithoutTraces(std::string_view text, const std::vector<std::string>& names) {
    return WithoutUserNames(WithoutNames(WithoutSids(text), names, Form::Plain));
}

MachineState WithoutPersons(MachineState machine, const std::vector<std::string>& names) {
    ServiceState& service = machine.service;
    service.account = service.isInstalled ? WithoutPerson(service.account) : service.account;
    HideIn(service.programWriters);
    HideIn(service.folderWriters);
    HideIn(machine.toastController.programWriters);
    std::string& runAs = machine.toastController.runAs;
    runAs = runAs.empty() || EqualsIgnoringCase(runAs, kInteractiveUser) ? runAs : WithoutPerson(runAs);
    for (std::string* text :
         {&machine.updateMode.text, &service.commandLine, &service.program, &service.startedInstead,
          &machine.toastController.commandLine, &machine.toastController.program, &machine.image.path}) {
        *text = WithoutTraces(*text, names);
    }
    return machine;
}

std::string EventWithoutPersons(std::string_view xml, const std::vector<std::string>& names) {
    std::string text = WithoutBetween(xml, "<Computer>", "<");
    text = WithoutBetween(text, "UserID='", "'");
    text = WithoutBetween(text, "UserID=\"", "\"");
    return WithoutUserNames(WithoutNames(WithoutSids(WithoutAccounts(text)), names, Form::Xml));
}

}  // namespace check
