#include "toast/server/SinkMailbox.h"

#include <oleauto.h>

#include <algorithm>
#include <array>
#include <thread>
#include <utility>

namespace toast {
namespace {

constexpr DISPID kUserRespond = 1;

HRESULT FireAt(IDispatch& sink, LONG answer) {
    VARIANTARG argument;
    VariantInit(&argument);
    V_VT(&argument) = VT_I4;
    V_I4(&argument) = answer;
    DISPPARAMS parameters{&argument, nullptr, 1, 0};
    VARIANT returned;
    VariantInit(&returned);
    const HRESULT result = sink.Invoke(kUserRespond, GUID{}, LOCALE_USER_DEFAULT, DISPATCH_METHOD,
                                       &parameters, &returned, nullptr, nullptr);
    VariantClear(&returned);
    return result;
}

// What COM answers when the other process is gone.
bool MeansDeadClient(HRESULT result) {
    constexpr std::array<LONG, 3> kRpcErrors{RPC_S_SERVER_UNAVAILABLE, RPC_S_CALL_FAILED,
                                             RPC_S_CALL_FAILED_DNE};
    return result == RPC_E_DISCONNECTED || result == RPC_E_SERVER_DIED || result == RPC_E_SERVER_DIED_DNE ||
           std::any_of(kRpcErrors.begin(), kRpcErrors.end(),
                       [result](LONG error) { return result == HRESULT_FROM_WIN32(error); });
}

}  // namespace

SinkMailbox::SinkMailbox(Microsoft::WRL::ComPtr<IDispatch> sink, std::function<void(Death)> died)
    : sink_(std::move(sink)), died_(std::move(died)) {}

void SinkMailbox::Fire(LONG answer) {
    Put(answer);
}

void SinkMailbox::Probe() {
    Put(std::nullopt);
}

void SinkMailbox::Put(Letter letter) {
    const std::lock_guard lock(mutex_);
    if (isDelivering_ && !letter) {
        return;
    }
    letters_.push_back(letter);
    if (!isDelivering_) {
        isDelivering_ = true;
        std::thread([self = shared_from_this()] { self->DeliverAll(); }).detach();
    }
}

void SinkMailbox::DeliverAll() {
    const HRESULT initialised = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    while (const std::optional<Letter> letter = Next()) {
        const HRESULT result = Deliver(*letter);
        if (MeansDeadClient(result) || result == CO_E_OBJNOTCONNECTED) {
            if (const auto died = std::exchange(died_, nullptr)) {
                died(MeansDeadClient(result) ? Death::kClient : Death::kSink);
            }
        }
    }
    if (SUCCEEDED(initialised)) {
        CoUninitialize();
    }
}

std::optional<SinkMailbox::Letter> SinkMailbox::Next() {
    const std::lock_guard lock(mutex_);
    if (letters_.empty()) {
        isDelivering_ = false;
        return std::nullopt;
    }
    const Letter letter = letters_.front();
    letters_.pop_front();
    return letter;
}

HRESULT SinkMailbox::Deliver(Letter letter) const {
    if (letter) {
        return FireAt(*sink_.Get(), *letter);
    }
    UINT count = 0;
    return sink_->GetTypeInfoCount(&count);
}

}  // namespace toast
