#pragma once

#include <oaidl.h>
#include <wrl/client.h>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace toast {

// Fires "UserRespond" at one client's sink, each answer after the other, on a thread that is there for as
// long as there is something to fire: a sink that takes its time, or never returns, holds up nobody but
// itself. All members may be called from every thread.
class SinkMailbox final : public std::enable_shared_from_this<SinkMailbox> {
  public:
    enum class Death {
        kSink,    // the client has cut it off
        kClient,  // its process is gone
    };

    // `died` is called at most once, on that thread, when a call shows that nothing will reach the sink any
    // more.
    SinkMailbox(Microsoft::WRL::ComPtr<IDispatch> sink, std::function<void(Death)> died);

    void Fire(LONG answer);

    // Asks the sink something harmless, to learn whether it is still there. Not while an answer is under way.
    void Probe();

  private:
    // An answer, or a probe.
    using Letter = std::optional<LONG>;

    void Put(Letter letter);
    void DeliverAll();
    [[nodiscard]] std::optional<Letter> Next();
    [[nodiscard]] HRESULT Deliver(Letter letter) const;

    const Microsoft::WRL::ComPtr<IDispatch> sink_;
    std::mutex mutex_;
    std::function<void(Death)> died_;
    std::deque<Letter> letters_;
    bool isDelivering_ = false;
};

}  // namespace toast
