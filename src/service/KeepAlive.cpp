#include "service/KeepAlive.h"

#include "win32/Win32Error.h"

namespace {

constexpr DWORD kPeriodMs = 1000;

}  // namespace

KeepAlive::KeepAlive() : finished_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    if (!finished_) {
        win32::ThrowLastError();
    }
}

void KeepAlive::Start(const std::shared_ptr<KeepAlive>& keepAlive) {
    auto context = std::make_unique<std::shared_ptr<KeepAlive>>(keepAlive);
    if (!QueueUserWorkItem(WorkItem, context.get(), WT_EXECUTELONGFUNCTION)) {
        win32::ThrowLastError();
    }
    static_cast<void>(context.release());  // the work item owns it now
}

void KeepAlive::WaitUntilFinished() const {
    if (WaitForSingleObject(finished_.Get(), INFINITE) == WAIT_FAILED) {
        win32::ThrowLastError();
    }
}

DWORD WINAPI KeepAlive::WorkItem(void* context) {
    const std::unique_ptr<std::shared_ptr<KeepAlive>> owner(
        static_cast<std::shared_ptr<KeepAlive>*>(context));
    KeepAlive& keepAlive = **owner;
    while (keepAlive.stopRequested_ == 0) {
        Sleep(kPeriodMs);
    }
    SetEvent(keepAlive.finished_.Get());
    return 0;
}
