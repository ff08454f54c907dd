#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace lab::toast {

// Decides when the server leaves: when its last object is gone and no lock is held for a while, so that a
// client that comes straight back finds it, or as soon as it is told to. All members may be called from every
// thread.
class ServerLifetime {
  public:
    // Keeps the server from leaving for as long as it lives: one in each object, one for each lock.
    class Hold {
      public:
        explicit Hold(std::shared_ptr<ServerLifetime> lifetime);
        ~Hold();
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

      private:
        std::shared_ptr<ServerLifetime> lifetime_;
    };

    // The two halves of a Hold, for IClassFactory::LockServer. A Remove without its Add is ignored.
    void AddHold();
    void RemoveHold();

    // Ends every wait now and for good, whatever is held.
    void LeaveNow();

    // Returns once nothing has been held for the grace period, or no first client came, or LeaveNow was
    // called.
    void WaitUntilUnused();

    // Returns once nothing is held, without a grace period, or LeaveNow was called: for clients that slipped
    // in while the class was being revoked.
    void WaitUntilReleased();

  private:
    static constexpr std::chrono::seconds kFirstClientPatience{60};
    static constexpr std::chrono::seconds kGrace{2};

    std::mutex mutex_;
    std::condition_variable changed_;
    unsigned holds_ = 0;
    bool everHeld_ = false;
    bool leaving_ = false;
};

}  // namespace lab::toast
