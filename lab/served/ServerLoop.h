#pragma once

#include "lab/served/Socket.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace lab {

// What a server waits for, and has to do. All calls come from the loop, on its thread.
class LoopMember {
  public:
    virtual ~LoopMember() = default;

    // Its socket; none for a member that only has times.
    [[nodiscard]] virtual SocketHandle Handle() const = 0;
    [[nodiscard]] virtual bool WantsToSend() const { return false; }
    // Something has come, or can be sent. False: its end has come, and the loop destroys it.
    virtual bool Serve(std::uint64_t nowMs) = 0;
    // What was due by now, and what follows from what others did in this round. As Serve().
    virtual bool KeepUp(std::uint64_t nowMs) = 0;
    // When KeepUp() has something to do next that nobody else brings about.
    [[nodiscard]] virtual std::optional<std::uint64_t> NextDeadline() const { return std::nullopt; }
};

// The one thread of a server: waits for the members' sockets and times.
class ServerLoop {
  public:
    // Milliseconds that never run backwards.
    using Clock = std::function<std::uint64_t()>;

    explicit ServerLoop(Clock clock) : clock_(std::move(clock)) {}

    // Also while a member is served. Members keep up in the order in which they were added.
    void Add(std::unique_ptr<LoopMember> member);
    [[nodiscard]] std::size_t Members() const { return members_.size(); }

    // Waits at most so long, serves whoever is ready, and lets all keep up.
    void RunOnce(std::uint32_t mostMs);

  private:
    [[nodiscard]] std::uint32_t Patience(std::uint32_t mostMs) const;
    [[nodiscard]] std::vector<LoopMember*> Ready(std::uint32_t waitMs) const;
    template <typename Call>
    void CallOrRemove(LoopMember* member, const Call& call);

    Clock clock_;
    std::vector<std::unique_ptr<LoopMember>> members_;
};

}  // namespace lab
