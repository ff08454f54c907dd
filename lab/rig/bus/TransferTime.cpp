#include "lab/rig/bus/TransferTime.h"

#include <windows.h>

namespace lab::rig {

void TransferTime::Spend() {
    if (ofOneTransfer_ == std::chrono::microseconds::zero()) {
        return;
    }
    const std::lock_guard lock(mutex_);
    due_ += ofOneTransfer_;
    const auto whole = std::chrono::duration_cast<std::chrono::milliseconds>(due_);
    if (whole.count() < 1) {
        return;
    }
    const auto begin = std::chrono::steady_clock::now();
    Sleep(static_cast<DWORD>(whole.count()));
    due_ -= std::chrono::steady_clock::now() - begin;
}

}  // namespace lab::rig
