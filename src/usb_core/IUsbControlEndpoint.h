#pragma once

#include <windows.h>
#include <winusb.h>

#include <cstddef>
#include <cstdint>

namespace usb_core {

// The default control pipe of a USB device, as a protocol engine uses it. Held by shared ownership; used by
// one thread at a time.
class IUsbControlEndpoint {
  public:
    IUsbControlEndpoint() = default;
    IUsbControlEndpoint(const IUsbControlEndpoint&) = delete;
    IUsbControlEndpoint& operator=(const IUsbControlEndpoint&) = delete;
    virtual ~IUsbControlEndpoint() = default;

    // One control transfer, synchronous. `packet.Index` is overwritten with the interface number. `buffer`
    // may be null when `length` is 0; `length` is in bytes and at most GetMaxTransferSize(). Fails with
    //   0x80070006 (invalid handle) when the endpoint is not connected,
    //   0x80070018 (bad length) when `length` exceeds the maximum; nothing is sent then,
    //   the HRESULT of the last error when the transfer fails.
    virtual HRESULT Transfer(WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) = 0;

    // False once the device's connection was closed.
    [[nodiscard]] virtual bool IsConnected() const = 0;

    // Makes every later Transfer fail.
    virtual void Disconnect() = 0;

    // The largest data stage in bytes that the device takes.
    [[nodiscard]] virtual std::uint16_t GetMaxTransferSize() const = 0;
};

}  // namespace usb_core
