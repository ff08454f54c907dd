#include "toast/registration/ProgramPath.h"

#include <windows.h>

namespace toast {
namespace {

constexpr DWORD kLongestPath = 32'768;

}  // namespace

std::wstring ProgramPath() {
    std::wstring path(kLongestPath, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), kLongestPath));
    return path;
}

}  // namespace toast
