#pragma once

#include <windows.h>
#include <mfobjects.h>
#include <mfidl.h>
#include <wrl/client.h>

#include <mutex>

#include "lab/rig/bus/Bus.h"
#include "lab/rig/contracts/Contracts.h"
#include "lab/rig/contracts/GivenObject.h"

namespace lab::rig {

// The activation object of a camera's media source: a real attribute store, which says what is to be
// activated by its symbolic link, and the source once it is activated.
class VirtualActivate final : public GivenObject<IMFActivate> {
  public:
    // Made with one reference, the maker's; shares the attributes.
    VirtualActivate(Bus& bus, Contracts& contracts, Microsoft::WRL::ComPtr<IMFAttributes> attributes);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;

    // The same source until it is shut down or detached. MF_E_ATTRIBUTENOTFOUND without a symbolic link;
    // HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) when no running camera has that link;
    // MF_E_PLATFORM_NOT_INITIALIZED, and nothing is opened, while the platform is down.
    HRESULT STDMETHODCALLTYPE ActivateObject(REFIID iid, void** object) override;
    HRESULT STDMETHODCALLTYPE ShutdownObject() override;
    HRESULT STDMETHODCALLTYPE DetachObject() override;

    // The attribute store's own.
    HRESULT STDMETHODCALLTYPE GetItem(REFGUID key, PROPVARIANT* value) override;
    HRESULT STDMETHODCALLTYPE GetItemType(REFGUID key, MF_ATTRIBUTE_TYPE* type) override;
    HRESULT STDMETHODCALLTYPE CompareItem(REFGUID key, REFPROPVARIANT value, WINBOOL* result) override;
    HRESULT STDMETHODCALLTYPE Compare(IMFAttributes* theirs, MF_ATTRIBUTES_MATCH_TYPE matchType,
                                      WINBOOL* result) override;
    HRESULT STDMETHODCALLTYPE GetUINT32(REFGUID key, UINT32* value) override;
    HRESULT STDMETHODCALLTYPE GetUINT64(REFGUID key, UINT64* value) override;
    HRESULT STDMETHODCALLTYPE GetDouble(REFGUID key, double* value) override;
    HRESULT STDMETHODCALLTYPE GetGUID(REFGUID key, GUID* value) override;
    HRESULT STDMETHODCALLTYPE GetStringLength(REFGUID key, UINT32* length) override;
    HRESULT STDMETHODCALLTYPE GetString(REFGUID key, LPWSTR value, UINT32 size, UINT32* length) override;
    HRESULT STDMETHODCALLTYPE GetAllocatedString(REFGUID key, LPWSTR* value, UINT32* length) override;
    HRESULT STDMETHODCALLTYPE GetBlobSize(REFGUID key, UINT32* size) override;
    HRESULT STDMETHODCALLTYPE GetBlob(REFGUID key, UINT8* buffer, UINT32 bufferSize, UINT32* size) override;
    HRESULT STDMETHODCALLTYPE GetAllocatedBlob(REFGUID key, UINT8** buffer, UINT32* size) override;
    HRESULT STDMETHODCALLTYPE GetUnknown(REFGUID key, REFIID iid, void** object) override;
    HRESULT STDMETHODCALLTYPE SetItem(REFGUID key, REFPROPVARIANT value) override;
    HRESULT STDMETHODCALLTYPE DeleteItem(REFGUID key) override;
    HRESULT STDMETHODCALLTYPE DeleteAllItems() override;
    HRESULT STDMETHODCALLTYPE SetUINT32(REFGUID key, UINT32 value) override;
    HRESULT STDMETHODCALLTYPE SetUINT64(REFGUID key, UINT64 value) override;
    HRESULT STDMETHODCALLTYPE SetDouble(REFGUID key, double value) override;
    HRESULT STDMETHODCALLTYPE SetGUID(REFGUID key, REFGUID value) override;
    HRESULT STDMETHODCALLTYPE SetString(REFGUID key, LPCWSTR value) override;
    HRESULT STDMETHODCALLTYPE SetBlob(REFGUID key, const UINT8* buffer, UINT32 size) override;
    HRESULT STDMETHODCALLTYPE SetUnknown(REFGUID key, IUnknown* object) override;
    HRESULT STDMETHODCALLTYPE LockStore() override;
    HRESULT STDMETHODCALLTYPE UnlockStore() override;
    HRESULT STDMETHODCALLTYPE GetCount(UINT32* count) override;
    HRESULT STDMETHODCALLTYPE GetItemByIndex(UINT32 index, GUID* key, PROPVARIANT* value) override;
    HRESULT STDMETHODCALLTYPE CopyAllItems(IMFAttributes* destination) override;

  private:
    ~VirtualActivate() override = default;

    [[nodiscard]] HRESULT CreateSource();

    Bus& bus_;
    Contracts& contracts_;
    const Microsoft::WRL::ComPtr<IMFAttributes> attributes_;
    std::mutex mutex_;
    Microsoft::WRL::ComPtr<IMFMediaSource> source_;  // guarded by mutex_
};

}  // namespace lab::rig
