#pragma once

#include <ocidl.h>
#include <wrl/client.h>

#include <map>
#include <mutex>
#include <vector>

namespace lab::toast {

// Every sink that is advised at this server, of all its objects. All members may be called from every thread.
class AdvisedSinks {
  public:
    using Sink = Microsoft::WRL::ComPtr<IDispatch>;

    // Keeps the sink until it is removed and returns its cookie: never 0, never the same twice. `point` is
    // the connection point that it was advised at.
    [[nodiscard]] DWORD Add(const IConnectionPoint* point, Sink sink);

    // False when no such sink was advised at this connection point.
    [[nodiscard]] bool Remove(const IConnectionPoint* point, DWORD cookie);

    // Removes what is left of a connection point that goes away.
    void RemoveAllOf(const IConnectionPoint* point);

    // Removes every sink. To be called while COM still stands in this process.
    void RemoveAll();

    // The sinks of this moment, in the order in which they were advised.
    [[nodiscard]] std::vector<Sink> All() const;

  private:
    struct Entry {
        const IConnectionPoint* point;
        Sink sink;
    };

    mutable std::mutex mutex_;
    std::map<DWORD, Entry> entries_;
    DWORD lastCookie_ = 0;
};

}  // namespace lab::toast
