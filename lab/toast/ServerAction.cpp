#include "lab/toast/ServerAction.h"

#include <windows.h>

#include <shellapi.h>

#include <array>
#include <memory>
#include <span>

namespace lab::toast {
namespace {

struct ActionWord {
    const wchar_t* word;
    ServerAction action;
};

constexpr std::array kActionWords{
    ActionWord{L"RegServer", ServerAction::kRegister},
    ActionWord{L"UnregServer", ServerAction::kUnregister},
    ActionWord{L"Embedding", ServerAction::kServe},
};

ServerAction ActionOfWord(const wchar_t* word) {
    if (word[0] != L'/' && word[0] != L'-') {
        return ServerAction::kShowUsage;
    }
    for (const ActionWord& known : kActionWords) {
        if (lstrcmpiW(word + 1, known.word) == 0) {
            return known.action;
        }
    }
    return ServerAction::kShowUsage;
}

}  // namespace

ServerAction ChooseServerAction(const wchar_t* commandLine) {
    int count = 0;
    const std::unique_ptr<LPWSTR[], decltype(&LocalFree)> words(CommandLineToArgvW(commandLine, &count),
                                                                &LocalFree);
    if (words == nullptr) {
        return ServerAction::kShowUsage;
    }
    for (const wchar_t* word : std::span(words.get(), static_cast<std::size_t>(count))) {
        const ServerAction action = ActionOfWord(word);
        if (action != ServerAction::kShowUsage) {
            return action;
        }
    }
    return ServerAction::kShowUsage;
}

}  // namespace lab::toast
