#include "lab/rig/media/VirtualActivate.h"

#include <mfapi.h>

#include <utility>

#include "lab/rig/media/VirtualMediaSource.h"

namespace lab::rig {

VirtualActivate::VirtualActivate(Bus& bus, Contracts& contracts,
                                 Microsoft::WRL::ComPtr<IMFAttributes> attributes)
    : GivenObject(contracts.com, "IMFActivate"),
      bus_(bus),
      contracts_(contracts),
      attributes_(std::move(attributes)) {}

HRESULT VirtualActivate::QueryInterface(REFIID iid, void** object) {
    IsCalled("QueryInterface");
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (iid != __uuidof(IUnknown) && iid != __uuidof(IMFAttributes) && iid != __uuidof(IMFActivate)) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IMFActivate*>(this);
    AddReference();
    return S_OK;
}

HRESULT VirtualActivate::ActivateObject(REFIID iid, void** object) {
    IsCalled("ActivateObject");
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (const HRESULT result = contracts_.media.Check("IMFActivate::ActivateObject"); FAILED(result)) {
        return result;
    }
    const std::lock_guard lock(mutex_);
    if (source_ == nullptr) {
        if (const HRESULT result = CreateSource(); FAILED(result)) {
            return result;
        }
    }
    return source_->QueryInterface(iid, object);
}

HRESULT VirtualActivate::ShutdownObject() {
    IsCalled("ShutdownObject");
    const std::lock_guard lock(mutex_);
    if (source_ != nullptr) {
        source_->Shutdown();
        source_.Reset();
    }
    return S_OK;
}

HRESULT VirtualActivate::DetachObject() {
    IsCalled("DetachObject");
    const std::lock_guard lock(mutex_);
    source_.Reset();
    return S_OK;
}

HRESULT VirtualActivate::CreateSource() {
    wchar_t* link = nullptr;
    UINT32 length = 0;
    const HRESULT result = attributes_->GetAllocatedString(
        MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK, &link, &length);
    if (FAILED(result)) {
        return result;
    }
    const auto presence = bus_.FindSource({link, length});
    CoTaskMemFree(link);
    if (!presence) {
        return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    }
    // Not Attach: the toolchain's adds a reference.
    *source_.ReleaseAndGetAddressOf() = new VirtualMediaSource(bus_, contracts_.com, *presence);
    return S_OK;
}

HRESULT VirtualActivate::GetItem(REFGUID key, PROPVARIANT* value) {
    IsCalled("GetItem");
    return attributes_->GetItem(key, value);
}

HRESULT VirtualActivate::GetItemType(REFGUID key, MF_ATTRIBUTE_TYPE* type) {
    IsCalled("GetItemType");
    return attributes_->GetItemType(key, type);
}

HRESULT VirtualActivate::CompareItem(REFGUID key, REFPROPVARIANT value, WINBOOL* result) {
    IsCalled("CompareItem");
    return attributes_->CompareItem(key, value, result);
}

HRESULT VirtualActivate::Compare(IMFAttributes* theirs, MF_ATTRIBUTES_MATCH_TYPE matchType, WINBOOL* result) {
    IsCalled("Compare");
    return attributes_->Compare(theirs, matchType, result);
}

HRESULT VirtualActivate::GetUINT32(REFGUID key, UINT32* value) {
    IsCalled("GetUINT32");
    return attributes_->GetUINT32(key, value);
}

HRESULT VirtualActivate::GetUINT64(REFGUID key, UINT64* value) {
    IsCalled("GetUINT64");
    return attributes_->GetUINT64(key, value);
}

HRESULT VirtualActivate::GetDouble(REFGUID key, double* value) {
    IsCalled("GetDouble");
    return attributes_->GetDouble(key, value);
}

HRESULT VirtualActivate::GetGUID(REFGUID key, GUID* value) {
    IsCalled("GetGUID");
    return attributes_->GetGUID(key, value);
}

HRESULT VirtualActivate::GetStringLength(REFGUID key, UINT32* length) {
    IsCalled("GetStringLength");
    return attributes_->GetStringLength(key, length);
}

HRESULT VirtualActivate::GetString(REFGUID key, LPWSTR value, UINT32 size, UINT32* length) {
    IsCalled("GetString");
    return attributes_->GetString(key, value, size, length);
}

HRESULT VirtualActivate::GetAllocatedString(REFGUID key, LPWSTR* value, UINT32* length) {
    IsCalled("GetAllocatedString");
    return attributes_->GetAllocatedString(key, value, length);
}

HRESULT VirtualActivate::GetBlobSize(REFGUID key, UINT32* size) {
    IsCalled("GetBlobSize");
    return attributes_->GetBlobSize(key, size);
}

HRESULT VirtualActivate::GetBlob(REFGUID key, UINT8* buffer, UINT32 bufferSize, UINT32* size) {
    IsCalled("GetBlob");
    return attributes_->GetBlob(key, buffer, bufferSize, size);
}

HRESULT VirtualActivate::GetAllocatedBlob(REFGUID key, UINT8** buffer, UINT32* size) {
    IsCalled("GetAllocatedBlob");
    return attributes_->GetAllocatedBlob(key, buffer, size);
}

HRESULT VirtualActivate::GetUnknown(REFGUID key, REFIID iid, void** object) {
    IsCalled("GetUnknown");
    return attributes_->GetUnknown(key, iid, object);
}

HRESULT VirtualActivate::SetItem(REFGUID key, REFPROPVARIANT value) {
    IsCalled("SetItem");
    return attributes_->SetItem(key, value);
}

HRESULT VirtualActivate::DeleteItem(REFGUID key) {
    IsCalled("DeleteItem");
    return attributes_->DeleteItem(key);
}

HRESULT VirtualActivate::DeleteAllItems() {
    IsCalled("DeleteAllItems");
    return attributes_->DeleteAllItems();
}

HRESULT VirtualActivate::SetUINT32(REFGUID key, UINT32 value) {
    IsCalled("SetUINT32");
    return attributes_->SetUINT32(key, value);
}

HRESULT VirtualActivate::SetUINT64(REFGUID key, UINT64 value) {
    IsCalled("SetUINT64");
    return attributes_->SetUINT64(key, value);
}

HRESULT VirtualActivate::SetDouble(REFGUID key, double value) {
    IsCalled("SetDouble");
    return attributes_->SetDouble(key, value);
}

HRESULT VirtualActivate::SetGUID(REFGUID key, REFGUID value) {
    IsCalled("SetGUID");
    return attributes_->SetGUID(key, value);
}

HRESULT VirtualActivate::SetString(REFGUID key, LPCWSTR value) {
    IsCalled("SetString");
    return attributes_->SetString(key, value);
}

HRESULT VirtualActivate::SetBlob(REFGUID key, const UINT8* buffer, UINT32 size) {
    IsCalled("SetBlob");
    return attributes_->SetBlob(key, buffer, size);
}

HRESULT VirtualActivate::SetUnknown(REFGUID key, IUnknown* object) {
    IsCalled("SetUnknown");
    return attributes_->SetUnknown(key, object);
}

HRESULT VirtualActivate::LockStore() {
    IsCalled("LockStore");
    return attributes_->LockStore();
}

HRESULT VirtualActivate::UnlockStore() {
    IsCalled("UnlockStore");
    return attributes_->UnlockStore();
}

HRESULT VirtualActivate::GetCount(UINT32* count) {
    IsCalled("GetCount");
    return attributes_->GetCount(count);
}

HRESULT VirtualActivate::GetItemByIndex(UINT32 index, GUID* key, PROPVARIANT* value) {
    IsCalled("GetItemByIndex");
    return attributes_->GetItemByIndex(index, key, value);
}

HRESULT VirtualActivate::CopyAllItems(IMFAttributes* destination) {
    IsCalled("CopyAllItems");
    return attributes_->CopyAllItems(destination);
}

}  // namespace lab::rig
