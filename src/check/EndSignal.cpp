#include "check/EndSignal.h"

#include <array>
#include <atomic>
#include <thread>

namespace check {
namespace {

constexpr DWORD kMsPerSecond = 1000;
// Windows grants 5 s.
constexpr DWORD kPatienceMs = 4000;

// Manual reset, and never closed: the reading thread and the handler may still come to them.
HANDLE EndEvent() {
    static const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return event;
}
HANDLE GoneEvent() {
    static const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return event;
}

std::atomic<bool> isWaiting = false;
std::atomic<bool> isToGiveUp = false;

void AwaitInput() {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    std::array<char, 256> bytes{};
    DWORD read = 0;
    ReadFile(input, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr);
    SetEvent(EndEvent());
}

}  // namespace

EndSignal::EndSignal() {
    isToGiveUp = false;
    ResetEvent(EndEvent());
    ResetEvent(GoneEvent());
    SetConsoleCtrlHandler(&OnConsoleControl, TRUE);
}

EndSignal::~EndSignal() {
    SetEvent(GoneEvent());
    SetConsoleCtrlHandler(&OnConsoleControl, FALSE);
}

void EndSignal::Wait(std::optional<std::uint32_t> seconds) {
    isWaiting = true;
    if (!seconds) {
        std::thread(&AwaitInput).detach();
    }
    if (!IsToGiveUp()) {
        WaitForSingleObject(EndEvent(), seconds ? *seconds * kMsPerSecond : INFINITE);
    }
    isWaiting = false;
}

bool EndSignal::IsToGiveUp() {
    return isToGiveUp;
}

BOOL WINAPI EndSignal::OnConsoleControl(DWORD kind) {
    const bool isOfUser = kind == CTRL_C_EVENT || kind == CTRL_BREAK_EVENT;
    if (!isOfUser || !isWaiting) {
        isToGiveUp = true;
    }
    SetEvent(EndEvent());
    if (!isOfUser) {
        WaitForSingleObject(GoneEvent(), kPatienceMs);
    }
    return TRUE;
}

}  // namespace check
