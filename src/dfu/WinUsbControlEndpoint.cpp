#include "dfu/WinUsbControlEndpoint.h"

#include "dfu/WinUsbDfuConnection.h"
#include "win32/HResultFromWin32.h"

namespace dfu {

WinUsbControlEndpoint::WinUsbControlEndpoint(std::uint8_t interfaceNumber, std::uint16_t maxTransferSize,
                                             const WinUsbDfuConnection* connection)
    : interfaceNumber_(interfaceNumber), maxTransferSize_(maxTransferSize), connection_(connection) {}

HRESULT WinUsbControlEndpoint::Transfer(WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) {
    if (!IsConnected()) {
        return win32::HResultFromWin32(ERROR_INVALID_HANDLE);
    }
    if (length > maxTransferSize_) {
        return win32::HResultFromWin32(ERROR_BAD_LENGTH);
    }
    packet.Index = interfaceNumber_;
    ULONG transferred = 0;
    if (!WinUsb_ControlTransfer(connection_->WinUsbHandle(), packet, buffer, static_cast<ULONG>(length),
                                &transferred, nullptr)) {
        return win32::HResultFromLastError();
    }
    return S_OK;
}

bool WinUsbControlEndpoint::IsConnected() const {
    return connected_;
}

void WinUsbControlEndpoint::Disconnect() {
    connected_ = false;
}

std::uint16_t WinUsbControlEndpoint::GetMaxTransferSize() const {
    return maxTransferSize_;
}

}  // namespace dfu
