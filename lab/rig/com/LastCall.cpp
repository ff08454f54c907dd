#include "lab/rig/com/LastCall.h"

#include <windows.h>

namespace lab::rig {

namespace {

// From an answer to the call's end in the server: some microseconds, unless another program has the
// processor.
constexpr DWORD kEndOfCallMs = 20;

}  // namespace

void AwaitEndOfLastCall() {
    Sleep(kEndOfCallMs);
}

}  // namespace lab::rig
