#pragma once

#include "lab/served/HeldReplies.h"
#include "lab/served/ServedCamera.h"
#include "lab/served/ServerLoop.h"
#include "lab/served/Socket.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include <usbredirparser.h>

namespace lab {

// One camera on one connection of the usbredir protocol, whose other side is a host's controller (QEMU's
// usb-redir). It tells when the camera comes to the bus and leaves it, and carries the host's packets to it:
//
// - a time-out holds the packet until the host cancels it, a late answer until its time;
// - a stall is told as one; what meets a camera that leaves is never answered, the device is disconnected;
// - the video endpoint's stream can be begun, and stays silent; other endpoints than that and the default
//   pipe do not exist, and stall.
class RedirConnection final : public LoopMember {
  public:
    // `camera` must outlive this. `onClosed` is told the end.
    RedirConnection(Socket socket, ServedCamera& camera, std::function<void()> onClosed);
    ~RedirConnection() override;
    RedirConnection(const RedirConnection&) = delete;
    RedirConnection& operator=(const RedirConnection&) = delete;

    [[nodiscard]] SocketHandle Handle() const override { return socket_.Handle(); }
    [[nodiscard]] bool WantsToSend() const override;
    bool Serve(std::uint64_t nowMs) override;
    bool KeepUp(std::uint64_t nowMs) override;
    [[nodiscard]] std::optional<std::uint64_t> NextDeadline() const override { return held_.NextDeadline(); }

  private:
    struct Callbacks;
    struct ParserDeleter {
        void operator()(usbredirparser* parser) const { usbredirparser_destroy(parser); }
    };

    bool Flush();
    // Whether what the host asks is for the device that is there.
    [[nodiscard]] bool ReachesDevice();
    void FollowCamera();
    void TellDevice();
    void TellInterfaces();
    TransferResult Request(std::uint8_t requestType, StandardRequest request, std::uint16_t value,
                           std::uint16_t index, std::span<std::uint8_t> data);
    void HandleControl(std::uint64_t id, const usb_redir_control_packet_header& header,
                       std::span<const std::uint8_t> sent);
    void SendControl(std::uint64_t id, usb_redir_control_packet_header header, std::uint8_t status,
                     std::vector<std::uint8_t> data);
    void HandleSetConfiguration(std::uint64_t id, std::uint8_t value);
    void SendConfiguration(std::uint64_t id, bool isOk);
    void HandleSetAlternate(std::uint64_t id, std::uint8_t number, std::uint8_t alternate);
    void SendAlternate(std::uint64_t id, std::uint8_t number, bool isOk);
    void HandleCancel(std::uint64_t id);
    [[nodiscard]] bool HasEndpoint(std::uint8_t address) const;

    Socket socket_;
    ServedCamera& camera_;
    std::function<void()> onClosed_;
    std::unique_ptr<usbredirparser, ParserDeleter> parser_;
    HeldReplies held_;
    std::uint64_t nowMs_ = 0;      // of the call from the loop
    bool isGreeted_ = false;       // the host has said hello
    bool awaitsFarewell_ = false;  // the host has yet to confirm a disconnection
    unsigned toldStay_ = 0;        // the stay that the host knows; 0: no device
};

}  // namespace lab
