#include "host/campaign/VirtualTime.h"

namespace campaign {

VirtualTime::VirtualTime()
    : sleep_("Sleep", &RedirectedSleep),
      getTickCount64_("GetTickCount64", &RedirectedGetTickCount64),
      wait_("WaitForSingleObject", &RedirectedWait) {}

void VirtualTime::Advance(ULONGLONG milliseconds) {
    now_ += milliseconds;
    if (listener_) {
        listener_(now_);
    }
}

void WINAPI VirtualTime::RedirectedSleep(DWORD milliseconds) {
    current_->Advance(milliseconds);
}

ULONGLONG WINAPI VirtualTime::RedirectedGetTickCount64() {
    return current_->now_;
}

DWORD WINAPI VirtualTime::RedirectedWait(HANDLE object, DWORD milliseconds) {
    const auto realWait = current_->wait_.Original<decltype(::WaitForSingleObject)>();
    const DWORD result = realWait(object, 0);
    if (result == WAIT_TIMEOUT) {
        current_->Advance(milliseconds);
    }
    return result;
}

}  // namespace campaign
