#pragma once

#include "lab/camera/VirtualCamera.h"
#include "usb_core/IUsbControlEndpoint.h"

// The control endpoint of a virtual camera in DFU mode: what the service's endpoint on WinUSB is to a real
// one, with the same interface, transfer size and results. Lives by GetTickCount64. For one thread.
class CameraEndpoint final : public usb_core::IUsbControlEndpoint {
  public:
    // `camera` is not owned.
    explicit CameraEndpoint(lab::VirtualCamera& camera);

    HRESULT Transfer(WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) override;
    [[nodiscard]] bool IsConnected() const override { return isConnected_; }
    void Disconnect() override { isConnected_ = false; }
    [[nodiscard]] std::uint16_t GetMaxTransferSize() const override { return transferSize_; }

    // Transfers that reached the camera.
    [[nodiscard]] unsigned Count() const { return count_; }
    // The last of them.
    [[nodiscard]] const lab::SetupPacket& Last() const { return last_; }

  private:
    lab::VirtualCamera& camera_;
    std::uint16_t interfaceNumber_;
    std::uint16_t transferSize_;
    bool isConnected_ = true;
    unsigned count_ = 0;
    lab::SetupPacket last_;
};
