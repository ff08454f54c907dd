#include "check/WaitForEnd.h"

#include "win32/UniqueHandle.h"

#include <array>
#include <thread>

namespace check {
namespace {

constexpr DWORD kMsPerSecond = 1000;

// Manual reset, and never closed: the reading thread and the handler may still come to it.
HANDLE endEvent = nullptr;

BOOL WINAPI OnConsoleControl(DWORD) {
    SetEvent(endEvent);
    return TRUE;
}

void AwaitInput() {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    std::array<char, 256> bytes{};
    DWORD read = 0;
    ReadFile(input, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr);
    SetEvent(endEvent);
}

}  // namespace

void WaitForEnd(std::optional<std::uint32_t> seconds) {
    endEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    SetConsoleCtrlHandler(&OnConsoleControl, TRUE);
    if (!seconds) {
        std::thread(&AwaitInput).detach();
    }
    WaitForSingleObject(endEvent, seconds ? *seconds * kMsPerSecond : INFINITE);
}

}  // namespace check
