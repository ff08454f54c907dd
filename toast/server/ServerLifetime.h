#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

namespace toast {

// Decides when the server leaves: when nothing has held it for a while, so that a client that comes straight
// back finds it. All members may be called from every thread.
class ServerLifetime {
  public:
    // Keeps the server from leaving for as long as it lives.
    class Hold {
      public:
        explicit Hold(std::shared_ptr<ServerLifetime> lifetime);
        ~Hold();
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

      private:
        const std::shared_ptr<ServerLifetime> lifetime_;
    };

    // How long a server waits for its first client, how long it stays after the last, and how often it looks
    // after its clients.
    struct Times {
        std::chrono::milliseconds firstClient = std::chrono::seconds(60);
        std::chrono::milliseconds grace = std::chrono::seconds(2);
        std::chrono::milliseconds pulse = std::chrono::seconds(10);
    };

    ServerLifetime() = default;
    explicit ServerLifetime(const Times& times) : times_(times) {}

    // The two halves of a Hold, for IClassFactory::LockServer and its like. A Remove without its Add is
    // ignored.
    void AddHold();
    void RemoveHold();

    // Returns once nothing has held the server for the grace period, or no first client has come. Calls
    // `pulse` now and then meanwhile, with no lock held.
    void WaitUntilUnused(const std::function<void()>& pulse);

    // Returns once nothing holds the server, without a grace period: for clients that slipped in while the
    // class was being revoked. Gives up after a while.
    void WaitUntilReleased(std::chrono::milliseconds patience);

  private:
    using Clock = std::chrono::steady_clock;

    // When it is to leave, as things stand; the end of time while it is held.
    [[nodiscard]] Clock::time_point End() const;

    const Times times_{};
    std::mutex mutex_;
    std::condition_variable changed_;
    unsigned holds_ = 0;
    Clock::time_point unusedUntil_ = Clock::now() + times_.firstClient;
};

}  // namespace toast
