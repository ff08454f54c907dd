#pragma once

#include "lab/served/ServedCamera.h"
#include "lab/served/ServerLoop.h"
#include "lab/served/Socket.h"

#include <cstdint>
#include <memory>

namespace lab {

// Where a camera is plugged in: a listener that takes one host after the other, one at a time. A second one
// waits until the first has gone.
class RedirPort final : public LoopMember {
  public:
    // `camera` and `loop` must outlive this.
    RedirPort(Socket listener, ServedCamera& camera, ServerLoop& loop);

    [[nodiscard]] SocketHandle Handle() const override { return *isTaken_ ? kNoSocket : listener_.Handle(); }
    bool Serve(std::uint64_t nowMs) override;
    bool KeepUp(std::uint64_t) override { return true; }

  private:
    Socket listener_;
    ServedCamera& camera_;
    ServerLoop& loop_;
    // Shared with the connection, which may outlive this.
    std::shared_ptr<bool> isTaken_ = std::make_shared<bool>(false);
};

}  // namespace lab
