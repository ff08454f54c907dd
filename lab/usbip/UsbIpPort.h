#pragma once

#include "lab/served/ServedCameras.h"
#include "lab/served/ServerLoop.h"
#include "lab/served/Socket.h"
#include "lab/usbip/UsbIpConnection.h"

#include <cstdint>
#include <memory>

namespace lab {

// The listener of a USB/IP server, which all cameras are behind.
class UsbIpPort final : public LoopMember {
  public:
    // `cameras` and `loop` must outlive this and every connection that comes of it, and so must `imported`.
    UsbIpPort(Socket listener, ServedCameras& cameras, ImportedCameras& imported, ServerLoop& loop);

    [[nodiscard]] SocketHandle Handle() const override { return listener_.Handle(); }
    bool Serve(std::uint64_t nowMs) override;
    bool KeepUp(std::uint64_t) override { return true; }

  private:
    Socket listener_;
    ServedCameras& cameras_;
    ImportedCameras& imported_;
    ServerLoop& loop_;
};

}  // namespace lab
