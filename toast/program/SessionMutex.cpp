#include "toast/program/SessionMutex.h"

namespace toast {
namespace {

bool Acquire(HANDLE mutex, std::chrono::milliseconds patience) {
    if (mutex == nullptr) {
        return false;
    }
    const DWORD waited = WaitForSingleObject(mutex, static_cast<DWORD>(patience.count()));
    return waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED;
}

}  // namespace

SessionMutex::SessionMutex(const wchar_t* name, std::chrono::milliseconds patience)
    : mutex_(CreateMutexW(nullptr, FALSE, name)), isHeld_(Acquire(mutex_.Get(), patience)) {}

SessionMutex::~SessionMutex() {
    if (isHeld_) {
        ReleaseMutex(mutex_.Get());
    }
}

}  // namespace toast
