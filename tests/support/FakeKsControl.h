#pragma once

#include <windows.h>
#include <mfidl.h>  // before ks.h, which defines some of its types as other things
#include <ks.h>
#include <devicetopology.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

namespace test_support {

// One call of IKsControl.
struct KsCall {
    enum class Operation { Property, Method, Event };

    Operation operation;
    std::vector<BYTE> descriptor;  // as many bytes as the caller says that it has
    void* data;
    ULONG dataLength;
    std::vector<BYTE> dataBefore;  // what the data buffer held when the call was made
    ULONG* bytesReturned;
    ULONG bytesReturnedBefore;  // 0 without the pointer

    // The fields of the descriptor at their published offsets; throw std::out_of_range when it is too short.
    [[nodiscard]] GUID Set() const;
    [[nodiscard]] ULONG Id() const { return Word(16); }
    [[nodiscard]] ULONG Flags() const { return Word(20); }
    [[nodiscard]] ULONG NodeId() const { return Word(24); }
    [[nodiscard]] ULONG Reserved() const { return Word(28); }

  private:
    [[nodiscard]] ULONG Word(std::size_t offset) const;
};

// A kernel-streaming control object that records its calls and answers them as a test says. It belongs to the
// test, not to its references: these are only counted, so that a test sees whether they came back to 0.
class FakeKsControl final : public IKsControl {
  public:
    using Answer = std::function<HRESULT(const KsCall&)>;

    FakeKsControl() = default;
    FakeKsControl(const FakeKsControl&) = delete;
    FakeKsControl& operator=(const FakeKsControl&) = delete;
    virtual ~FakeKsControl() = default;

    // What every call answers from now on; S_OK and nothing written at first.
    void SetAnswer(Answer answer);
    // The result of a query for IKsControl; S_OK at first. With `givesObject` false a query that succeeds
    // gives null.
    void SetControlResult(HRESULT result, bool givesObject = true);
    // Runs when the last reference is given back.
    void OnLastRelease(std::function<void()> action) { onLastRelease_ = std::move(action); }

    [[nodiscard]] std::vector<KsCall> Calls() const;
    // The interfaces that were asked for, in order.
    [[nodiscard]] std::vector<GUID> Queries() const;
    // References handed out and not given back.
    [[nodiscard]] long References() const { return references_; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE KsProperty(PKSPROPERTY property, ULONG propertyLength, void* data,
                                         ULONG dataLength, ULONG* bytesReturned) override;
    HRESULT STDMETHODCALLTYPE KsMethod(PKSMETHOD method, ULONG methodLength, void* data, ULONG dataLength,
                                       ULONG* bytesReturned) override;
    HRESULT STDMETHODCALLTYPE KsEvent(PKSEVENT event, ULONG eventLength, void* data, ULONG dataLength,
                                      ULONG* bytesReturned) override;

  private:
    HRESULT Call(KsCall::Operation operation, const void* descriptor, ULONG descriptorLength, void* data,
                 ULONG dataLength, ULONG* bytesReturned);

    std::atomic<long> references_{0};
    HRESULT controlResult_ = S_OK;
    bool givesControl_ = true;
    std::function<void()> onLastRelease_;
    mutable std::mutex lock_;
    Answer answer_;
    std::vector<KsCall> calls_;
    std::vector<GUID> queries_;
};

}  // namespace test_support
