#pragma once

#include "host/bench/ReadyCamera.h"
#include "usb_core/IUsbControlEndpoint.h"

#include <cstddef>
#include <cstdint>

namespace bench {

// A device that is always ready, allocates nothing, and keeps only where the blocks that it got lay. For one
// download on one thread.
class AddressKeeper final : public usb_core::IUsbControlEndpoint {
  public:
    HRESULT Transfer(WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) override;
    [[nodiscard]] bool IsConnected() const override { return true; }
    void Disconnect() override {}
    [[nodiscard]] std::uint16_t GetMaxTransferSize() const override { return kBlockSize; }

    // Where the first block's bytes lay, and how many bytes lay there in one row, block after block; 0 when
    // any block lay elsewhere.
    [[nodiscard]] const UCHAR* First() const { return first_; }
    [[nodiscard]] std::size_t InOneRow() const {
        return areInOneRow_ ? static_cast<std::size_t>(next_ - first_) : 0;
    }

  private:
    const UCHAR* first_ = nullptr;
    const UCHAR* next_ = nullptr;
    bool areInOneRow_ = true;
    bool isOver_ = false;
};

}  // namespace bench
