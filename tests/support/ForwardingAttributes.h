#pragma once

#include <windows.h>
#include <mfobjects.h>
#include <wrl/client.h>

#include <utility>

namespace test_support {

// The attribute store's part of a fake with the interface IMFAttributes or one made from it: every operation
// goes to a real store. A fake overrides what it wants to see or to fail.
template <typename Interface>
class ForwardingAttributes : public Interface {
  public:
    explicit ForwardingAttributes(Microsoft::WRL::ComPtr<IMFAttributes> store) : store_(std::move(store)) {}
    virtual ~ForwardingAttributes() = default;

    HRESULT STDMETHODCALLTYPE GetItem(REFGUID key, PROPVARIANT* value) override {
        return store_->GetItem(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetItemType(REFGUID key, MF_ATTRIBUTE_TYPE* type) override {
        return store_->GetItemType(key, type);
    }
    HRESULT STDMETHODCALLTYPE CompareItem(REFGUID key, REFPROPVARIANT value, WINBOOL* result) override {
        return store_->CompareItem(key, value, result);
    }
    HRESULT STDMETHODCALLTYPE Compare(IMFAttributes* theirs, MF_ATTRIBUTES_MATCH_TYPE type,
                                      WINBOOL* result) override {
        return store_->Compare(theirs, type, result);
    }
    HRESULT STDMETHODCALLTYPE GetUINT32(REFGUID key, UINT32* value) override {
        return store_->GetUINT32(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetUINT64(REFGUID key, UINT64* value) override {
        return store_->GetUINT64(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetDouble(REFGUID key, double* value) override {
        return store_->GetDouble(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetGUID(REFGUID key, GUID* value) override {
        return store_->GetGUID(key, value);
    }
    HRESULT STDMETHODCALLTYPE GetStringLength(REFGUID key, UINT32* length) override {
        return store_->GetStringLength(key, length);
    }
    HRESULT STDMETHODCALLTYPE GetString(REFGUID key, LPWSTR value, UINT32 size, UINT32* length) override {
        return store_->GetString(key, value, size, length);
    }
    HRESULT STDMETHODCALLTYPE GetAllocatedString(REFGUID key, LPWSTR* value, UINT32* length) override {
        return store_->GetAllocatedString(key, value, length);
    }
    HRESULT STDMETHODCALLTYPE GetBlobSize(REFGUID key, UINT32* size) override {
        return store_->GetBlobSize(key, size);
    }
    HRESULT STDMETHODCALLTYPE GetBlob(REFGUID key, UINT8* buffer, UINT32 bufferSize, UINT32* size) override {
        return store_->GetBlob(key, buffer, bufferSize, size);
    }
    HRESULT STDMETHODCALLTYPE GetAllocatedBlob(REFGUID key, UINT8** buffer, UINT32* size) override {
        return store_->GetAllocatedBlob(key, buffer, size);
    }
    HRESULT STDMETHODCALLTYPE GetUnknown(REFGUID key, REFIID interfaceId, void** object) override {
        return store_->GetUnknown(key, interfaceId, object);
    }
    HRESULT STDMETHODCALLTYPE SetItem(REFGUID key, REFPROPVARIANT value) override {
        return store_->SetItem(key, value);
    }
    HRESULT STDMETHODCALLTYPE DeleteItem(REFGUID key) override { return store_->DeleteItem(key); }
    HRESULT STDMETHODCALLTYPE DeleteAllItems() override { return store_->DeleteAllItems(); }
    HRESULT STDMETHODCALLTYPE SetUINT32(REFGUID key, UINT32 value) override {
        return store_->SetUINT32(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetUINT64(REFGUID key, UINT64 value) override {
        return store_->SetUINT64(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetDouble(REFGUID key, double value) override {
        return store_->SetDouble(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetGUID(REFGUID key, REFGUID value) override {
        return store_->SetGUID(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetString(REFGUID key, LPCWSTR value) override {
        return store_->SetString(key, value);
    }
    HRESULT STDMETHODCALLTYPE SetBlob(REFGUID key, const UINT8* buffer, UINT32 size) override {
        return store_->SetBlob(key, buffer, size);
    }
    HRESULT STDMETHODCALLTYPE SetUnknown(REFGUID key, IUnknown* object) override {
        return store_->SetUnknown(key, object);
    }
    HRESULT STDMETHODCALLTYPE LockStore() override { return store_->LockStore(); }
    HRESULT STDMETHODCALLTYPE UnlockStore() override { return store_->UnlockStore(); }
    HRESULT STDMETHODCALLTYPE GetCount(UINT32* count) override { return store_->GetCount(count); }
    HRESULT STDMETHODCALLTYPE GetItemByIndex(UINT32 index, GUID* key, PROPVARIANT* value) override {
        return store_->GetItemByIndex(index, key, value);
    }
    HRESULT STDMETHODCALLTYPE CopyAllItems(IMFAttributes* destination) override {
        return store_->CopyAllItems(destination);
    }

  private:
    Microsoft::WRL::ComPtr<IMFAttributes> store_;
};

}  // namespace test_support
