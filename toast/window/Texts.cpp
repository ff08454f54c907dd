#include "toast/window/Texts.h"

#include <array>
#include <cstddef>
#include <memory>

namespace toast {
namespace {

constexpr UINT kTextsOfABlock = 16;
constexpr std::size_t kMostInserts = 2;

struct LocalMemory {
    void operator()(wchar_t* memory) const { LocalFree(memory); }
};

}  // namespace

std::wstring Texts::Text(UINT id, std::initializer_list<std::wstring> inserts) const {
    std::array<DWORD_PTR, kMostInserts> arguments{};
    std::size_t count = 0;
    for (const std::wstring& insert : inserts) {
        arguments.at(count++) = reinterpret_cast<DWORD_PTR>(insert.c_str());
    }
    wchar_t* formatted = nullptr;
    const std::wstring message = Message(id);
    FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY,
        message.c_str(), 0, 0, reinterpret_cast<wchar_t*>(&formatted), 0,
        reinterpret_cast<va_list*>(arguments.data()));
    const std::unique_ptr<wchar_t, LocalMemory> owned(formatted);
    return formatted != nullptr ? std::wstring(formatted) : std::wstring();
}

// String tables are stored in blocks of 16, each text behind its length. LoadString would do, but takes no
// language.
std::wstring Texts::Message(UINT id) const {
    HMODULE const program = nullptr;
    const HRSRC block =
        FindResourceExW(program, RT_STRING, MAKEINTRESOURCEW(id / kTextsOfABlock + 1), language_);
    const HGLOBAL loaded = block != nullptr ? LoadResource(program, block) : nullptr;
    const auto* text = loaded != nullptr ? static_cast<const WCHAR*>(LockResource(loaded)) : nullptr;
    if (text == nullptr) {
        return {};
    }
    for (UINT before = id % kTextsOfABlock; before > 0; --before) {
        text += 1 + *text;
    }
    return {text + 1, *text};
}

}  // namespace toast
