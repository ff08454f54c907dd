#include "prompt/CSink.h"

#include "diagnostics/TraceMessageGroups.h"
#include "diagnostics/TraceProvider.h"

#include <utility>

using Microsoft::WRL::ComPtr;

namespace {

constexpr LONG kUpdateAccepted = 1;

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
        connectionPoint_->Unadvise(cookie_);
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

LONG CSink::UserRespond(LONG answer) const {
    if (answer == kUpdateAccepted) {
        onAccepted_();
    }
    return 0;
}
