#pragma once

#include <windows.h>
#include <mfobjects.h>
#include <wrl/client.h>

#include <string_view>
#include <utility>

#include "lab/rig/contracts/GivenObject.h"

namespace lab::rig {

// What Media Foundation gives with attributes, IMFAttributes or an interface made from it: every operation of
// the store goes to a real one.
template <typename Interface>
class GivenAttributes : public GivenObject<Interface> {
  public:
    HRESULT STDMETHODCALLTYPE GetItem(REFGUID key, PROPVARIANT* value) override {
        this->IsCalled("GetItem");
        return store_->GetItem(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetItemType(REFGUID key, MF_ATTRIBUTE_TYPE* type) override {
        this->IsCalled("GetItemType");
        return store_->GetItemType(key, type);
    }
    HRESULT STDMETHODCALLTYPE CompareItem(REFGUID key, REFPROPVARIANT value, WINBOOL* result) override {
        this->IsCalled("CompareItem");
        return store_->CompareItem(key, value, result);
    }
    HRESULT STDMETHODCALLTYPE Compare(IMFAttributes* theirs, MF_ATTRIBUTES_MATCH_TYPE matchType,
                                      WINBOOL* result) override {
        this->IsCalled("Compare");
        return store_->Compare(theirs, matchType, result);
    }
    HRESULT STDMETHODCALLTYPE GetUINT32(REFGUID key, UINT32* value) override {
        this->IsCalled("GetUINT32");
        return store_->GetUINT32(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetUINT64(REFGUID key, UINT64* value) override {
        this->IsCalled("GetUINT64");
        return store_->GetUINT64(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetDouble(REFGUID key, double* value) override {
        this->IsCalled("GetDouble");
        return store_->GetDouble(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetGUID(REFGUID key, GUID* value) override {
        this->IsCalled("GetGUID");
        return store_->GetGUID(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetStringLength(REFGUID key, UINT32* length) override {
        this->IsCalled("GetStringLength");
        return store_->GetStringLength(key, length);
    }
    HRESULT STDMETHODCALLTYPE GetString(REFGUID key, LPWSTR value, UINT32 size, UINT32* length) override {
        this->IsCalled("GetString");
        return store_->GetString(key, value, size, length);
    }
    HRESULT STDMETHODCALLTYPE GetAllocatedString(REFGUID key, LPWSTR* value, UINT32* length) override {
        this->IsCalled("GetAllocatedString");
        return store_->GetAllocatedString(key, value, length);
    }
    HRESULT STDMETHODCALLTYPE GetBlobSize(REFGUID key, UINT32* size) override {
        this->IsCalled("GetBlobSize");
        return store_->GetBlobSize(key, size);
    }
    HRESULT STDMETHODCALLTYPE GetBlob(REFGUID key, UINT8* buffer, UINT32 bufferSize, UINT32* size) override {
        this->IsCalled("GetBlob");
        return store_->GetBlob(key, buffer, bufferSize, size);
    }
    HRESULT STDMETHODCALLTYPE GetAllocatedBlob(REFGUID key, UINT8** buffer, UINT32* size) override {
        this->IsCalled("GetAllocatedBlob");
        return store_->GetAllocatedBlob(key, buffer, size);
    }
    HRESULT STDMETHODCALLTYPE GetUnknown(REFGUID key, REFIID iid, void** object) override {
        this->IsCalled("GetUnknown");
        return store_->GetUnknown(key, iid, object);
    }
    HRESULT STDMETHODCALLTYPE SetItem(REFGUID key, REFPROPVARIANT value) override {
        this->IsCalled("SetItem");
        return store_->SetItem(key, value);
    }
    HRESULT STDMETHODCALLTYPE DeleteItem(REFGUID key) override {
        this->IsCalled("DeleteItem");
        return store_->DeleteItem(key);
    }
    HRESULT STDMETHODCALLTYPE DeleteAllItems() override {
        this->IsCalled("DeleteAllItems");
        return store_->DeleteAllItems();
    }
    HRESULT STDMETHODCALLTYPE SetUINT32(REFGUID key, UINT32 value) override {
        this->IsCalled("SetUINT32");
        return store_->SetUINT32(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetUINT64(REFGUID key, UINT64 value) override {
        this->IsCalled("SetUINT64");
        return store_->SetUINT64(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetDouble(REFGUID key, double value) override {
        this->IsCalled("SetDouble");
        return store_->SetDouble(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetGUID(REFGUID key, REFGUID value) override {
        this->IsCalled("SetGUID");
        return store_->SetGUID(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetString(REFGUID key, LPCWSTR value) override {
        this->IsCalled("SetString");
        return store_->SetString(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetBlob(REFGUID key, const UINT8* buffer, UINT32 size) override {
        this->IsCalled("SetBlob");
        return store_->SetBlob(key, buffer, size);
    }
    HRESULT STDMETHODCALLTYPE SetUnknown(REFGUID key, IUnknown* object) override {
        this->IsCalled("SetUnknown");
        return store_->SetUnknown(key, object);
    }
    HRESULT STDMETHODCALLTYPE LockStore() override {
        this->IsCalled("LockStore");
        return store_->LockStore();
    }
    HRESULT STDMETHODCALLTYPE UnlockStore() override {
        this->IsCalled("UnlockStore");
        return store_->UnlockStore();
    }
    HRESULT STDMETHODCALLTYPE GetCount(UINT32* count) override {
        this->IsCalled("GetCount");
        return store_->GetCount(count);
    }
    HRESULT STDMETHODCALLTYPE GetItemByIndex(UINT32 index, GUID* key, PROPVARIANT* value) override {
        this->IsCalled("GetItemByIndex");
        return store_->GetItemByIndex(index, key, value);
    }
    HRESULT STDMETHODCALLTYPE CopyAllItems(IMFAttributes* destination) override {
        this->IsCalled("CopyAllItems");
        return store_->CopyAllItems(destination);
    }

  protected:
    // Shares the store.
    GivenAttributes(ComLibrary& library, std::string_view interfaceName,
                    Microsoft::WRL::ComPtr<IMFAttributes> store)
        : GivenObject<Interface>(library, interfaceName), store_(std::move(store)) {}

    [[nodiscard]] IMFAttributes& Store() const { return *store_.Get(); }

  private:
    const Microsoft::WRL::ComPtr<IMFAttributes> store_;
};

}  // namespace lab::rig
