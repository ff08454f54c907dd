#include "host/support/CameraEndpoint.h"

#include <span>

namespace {

constexpr DWORD kErrorNoSuchDevice = 433;

HRESULT ResultOf(lab::TransferEnd end) {
    switch (end) {
        case lab::TransferEnd::Ok:
            return S_OK;
        case lab::TransferEnd::Stall:
            return HRESULT_FROM_WIN32(ERROR_GEN_FAILURE);
        case lab::TransferEnd::Timeout:
            return HRESULT_FROM_WIN32(ERROR_SEM_TIMEOUT);
        case lab::TransferEnd::Disconnected:
            return HRESULT_FROM_WIN32(kErrorNoSuchDevice);
    }
    return E_FAIL;
}

}  // namespace

HRESULT CameraEndpoint::Transfer(WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) {
    if (!isConnected_) {
        return HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
    }
    if (length > GetMaxTransferSize()) {
        return HRESULT_FROM_WIN32(ERROR_BAD_LENGTH);
    }
    packet.Index = 0;
    ++count_;
    const lab::SetupPacket setup{.requestType = packet.RequestType,
                                 .request = packet.Request,
                                 .value = packet.Value,
                                 .index = packet.Index,
                                 .length = packet.Length};
    return ResultOf(camera_.ControlTransfer(setup, std::span(buffer, length), GetTickCount64()).end);
}
