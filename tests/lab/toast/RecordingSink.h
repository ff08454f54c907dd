#pragma once

#include <oaidl.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <queue>

// A client's event sink that records what is fired at it. Free-threaded; lives as long as its test, whatever
// its references.
class RecordingSink final : public IDispatch {
  public:
    enum class Answers { kTheEvents, kOnlyDispatch, kOnlyUnknown };

    struct Call {
        DISPID id;
        WORD flags;
        UINT arguments;
        VARTYPE type;
        LONG code;
        DWORD thread;
    };

    explicit RecordingSink(Answers answers = Answers::kTheEvents) : answers_(answers) {}

    // Runs inside the event, before it is recorded.
    void WhenCalled(std::function<void()> action) { action_ = std::move(action); }

    // The next recorded call; nothing when none comes in time.
    [[nodiscard]] std::optional<Call> NextCall(std::chrono::milliseconds patience = std::chrono::seconds(10));

    // What is still held by others.
    [[nodiscard]] ULONG References() const { return references_; }

    STDMETHODIMP QueryInterface(REFIID interfaceId, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override { return ++references_; }
    STDMETHODIMP_(ULONG) Release() override { return --references_; }
    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID id, REFIID reserved, LCID locale, WORD flags, DISPPARAMS* parameters,
                        VARIANT* result, EXCEPINFO* exception, UINT* wrongArgument) override;

  private:
    const Answers answers_;
    std::function<void()> action_;
    std::atomic<ULONG> references_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::queue<Call> calls_;
};
