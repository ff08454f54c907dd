#pragma once

#include "prompt/CCmdTarget.h"
#include "prompt/IToastCntr.h"

#include <functional>
#include <memory>

#include <ocidl.h>

// Receives the user's answer from the toast controller, as the event "UserRespond" on a thread of COM. Held
// by shared ownership.
class CSink final : public CCmdTarget {
  public:
    // Called when the user has accepted the update, on a thread of COM, perhaps on several at a time.
    using AcceptHandler = std::function<void()>;

    // `onAccepted` must not be empty.
    explicit CSink(AcceptHandler onAccepted);
    // Ends the connection to the server, which is given up when it takes longer than 2 s, and waits, without
    // a limit, for an answer being handled.
    ~CSink() override;

    // Connects to the server's event interface. Raises a COM error (_com_error) when the server has none:
    // E_POINTER when its pointer is null, when it is no connection point container or when it has no such
    // connection point; other failures of the query as they are. A refused connection is traced and otherwise
    // ignored.
    void Advise(std::shared_ptr<IToastCntrPtr> server);

  private:
    LONG UserRespond(LONG answer) const;
    void EndConnection() const;

    AcceptHandler onAccepted_;
    Microsoft::WRL::ComPtr<IConnectionPoint> connectionPoint_;
    DWORD cookie_ = 0;
    // A share of the server, so that it outlives the connection.
    std::shared_ptr<IToastCntrPtr> server_;
};
