#pragma once

#include "lab/served/Channel.h"
#include "lab/served/HeldReplies.h"
#include "lab/served/ServedCameras.h"
#include "lab/served/ServerLoop.h"
#include "lab/usbip/UsbIpPackets.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <span>

namespace lab {

// The cameras that a host has imported, by their numbers: each by one connection at a time.
using ImportedCameras = std::set<std::size_t>;

// One connection of the USB/IP protocol: a host asks which cameras there are, or imports one and is then its
// controller until either side ends the connection. It ends when the camera leaves the bus: what comes back
// is another device, to be imported anew.
//
// A time-out holds the transfer until the host unlinks it, a late answer until its time; what meets a camera
// that leaves ends as ESHUTDOWN. The video endpoint's transfers wait until they are unlinked: no pictures
// come. The protocol carries no reset of the port.
class UsbIpConnection final : public LoopMember {
  public:
    // `cameras` and `imported` must outlive this.
    UsbIpConnection(Socket socket, ServedCameras& cameras, ImportedCameras& imported);
    ~UsbIpConnection() override;
    UsbIpConnection(const UsbIpConnection&) = delete;
    UsbIpConnection& operator=(const UsbIpConnection&) = delete;

    [[nodiscard]] SocketHandle Handle() const override { return channel_.Handle(); }
    [[nodiscard]] bool WantsToSend() const override { return channel_.WantsToSend(); }
    bool Serve(std::uint64_t nowMs) override;
    bool KeepUp(std::uint64_t nowMs) override;
    [[nodiscard]] std::optional<std::uint64_t> NextDeadline() const override { return held_.NextDeadline(); }

  private:
    // Whether the connection goes on.
    bool HandlePackets(std::uint64_t nowMs);
    bool HandleOperation(const UsbIpOperation& operation, std::span<const std::uint8_t> busId);
    void List();
    bool Import(std::span<const std::uint8_t> busId);
    void HandleSubmit(const UsbIpCommand& command, std::span<const std::uint8_t> sent, std::uint64_t nowMs);
    void HandleControl(const UsbIpCommand& command, std::span<const std::uint8_t> sent, std::uint64_t nowMs);
    void HandleUnlink(const UsbIpCommand& command);
    [[nodiscard]] bool HasEndpoint(const UsbIpCommand& command);

    Channel channel_;
    ServedCameras& cameras_;
    ImportedCameras& imported_;
    std::optional<std::size_t> camera_;  // the imported one
    unsigned stay_ = 0;                  // its stay
    HeldReplies held_;
};

}  // namespace lab
