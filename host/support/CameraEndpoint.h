#pragma once

#include "lab/camera/VirtualCamera.h"
#include "usb_core/IUsbControlEndpoint.h"

// The control endpoint of a virtual camera in DFU mode: what the service's endpoint on WinUSB is to a real
// one, with the same results. Lives by GetTickCount64. For one thread.
class CameraEndpoint final : public usb_core::IUsbControlEndpoint {
  public:
    // `camera` is not owned.
    explicit CameraEndpoint(lab::VirtualCamera& camera) : camera_(camera) {}

    HRESULT Transfer(WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) override;
    [[nodiscard]] bool IsConnected() const override { return isConnected_; }
    void Disconnect() override { isConnected_ = false; }
    [[nodiscard]] std::uint16_t GetMaxTransferSize() const override {
        return camera_.Settings().transferSize;
    }

    // Transfers that reached the camera.
    [[nodiscard]] unsigned Count() const { return count_; }

  private:
    lab::VirtualCamera& camera_;
    bool isConnected_ = true;
    unsigned count_ = 0;
};
