#pragma once

#include "usb_core/IUsbControlEndpoint.h"

class WinUsbDfuConnection;

namespace dfu {

// The control pipe of a device opened through WinUSB. Made by WinUsbDfuConnection::AcquireEndpoint, usable
// only while that connection is open; afterwards every transfer fails with 0x80070006 and the connection is
// not touched any more.
class WinUsbControlEndpoint final : public usb_core::IUsbControlEndpoint {
  public:
    // `connection` is not owned.
    WinUsbControlEndpoint(std::uint8_t interfaceNumber, std::uint16_t maxTransferSize,
                          const WinUsbDfuConnection* connection);

    // A failure whose last error is 0 is deliberately reported as S_OK; the transferred count is not
    // compared.
    HRESULT Transfer(WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) override;
    [[nodiscard]] bool IsConnected() const override;
    void Disconnect() override;
    [[nodiscard]] std::uint16_t GetMaxTransferSize() const override;

  private:
    bool connected_ = true;
    std::uint8_t interfaceNumber_;
    std::uint16_t maxTransferSize_;
    const WinUsbDfuConnection* connection_;
};

}  // namespace dfu
