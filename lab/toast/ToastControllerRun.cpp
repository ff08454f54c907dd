#include "lab/toast/ToastControllerRun.h"

#include "lab/wire/Wire.h"

#include <memory>
#include <utility>

#include "VeyraCameraToast.h"
#include "lab/toast/KeptStub.h"
#include "lab/toast/LaboratoryCommands.h"
#include "lab/toast/ServerParts.h"
#include "lab/toast/ToastController.h"
#include "lab/toast/ToastControllerFactory.h"
#include "lab/toast/ToastTypeLibrary.h"
#include "lab/toast/UserResponder.h"

namespace lab::toast {
namespace {

using Microsoft::WRL::ComPtr;

constexpr std::chrono::seconds kResponderPatience{2};
constexpr UINT kCrashExitCode = 3;

std::unique_ptr<Wire> OpenWire(const std::shared_ptr<ServerParts>& parts, LaboratoryCommands& commands) {
    std::unique_ptr<Wire> wire = Wire::Connect("toast");
    if (wire != nullptr) {
        // The laboratory says when the server goes: a client that asks for it just when it leaves would wait
        // in vain.
        parts->lifetime->AddHold();
        parts->reports.Open(*wire);
        commands.TakeStage(wire->Stage());
        wire->Start([&commands](const nlohmann::json& command) { commands.CarryOut(command); },
                    [parts] {
                        parts->hangs.Release();
                        parts->lifetime->LeaveNow();
                    });
    }
    return wire;
}

// One of each interface that a client gets. The controller is one that no client sees, of parts of its own:
// it does not hold the server.
HRESULT KeepStubs(IClassFactory* factory, const ComPtr<ITypeInfo>& typeInfo) {
    const ComPtr<IToastCntr> controller(new ToastController(std::make_shared<ServerParts>(typeInfo)));
    ComPtr<IConnectionPointContainer> container;
    HRESULT result = controller.As(&container);
    ComPtr<IConnectionPoint> point;
    if (SUCCEEDED(result)) {
        result = container->FindConnectionPoint(__uuidof(IToastCntrEvents), &point);
    }
    const std::pair<const IID&, IUnknown*> kept[] = {
        {__uuidof(IClassFactory), factory},
        {__uuidof(IUnknown), controller.Get()},
        {__uuidof(IDispatch), controller.Get()},
        {__uuidof(IToastCntr), controller.Get()},
        {__uuidof(IConnectionPointContainer), controller.Get()},
        {__uuidof(IConnectionPoint), point.Get()},
    };
    for (const auto& [interfaceId, object] : kept) {
        if (SUCCEEDED(result)) {
            result = KeepStub(interfaceId, object);
        }
    }
    return result;
}

HRESULT OfferClassUntilUnused(const std::shared_ptr<ServerParts>& parts) {
    const ComPtr<IClassFactory> factory(new ToastControllerFactory(parts));
    HRESULT result = KeepStubs(factory.Get(), parts->typeInfo);
    if (FAILED(result)) {
        return result;
    }
    DWORD registration = 0;
    result = CoRegisterClassObject(__uuidof(ToastCntr), factory.Get(), CLSCTX_LOCAL_SERVER,
                                   REGCLS_MULTIPLEUSE, &registration);
    if (FAILED(result)) {
        return result;
    }
    parts->lifetime->WaitUntilUnused();
    const HRESULT revoked = CoRevokeClassObject(registration);
    if (parts->crashing) {
        TerminateProcess(GetCurrentProcess(), kCrashExitCode);
    }
    parts->lifetime->WaitUntilReleased();
    return revoked;
}

HRESULT Serve() {
    ComPtr<ITypeInfo> typeInfo;
    const HRESULT loaded = LoadToastTypeInfo(&typeInfo);
    if (FAILED(loaded)) {
        return loaded;
    }
    const auto parts = std::make_shared<ServerParts>(std::move(typeInfo));
    UserResponder responder(parts);
    LaboratoryCommands commands(parts, responder);
    const std::unique_ptr<Wire> wire = OpenWire(parts, commands);

    const HRESULT result = OfferClassUntilUnused(parts);

    if (!responder.StopWithin(kResponderPatience)) {
        // A client is stuck in its sink: its thread cannot be joined, and the class is revoked already.
        TerminateProcess(GetCurrentProcess(), 0);
    }
    parts->reports.Close();
    parts->sinks.RemoveAll();
    return result;
}

}  // namespace

HRESULT RunToastController() {
    const HRESULT initialised = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(initialised)) {
        return initialised;
    }
    // The apartment ends with the process: the last client's call may still be on its way out, and Wine,
    // which can lose the word of its end, would keep CoUninitialize waiting for ever.
    return Serve();
}

}  // namespace lab::toast
