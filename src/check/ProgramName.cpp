#include "check/ProgramName.h"

#include <algorithm>

namespace check {
namespace {

constexpr std::string_view kSuffix = ".exe";
constexpr std::string_view kBlanks = " \t";

char Lower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool HasSuffix(std::string_view path) {
    return path.size() >= kSuffix.size() &&
           std::equal(kSuffix.begin(), kSuffix.end(),
                      path.end() - static_cast<std::ptrdiff_t>(kSuffix.size()),
                      [](char left, char right) { return left == Lower(right); });
}

// As Windows completes a name: one that has no dot gets the suffix.
std::string Completed(std::string_view path) {
    std::string completed(path);
    if (FileNameOf(path).find('.') == std::string::npos) {
        completed += kSuffix;
    }
    return completed;
}

}  // namespace

ProgramName ProgramNameOf(std::string_view commandLine) {
    ProgramName name;
    commandLine.remove_prefix(std::min(commandLine.find_first_not_of(kBlanks), commandLine.size()));
    if (commandLine.starts_with('"')) {
        name.isQuoted = true;
        const std::string_view inside = commandLine.substr(1);
        name.path = inside.substr(0, inside.find('"'));
        return name;
    }
    std::vector<std::string> tried;
    std::size_t end = 0;
    while (end != std::string_view::npos && end < commandLine.size()) {
        end = commandLine.find_first_of(kBlanks, end);
        const std::string_view beginning = commandLine.substr(0, end);
        if (HasSuffix(beginning)) {
            name.path = beginning;
            name.triedBefore = std::move(tried);
            return name;
        }
        tried.push_back(Completed(beginning));
        if (end != std::string_view::npos) {
            end = commandLine.find_first_not_of(kBlanks, end);
        }
    }
    if (!tried.empty()) {
        name.path = tried.front();
    }
    return name;
}

std::string FolderOf(std::string_view path) {
    const std::size_t last = path.rfind('\\');
    return last == std::string_view::npos ? std::string() : std::string(path.substr(0, last));
}

std::string FileNameOf(std::string_view path) {
    const std::size_t last = path.rfind('\\');
    return std::string(last == std::string_view::npos ? path : path.substr(last + 1));
}

}  // namespace check
