#pragma once

#include <windows.h>
#include <oaidl.h>
#include <wrl/client.h>

#include <atomic>

#include "lab/rig/com/PromptReports.h"

namespace lab::rig {

// The program's event sink as the toast controller sees it: tells the answers, and passes every call on. Made
// with one reference, the maker's; any thread.
class WatchedSink final : public IDispatch {
  public:
    // Shares the sink.
    WatchedSink(Microsoft::WRL::ComPtr<IDispatch> sink, PromptReports reports);

    WatchedSink(const WatchedSink&) = delete;
    WatchedSink& operator=(const WatchedSink&) = delete;

    // E_NOINTERFACE for anything but IUnknown, IDispatch and the events.
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override;
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale,
                                            DISPID* ids) override;
    HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                                     VARIANT* result, EXCEPINFO* exception, UINT* argument) override;

  private:
    virtual ~WatchedSink() = default;

    const Microsoft::WRL::ComPtr<IDispatch> sink_;
    const PromptReports reports_;
    std::atomic<ULONG> references_{1};
};

}  // namespace lab::rig
