#include "toast/program/ProgramAction.h"

#include <windows.h>

#include <shellapi.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <span>

namespace toast {
namespace {

struct ActionWord {
    const wchar_t* word;
    ProgramAction action;
};

constexpr std::array kActionWords{
    ActionWord{L"RegServer", ProgramAction::kRegister},
    ActionWord{L"UnregServer", ProgramAction::kUnregister},
    ActionWord{L"Embedding", ProgramAction::kServe},
};

ProgramAction ActionOfWord(const wchar_t* word) {
    if (word[0] != L'/' && word[0] != L'-') {
        return ProgramAction::kNone;
    }
    const auto* const known =
        std::find_if(kActionWords.begin(), kActionWords.end(),
                     [word](const ActionWord& each) { return lstrcmpiW(word + 1, each.word) == 0; });
    return known == kActionWords.end() ? ProgramAction::kNone : known->action;
}

}  // namespace

ProgramAction ActionOf(const wchar_t* commandLine) {
    int count = 0;
    const std::unique_ptr<LPWSTR[], decltype(&LocalFree)> words(CommandLineToArgvW(commandLine, &count),
                                                                &LocalFree);
    for (const wchar_t* word : std::span(words.get(), static_cast<std::size_t>(count))) {
        const ProgramAction action = ActionOfWord(word);
        if (action != ProgramAction::kNone) {
            return action;
        }
    }
    return ProgramAction::kNone;
}

}  // namespace toast
