#pragma once

#include <oaidl.h>
#include <wrl/client.h>

#include <memory>

#include "toast/conversation/Event.h"
#include "toast/server/ClientList.h"
#include "toast/server/ServerLifetime.h"

namespace toast {

// What every object of the server shares; each keeps it alive, so that a call that is still running while the
// process leaves finds it. `receiver` outlives all of them.
struct ServerParts {
    const Microsoft::WRL::ComPtr<ITypeInfo> typeInfo;  // of IToastCntr
    EventReceiver& receiver;
    const std::shared_ptr<ServerLifetime> lifetime;
    const std::shared_ptr<ClientList> clients;
};

}  // namespace toast
