#include "prompt/CSink.h"

#include "diagnostics/TraceMessageGroups.h"
#include "diagnostics/TraceProvider.h"

#include <chrono>
#include <exception>
#include <future>
#include <thread>
#include <utility>

using Microsoft::WRL::ComPtr;

namespace {

constexpr LONG kUpdateAccepted = 1;
constexpr std::chrono::seconds kEndPatience{2};

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
// thread shares what it calls, so that no release here is the last, and a call too, while it still waits.
void CSink::EndConnection() const {
    try {
        std::promise<void> ended;
        const std::future<void> end = ended.get_future();
        std::thread call([connectionPoint = connectionPoint_, server = server_, cookie = cookie_,
                          ended = std::move(ended)]() mutable {
            connectionPoint->Unadvise(cookie);
            connectionPoint.Reset();
            server.reset();
            ended.set_value();
        });
        if (end.wait_for(kEndPatience) == std::future_status::ready) {
            call.join();
        } else {
            call.detach();
        }
    } catch (const std::exception&) {
        // Neither thread nor memory: the server learns of the end when the process is gone.
    }
}

LONG CSink::UserRespond(LONG answer) const {
    if (answer == kUpdateAccepted) {
        onAccepted_();
    }
    return 0;
}
