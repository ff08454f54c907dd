#pragma once

#include <windows.h>

#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "toast/conversation/Event.h"
#include "toast/server/AdvisedSinks.h"

namespace toast {

// The sinks of every client that there is. All members may be called from every thread.
class ClientList {
  public:
    // A new client's id, and how it hears answers. It is forgotten with its sinks.
    [[nodiscard]] ClientId Add(const std::shared_ptr<AdvisedSinks>& sinks);

    // Fires an answer at the sinks of those clients that are still there.
    void Fire(LONG answer, const std::vector<ClientId>& clients);

    // Looks which clients are still there.
    void ProbeAll();

  private:
    std::mutex mutex_;
    std::map<ClientId, std::weak_ptr<AdvisedSinks>> clients_;
    ClientId lastId_ = 0;
};

}  // namespace toast
