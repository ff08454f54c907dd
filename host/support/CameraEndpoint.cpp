#include "host/support/CameraEndpoint.h"

#include "dfu/DfuFunctionalDescriptor.h"
#include "lab/camera/DfuDescriptors.h"

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

CameraEndpoint::CameraEndpoint(lab::VirtualCamera& camera) : camera_(camera) {
    const auto configuration = camera.ConfigurationDescriptor();
    const auto functional = dfu::FindDfuFunctionalDescriptor(configuration);
    interfaceNumber_ = lab::FindDfuInterface(configuration).value_or(0);
    transferSize_ = functional ? functional->wTransferSize : std::uint16_t{0};
}

HRESULT CameraEndpoint::Transfer(WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) {
    if (!isConnected_) {
        return HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE);
    }
    if (length > transferSize_) {
        return HRESULT_FROM_WIN32(ERROR_BAD_LENGTH);
    }
    packet.Index = interfaceNumber_;
    ++count_;
    last_ = {.requestType = packet.RequestType,
             .request = packet.Request,
             .value = packet.Value,
             .index = packet.Index,
             .length = packet.Length};
    const lab::TransferResult result =
        camera_.ControlTransfer(last_, std::span(buffer, length), GetTickCount64());
    if (result.tookMs != 0) {
        Sleep(result.tookMs);
    }
    return ResultOf(result.end);
}
