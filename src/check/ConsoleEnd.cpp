#include "check/ConsoleEnd.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <thread>

namespace check {
namespace {

constexpr DWORD kMsPerSecond = 1000;
constexpr DWORD kTidyingMs = 4000;  // Windows ends the process after 5 s

// Manual reset, and never closed: the reading thread and the handler may still come to them.
HANDLE endEvent = nullptr;
HANDLE goneEvent = nullptr;
std::atomic<bool> isClosing{false};

BOOL WINAPI OnConsoleControl(DWORD control) {
    if (control == CTRL_C_EVENT || control == CTRL_BREAK_EVENT) {
        SetEvent(endEvent);
        return TRUE;
    }
    // The process ends when this returns.
    isClosing = true;
    SetEvent(endEvent);
    WaitForSingleObject(goneEvent, kTidyingMs);
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

ConsoleEnd::ConsoleEnd() {
    endEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    goneEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    SetConsoleCtrlHandler(&OnConsoleControl, TRUE);
}

ConsoleEnd::~ConsoleEnd() {
    SetConsoleCtrlHandler(&OnConsoleControl, FALSE);
    SetEvent(goneEvent);
}

bool ConsoleEnd::Wait(std::optional<std::uint32_t> seconds) {
    if (!seconds) {
        std::thread(&AwaitInput).detach();
    }
    WaitForSingleObject(endEvent, seconds ? *seconds * kMsPerSecond : INFINITE);
    return !isClosing;
}

}  // namespace check
