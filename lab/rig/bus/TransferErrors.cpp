#include "lab/rig/bus/TransferErrors.h"

namespace lab::rig {
namespace {

constexpr DWORD kErrorNoSuchDevice = 433;

}  // namespace

DWORD WinUsbError(TransferEnd end) {
    switch (end) {
        case TransferEnd::Ok:
            return ERROR_SUCCESS;
        case TransferEnd::Stall:
            return ERROR_GEN_FAILURE;
        case TransferEnd::Timeout:
            return ERROR_SEM_TIMEOUT;
        case TransferEnd::Disconnected:
            return kErrorNoSuchDevice;
    }
    return ERROR_GEN_FAILURE;
}

HRESULT PropertyResult(TransferEnd end) {
    const DWORD error = end == TransferEnd::Disconnected ? ERROR_DEVICE_NOT_CONNECTED : WinUsbError(end);
    return HRESULT_FROM_WIN32(error);
}

}  // namespace lab::rig
