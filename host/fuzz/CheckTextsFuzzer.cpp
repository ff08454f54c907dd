#include "check/AccessList.h"
#include "check/JsonWriter.h"
#include "check/ProgramName.h"
#include "check/Redaction.h"
#include "check/SetupLog.h"
#include "check/TraceFormats.h"
#include "check/UpdateModeValue.h"
#include "host/fuzz/FuzzInput.h"
#include "host/fuzz/Promise.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

// The texts that the companion finds on a machine: the registry's, event records, the setup log, trace-format
// files, the bytes of trace messages, and security descriptors.
//
// Input: the length of a message's bytes (u8), those, and a text, which is taken for each of them in turn;
// both are taken for a security descriptor, too.

namespace {

using fuzz::FuzzInput;
using fuzz::Promise;

bool Contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

std::size_t Replacements(std::string_view text) {
    constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
    std::size_t count = 0;
    for (std::size_t found = text.find(kReplacement); found != std::string_view::npos;
         found = text.find(kReplacement, found + kReplacement.size())) {
        ++count;
    }
    return count;
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
    });
    return lower;
}

bool NamesNoUser(std::string_view text) {
    const std::string lower = Lower(text);
    constexpr std::string_view kUsers = "\\users\\";
    for (std::size_t found = lower.find(kUsers); found != std::string::npos;
         found = lower.find(kUsers, found + 1)) {
        if (lower.compare(found + kUsers.size(), 3, "...") != 0) {
            return false;
        }
    }
    return true;
}

// Whether none of the names that are longer than two letters stands there as a word.
bool NamesNone(std::string_view text, const std::vector<std::string>& names) {
    static constexpr std::string_view kOfNames = "-_0123456789abcdefghijklmnopqrstuvwxyz";
    const std::string lower = Lower(text);
    return std::none_of(names.begin(), names.end(), [&lower](const std::string& each) {
        const std::string name = Lower(each);
        std::size_t found = name.size() > 2 ? lower.find(name) : std::string::npos;
        for (; found != std::string::npos; found = lower.find(name, found + 1)) {
            const std::size_t behind = found + name.size();
            if ((found == 0 || kOfNames.find(lower[found - 1]) == std::string_view::npos) &&
                (behind == lower.size() || kOfNames.find(lower[behind]) == std::string_view::npos)) {
                return true;
            }
        }
        return false;
    });
}

void CheckJson(const std::string& text) {
    const std::string quoted = check::QuotedForJson(text);
    Promise(quoted.size() >= 2 && quoted.front() == '"' && quoted.back() == '"', "a text is in quotes");
    bool isEscaped = false;
    for (const char character : std::string_view(quoted).substr(1, quoted.size() - 2)) {
        Promise(static_cast<unsigned char>(character) >= 0x20, "no control character is left");
        Promise(character != '"' || isEscaped, "a quote inside is escaped");
        isEscaped = character == '\\' && !isEscaped;
    }
    Promise(!isEscaped, "the last quote is not escaped");
    // What is no UTF-8 is replaced, and all that is left is.
    const std::string inside = quoted.substr(1, quoted.size() - 2);
    Promise(Replacements(check::QuotedForJson(inside)) == Replacements(inside), "what is left is UTF-8");
}

void CheckRedaction(const std::string& text) {
    const std::string without = check::WithoutUserNames(text);
    Promise(NamesNoUser(without), "no user is named in a path");
    Promise(check::WithoutUserNames(without) == without, "once is enough");
    const std::string record = check::EventWithoutPersons(text);
    constexpr std::string_view kComputer = "<Computer>";
    for (std::size_t found = record.find(kComputer); found != std::string::npos;
         found = record.find(kComputer, found + 1)) {
        const std::size_t behind = found + kComputer.size();
        Promise(behind == record.size() || record[behind] == '<', "no computer is named");
    }
    Promise(!Contains(record, "S-1-5-21-") && !Contains(record, "S-1-12-1-"), "no person's SID is left");
    Promise(check::EventWithoutPersons(record) == record, "once is enough for an event");
    const std::vector<std::string> names{"PC7", "pc7-of-anna", "corp.example", "C"};
    const std::string nameless = check::EventWithoutPersons(text, names);
    Promise(check::EventWithoutPersons(nameless, names) == nameless, "once is enough for a computer's name");
    const std::string traceless = check::WithoutTraces(text, names);
    Promise(check::WithoutTraces(traceless, names) == traceless, "once is enough for a computer's traces");
    Promise(NamesNone(traceless, names), "no computer is named in a text");
    const std::string sections = check::VendorSections(text, names);
    Promise(NamesNone(sections, names), "no computer is named in the setup log");
    Promise(NamesNoUser(sections), "no user is named in the setup log");
    Promise(sections.empty() || Contains(Lower(text), "vid_2f1a"), "only the vendor's sections are kept");
}

void CheckProgramName(const std::string& text) {
    const check::ProgramName name = check::ProgramNameOf(text);
    Promise(name.path.size() <= text.size() + 4, "a program is part of the line, perhaps with its suffix");
    Promise(!name.isQuoted || name.triedBefore.empty(), "a quoted path is taken as it is");
    Promise(check::FolderOf(name.path).size() + check::FileNameOf(name.path).size() <= name.path.size(),
            "folder and name are parts of the path");
}

// A copy of its own size, whose ends the address sanitizer guards.
void CheckAccessList(const std::vector<std::uint8_t>& bytes) {
    const auto list = check::ReadAccessList(bytes);
    if (!list) {
        return;
    }
    const auto isSid = [](std::string_view text) { return text.starts_with("S-1-"); };
    Promise(list->owner.empty() || isSid(list->owner), "an owner is a SID");
    Promise(std::all_of(list->entries.begin(), list->entries.end(),
                        [isSid](const check::AccessEntry& entry) { return isSid(entry.trustee); }),
            "an entry is for a SID");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::vector<std::uint8_t> payload = input.Bytes(input.Byte());
    const std::vector<std::uint8_t> rest = input.Rest();
    const std::string text(rest.begin(), rest.end());
    CheckJson(text);
    CheckRedaction(text);
    CheckProgramName(text);
    CheckAccessList(payload);
    CheckAccessList(rest);
    static_cast<void>(check::IsServiceControlled(rest));
    check::TraceFormats formats;
    formats.Read(text);
    for (const unsigned number : {10U, 23U}) {
        static_cast<void>(formats.Text("fbfbaa6b-fcbc-3745-ac1c-e104c7b6cda1", number, payload));
    }
    return 0;
}
