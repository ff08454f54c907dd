#pragma once

#include "dfu/DfuFunctionalDescriptor.h"
#include "dfu/WinUsbHandle.h"
#include "usb_core/IUsbControlEndpoint.h"
#include "win32/UniqueHandle.h"

#include <memory>
#include <string>
#include <vector>

// A camera in DFU mode, opened through WinUSB with its DFU interface selected. Hands out the endpoints
// through which the protocol engine talks to it. Used by one thread at a time; no locks.
class WinUsbDfuConnection {
  public:
    // Opens the device behind a device-interface symbolic link, selects its interface of class 0xFE and reads
    // the DFU functional descriptor. Failures are not raised and no code is kept: ask IsOpened().
    explicit WinUsbDfuConnection(std::wstring symbolicLink);
    // Closes what Close() was not called for.
    ~WinUsbDfuConnection();

    WinUsbDfuConnection(const WinUsbDfuConnection&) = delete;
    WinUsbDfuConnection& operator=(const WinUsbDfuConnection&) = delete;

    // True only when every step of opening succeeded, until Close().
    [[nodiscard]] bool IsOpened() const { return opened_; }

    // A new endpoint on the DFU interface; empty when the device is not open. The connection keeps a share of
    // it, so that Close() can disconnect it.
    [[nodiscard]] std::shared_ptr<usb_core::IUsbControlEndpoint> AcquireEndpoint();

    // Frees the WinUSB handle, closes the device file and disconnects every endpoint handed out. May be
    // called again.
    void Close();

    // The handle that every transfer goes to, null when closed.
    [[nodiscard]] WINUSB_INTERFACE_HANDLE WinUsbHandle() const { return winUsbHandle_.Get(); }

  private:
    // The interface whose descriptor has class 0xFE. `associated` is empty when it is the main one.
    struct DfuInterface {
        WINUSB_INTERFACE_HANDLE handle = nullptr;
        dfu::UniqueWinUsbHandle associated;
    };

    [[nodiscard]] bool OpenDevice();
    [[nodiscard]] HRESULT SelectDfuInterface();
    [[nodiscard]] HRESULT ReadDescriptor(UCHAR type, void* descriptor, ULONG size) const;
    [[nodiscard]] HRESULT FindDfuInterface(DfuInterface& found);
    [[nodiscard]] HRESULT ReadFunctionalDescriptor();

    bool opened_ = false;
    std::vector<std::shared_ptr<usb_core::IUsbControlEndpoint>> endpoints_;
    std::uint8_t dfuInterfaceNumber_ = 0;
    std::uint8_t dfuAlternateSetting_ = 0;
    // The WinUSB handle is freed before the file under it is closed.
    win32::UniqueKernelHandle deviceFile_;
    dfu::UniqueWinUsbHandle winUsbHandle_;
    dfu::DfuFunctionalDescriptor functionalDescriptor_{};
    USB_DEVICE_DESCRIPTOR deviceDescriptor_{};
    USB_CONFIGURATION_DESCRIPTOR configurationHeader_{};
    std::wstring symbolicLink_;
};
