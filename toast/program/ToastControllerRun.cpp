#include "toast/program/ToastControllerRun.h"

#include <windows.h>

#include <objbase.h>
#include <wrl/client.h>

#include <chrono>
#include <exception>
#include <memory>
#include <utility>

#include "prompt/IToastCntr.h"
#include "toast/program/RecordedAnswers.h"
#include "toast/program/SessionMutex.h"
#include "toast/record/ApplicationLog.h"
#include "toast/server/ServerParts.h"
#include "toast/server/ToastControllerFactory.h"
#include "toast/server/ToastTypeInfo.h"
#include "toast/window/ConversationThread.h"

namespace toast {
namespace {

using Microsoft::WRL::ComPtr;

constexpr wchar_t kSessionMutex[] = L"Local\\VeyraCameraToastCntl";
constexpr std::chrono::seconds kLeavingPatience{5};

// What the server consists of.
struct Server {
    explicit Server(ComPtr<ITypeInfo> typeInfo)
        : parts(std::make_shared<ServerParts>(
              ServerParts{std::move(typeInfo), conversation, lifetime, clients})) {}

    const std::shared_ptr<ServerLifetime> lifetime = std::make_shared<ServerLifetime>();
    const std::shared_ptr<ClientList> clients = std::make_shared<ClientList>();
    ApplicationLog log;
    RecordedAnswers answers{log, *clients};
    ConversationThread conversation{
        answers, Texts(), [this](bool busy) { busy ? lifetime->AddHold() : lifetime->RemoveHold(); }};
    const std::shared_ptr<ServerParts> parts;
};

ServerResult OfferClassUntilUnused(const Server& server) {
    const ComPtr<IClassFactory> factory(new ToastControllerFactory(server.parts));
    DWORD registration = 0;
    if (FAILED(CoRegisterClassObject(kClsidToastController, factory.Get(), CLSCTX_LOCAL_SERVER,
                                     REGCLS_MULTIPLEUSE, &registration))) {
        return ServerResult::kFailed;
    }
    server.lifetime->WaitUntilUnused([&server] { server.clients->ProbeAll(); });
    CoRevokeClassObject(registration);
    return ServerResult::kDone;
}

}  // namespace

ServerResult RunToastController() {
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
        return ServerResult::kFailed;
    }
    ComPtr<ITypeInfo> typeInfo = LoadToastTypeInfo();
    if (typeInfo == nullptr) {
        return ServerResult::kFailed;
    }
    try {
        const SessionMutex session(kSessionMutex, kLeavingPatience);
        if (!session.IsHeld()) {
            return ServerResult::kAlreadyRunning;
        }
        auto server = std::make_unique<Server>(std::move(typeInfo));
        const ServerResult result = OfferClassUntilUnused(*server);
        server->lifetime->WaitUntilReleased(kLeavingPatience);
        // A client that does not let go may still be calling.
        static_cast<void>(server.release());
        return result;
    } catch (const std::exception&) {
        return ServerResult::kFailed;
    }
}

}  // namespace toast
