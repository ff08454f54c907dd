#include "lab/toast/UserResponder.h"

#include <oleauto.h>

#include <string>
#include <vector>

namespace lab::toast {
namespace {

constexpr DISPID kUserRespond = 1;

HRESULT FireAt(IDispatch& sink, LONG code) {
    VARIANTARG argument;
    VariantInit(&argument);
    V_VT(&argument) = VT_I4;
    V_I4(&argument) = code;
    DISPPARAMS parameters{};
    parameters.rgvarg = &argument;
    parameters.cArgs = 1;
    VARIANT returned;
    VariantInit(&returned);
    const HRESULT result = sink.Invoke(kUserRespond, GUID{}, LOCALE_USER_DEFAULT, DISPATCH_METHOD,
                                       &parameters, &returned, nullptr, nullptr);
    VariantClear(&returned);
    return result;
}

}  // namespace

UserResponder::UserResponder(std::shared_ptr<ServerParts> parts)
    : thread_([queue = queue_, shared = std::move(parts)] { Run(queue, shared); }) {}

UserResponder::~UserResponder() {
    BeginStop();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void UserResponder::Post(LONG code) {
    {
        const std::lock_guard lock(queue_->mutex);
        queue_->codes.push(code);
    }
    queue_->changed.notify_all();
}

bool UserResponder::StopWithin(std::chrono::milliseconds patience) {
    BeginStop();
    std::unique_lock lock(queue_->mutex);
    if (!queue_->changed.wait_for(lock, patience, [this] { return queue_->ended; })) {
        thread_.detach();
        return false;
    }
    lock.unlock();
    thread_.join();
    return true;
}

void UserResponder::BeginStop() {
    {
        const std::lock_guard lock(queue_->mutex);
        queue_->stopping = true;
    }
    queue_->changed.notify_all();
}

void UserResponder::Run(const std::shared_ptr<Queue>& queue, const std::shared_ptr<ServerParts>& parts) {
    const HRESULT initialised = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    while (const std::optional<LONG> code = NextCode(*queue)) {
        Fire(*parts, *code);
    }
    if (SUCCEEDED(initialised)) {
        CoUninitialize();
    }
    {
        const std::lock_guard lock(queue->mutex);
        queue->ended = true;
    }
    queue->changed.notify_all();
}

std::optional<LONG> UserResponder::NextCode(Queue& queue) {
    std::unique_lock lock(queue.mutex);
    queue.changed.wait(lock, [&] { return queue.stopping || !queue.codes.empty(); });
    if (queue.stopping) {
        return std::nullopt;
    }
    const LONG code = queue.codes.front();
    queue.codes.pop();
    return code;
}

void UserResponder::Fire(ServerParts& parts, LONG code) {
    const std::vector<AdvisedSinks::Sink> sinks = parts.sinks.All();
    HRESULT result = S_OK;
    for (const AdvisedSinks::Sink& sink : sinks) {
        const HRESULT fired = FireAt(*sink.Get(), code);
        if (SUCCEEDED(result)) {
            result = fired;
        }
    }
    parts.reports.Answer(code, sinks.size(), result);
    if (sinks.empty()) {
        parts.reports.Refused("respond", "no sink is advised");
    } else if (FAILED(result)) {
        parts.reports.Refused("respond", "a sink did not take the answer");
    } else {
        parts.reports.Done("respond");
    }
}

}  // namespace lab::toast
