#pragma once

#include <oaidl.h>

#include <atomic>
#include <functional>
#include <vector>

// A client's event sink. Free-threaded; owned by its references, of which it starts with none. The test has
// one of them.
class TestSink final : public IDispatch {
  public:
    enum class Answers { kTheEvents, kOnlyDispatch, kOnlyUnknown };

    explicit TestSink(Answers answers = Answers::kTheEvents);

    TestSink(const TestSink&) = delete;
    TestSink& operator=(const TestSink&) = delete;

    // What every call answers, after `action` has run.
    void Answer(
        HRESULT result, std::function<void()> action = [] {});

    // The codes that "UserRespond" has been fired with, once there are so many, or in time fewer.
    [[nodiscard]] std::vector<LONG> Fired(std::size_t count) const;
    // How often it was asked whether it is there, once it was that often.
    [[nodiscard]] int Probed(int count) const;
    // How many references others have.
    [[nodiscard]] ULONG References() const { return references_ - 1; }
    // Whether others let go of it in time.
    [[nodiscard]] bool IsReleased() const;

    STDMETHODIMP QueryInterface(REFIID interfaceId, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override { return ++references_; }
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(DISPID id, REFIID reserved, LCID locale, WORD flags, DISPPARAMS* parameters,
                        VARIANT* result, EXCEPINFO* exception, UINT* wrongArgument) override;

  private:
    ~TestSink();

    [[nodiscard]] HRESULT Act();

    const Answers answers_;
    std::atomic<ULONG> references_ = 0;
    std::atomic<int> probed_ = 0;
    mutable CRITICAL_SECTION lock_{};
    HRESULT result_ = S_OK;
    std::function<void()> action_ = [] {};
    std::vector<LONG> fired_;
};
