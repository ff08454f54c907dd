#include "prompt/CSink.h"

#include "diagnostics/TraceMessageGroups.h"
#include "diagnostics/TraceProvider.h"
#include "win32/UniqueHandle.h"

#include <exception>
#include <utility>

using Microsoft::WRL::ComPtr;

namespace {

constexpr LONG kUpdateAccepted = 1;
constexpr DWORD kEndPatienceMs = 2000;

constexpr USHORT kAdvised = 10;
constexpr USHORT kAdviseFailed = 11;

ComPtr<IConnectionPointContainer> QueryContainer(IUnknown& server) {
    ComPtr<IConnectionPointContainer> container;
    const HRESULT result = server.QueryInterface(IID_IConnectionPointContainer,
                                                 reinterpret_cast<void**>(container.GetAddressOf()));
    if (FAILED(result) && result != E_NOINTERFACE) {
        _com_issue_error(result);
    }
    return container;
}

// The call that ends the connection, with shares of what it calls.
struct EndCall {
    ComPtr<IConnectionPoint> connectionPoint;
    std::shared_ptr<IToastCntrPtr> server;
    DWORD cookie;
};

DWORD WINAPI MakeEndCall(void* context) {
    const std::unique_ptr<EndCall> call(static_cast<EndCall*>(context));
    call->connectionPoint->Unadvise(call->cookie);
    return 0;
}

}  // namespace

CSink::CSink(AcceptHandler onAccepted)
    : CCmdTarget({{L"UserRespond", [this](LONG answer) { return UserRespond(answer); }}},
                 {kIidToastCntrEvents}),
      onAccepted_(std::move(onAccepted)) {}

CSink::~CSink() {
    if (connectionPoint_) {
        EndConnection();
    }
    DisconnectAutomation();
    server_.reset();
}

void CSink::Advise(std::shared_ptr<IToastCntrPtr> server) {
    server_ = std::move(server);
    IUnknown* const controller = server_->GetInterfacePtr();
    if (controller == nullptr) {
        _com_issue_error(E_POINTER);
    }
    const ComPtr<IConnectionPointContainer> container = QueryContainer(*controller);
    if (!container) {
        _com_issue_error(E_POINTER);
    }
    container->FindConnectionPoint(kIidToastCntrEvents, connectionPoint_.ReleaseAndGetAddressOf());
    if (!connectionPoint_) {
        _com_issue_error(E_POINTER);
    }

    const HRESULT result = connectionPoint_->Advise(GetControllingUnknown().Get(), &cookie_);
    if (SUCCEEDED(result)) {
        TraceProvider::EmitCode(TraceLevel::Information, kEventSinkTraces, kAdvised, cookie_);
    } else {
        TraceProvider::EmitCode(TraceLevel::Error, kEventSinkTraces, kAdviseFailed,
                                static_cast<DWORD>(result));
    }
}

// On a thread of its own: a call into another process can take for ever, and this one is about to end. The
// thread has shares of what it calls, so that no release here is the last, and a call too, while it waits.
void CSink::EndConnection() const {
    try {
        auto call = std::make_unique<EndCall>(EndCall{connectionPoint_, server_, cookie_});
        const win32::UniqueKernelHandle thread(CreateThread(nullptr, 0, MakeEndCall, call.get(), 0, nullptr));
        if (thread) {
            static_cast<void>(call.release());  // the thread owns it now
            WaitForSingleObject(thread.Get(), kEndPatienceMs);
        }
    } catch (const std::exception&) {
        // No memory, as when there is no thread: the server learns of the end when the process is gone.
    }
}

LONG CSink::UserRespond(LONG answer) const {
    if (answer == kUpdateAccepted) {
        onAccepted_();
    }
    return 0;
}
