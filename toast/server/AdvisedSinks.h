#pragma once

#include <oaidl.h>
#include <wrl/client.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "toast/server/SinkMailbox.h"

namespace toast {

// The sinks that a client has advised at its object. All members may be called from every thread; no lock is
// held while a sink is called or released.
class AdvisedSinks final : public std::enable_shared_from_this<AdvisedSinks> {
  public:
    // References to the client's object and its connection point, none when they are about to go: called
    // under a lock, until ForgetObjects.
    using ObjectsGetter = std::function<std::vector<Microsoft::WRL::ComPtr<IUnknown>>()>;

    // When a sink's process is found gone and no sink is left, the client's objects are cut off from their
    // clients: nobody else would release what a dead process held.
    explicit AdvisedSinks(ObjectsGetter objects);

    // They go.
    void ForgetObjects();

    // Keeps the sink until it is removed or found dead, and returns its cookie: never 0, never the same
    // twice.
    [[nodiscard]] DWORD Add(Microsoft::WRL::ComPtr<IDispatch> sink);

    // False when there is no such sink.
    [[nodiscard]] bool Remove(DWORD cookie);

    // Fires an answer at each sink; the calls go on after the return.
    void Fire(LONG answer);

    // Looks which sinks are still there; that goes on after the return, too.
    void Probe();

  private:
    using Mailboxes = std::map<DWORD, std::shared_ptr<SinkMailbox>>;

    void Died(DWORD cookie, SinkMailbox::Death death);
    [[nodiscard]] Mailboxes All() const;

    mutable std::mutex mutex_;
    ObjectsGetter objects_;
    Mailboxes mailboxes_;
    DWORD lastCookie_ = 0;
};

}  // namespace toast
