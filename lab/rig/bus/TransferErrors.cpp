#include "lab/rig/bus/TransferErrors.h"

namespace lab::rig {
namespace {

constexpr DWORD kErrorNoSuchDevice = 433;
constexpr std::uint64_t kTakingAwayMs = 500;

}  // namespace

DWORD WinUsbError(TransferEnd end) {
    switch (end) {
        case TransferEnd::Ok:
            return ERROR_SUCCESS;
        case TransferEnd::Stall:
        case TransferEnd::Disconnected:
            return ERROR_GEN_FAILURE;
        case TransferEnd::Timeout:
            return ERROR_SEM_TIMEOUT;
    }
    return ERROR_GEN_FAILURE;
}

DWORD GoneError(std::uint64_t leftForMs) {
    return leftForMs < kTakingAwayMs ? DWORD{ERROR_BAD_COMMAND} : kErrorNoSuchDevice;
}

HRESULT PropertyResult(TransferEnd end) {
    const DWORD error = end == TransferEnd::Disconnected ? ERROR_DEVICE_NOT_CONNECTED : WinUsbError(end);
    return HRESULT_FROM_WIN32(error);
}

}  // namespace lab::rig
