#include "lab/rig/media/VirtualActivate.h"

#include <mfapi.h>

#include <utility>

#include "lab/rig/media/VirtualMediaSource.h"

namespace lab::rig {

VirtualActivate::VirtualActivate(Bus& bus, Microsoft::WRL::ComPtr<IMFAttributes> attributes)
    : bus_(bus), attributes_(std::move(attributes)) {}

HRESULT VirtualActivate::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (iid != __uuidof(IUnknown) && iid != __uuidof(IMFAttributes) && iid != __uuidof(IMFActivate)) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IMFActivate*>(this);
    AddRef();
    return S_OK;
}

ULONG VirtualActivate::AddRef() {
    return ++references_;
}

ULONG VirtualActivate::Release() {
    const ULONG left = --references_;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT VirtualActivate::ActivateObject(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    const std::lock_guard lock(mutex_);
    if (source_ == nullptr) {
        if (const HRESULT result = CreateSource(); FAILED(result)) {
            return result;
        }
    }
    return source_->QueryInterface(iid, object);
}

HRESULT VirtualActivate::ShutdownObject() {
    const std::lock_guard lock(mutex_);
    if (source_ != nullptr) {
        source_->Shutdown();
        source_.Reset();
    }
    return S_OK;
}

HRESULT VirtualActivate::DetachObject() {
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
    *source_.ReleaseAndGetAddressOf() = new VirtualMediaSource(bus_, *presence);
    return S_OK;
}

HRESULT VirtualActivate::GetItem(REFGUID key, PROPVARIANT* value) {
    return attributes_->GetItem(key, value);
}

HRESULT VirtualActivate::GetItemType(REFGUID key, MF_ATTRIBUTE_TYPE* type) {
    return attributes_->GetItemType(key, type);
}

HRESULT VirtualActivate::CompareItem(REFGUID key, REFPROPVARIANT value, WINBOOL* result) {
    return attributes_->CompareItem(key, value, result);
}

HRESULT VirtualActivate::Compare(IMFAttributes* theirs, MF_ATTRIBUTES_MATCH_TYPE matchType, WINBOOL* result) {
    return attributes_->Compare(theirs, matchType, result);
}

HRESULT VirtualActivate::GetUINT32(REFGUID key, UINT32* value) {
    return attributes_->GetUINT32(key, value);
}

HRESULT VirtualActivate::GetUINT64(REFGUID key, UINT64* value) {
    return attributes_->GetUINT64(key, value);
}

HRESULT VirtualActivate::GetDouble(REFGUID key, double* value) {
    return attributes_->GetDouble(key, value);
}

HRESULT VirtualActivate::GetGUID(REFGUID key, GUID* value) {
    return attributes_->GetGUID(key, value);
}

HRESULT VirtualActivate::GetStringLength(REFGUID key, UINT32* length) {
    return attributes_->GetStringLength(key, length);
}

HRESULT VirtualActivate::GetString(REFGUID key, LPWSTR value, UINT32 size, UINT32* length) {
    return attributes_->GetString(key, value, size, length);
}

HRESULT VirtualActivate::GetAllocatedString(REFGUID key, LPWSTR* value, UINT32* length) {
    return attributes_->GetAllocatedString(key, value, length);
}

HRESULT VirtualActivate::GetBlobSize(REFGUID key, UINT32* size) {
    return attributes_->GetBlobSize(key, size);
}

HRESULT VirtualActivate::GetBlob(REFGUID key, UINT8* buffer, UINT32 bufferSize, UINT32* size) {
    return attributes_->GetBlob(key, buffer, bufferSize, size);
}

HRESULT VirtualActivate::GetAllocatedBlob(REFGUID key, UINT8** buffer, UINT32* size) {
    return attributes_->GetAllocatedBlob(key, buffer, size);
}

HRESULT VirtualActivate::GetUnknown(REFGUID key, REFIID iid, void** object) {
    return attributes_->GetUnknown(key, iid, object);
}

HRESULT VirtualActivate::SetItem(REFGUID key, REFPROPVARIANT value) {
    return attributes_->SetItem(key, value);
}

HRESULT VirtualActivate::DeleteItem(REFGUID key) {
    return attributes_->DeleteItem(key);
}

HRESULT VirtualActivate::DeleteAllItems() {
    return attributes_->DeleteAllItems();
}

HRESULT VirtualActivate::SetUINT32(REFGUID key, UINT32 value) {
    return attributes_->SetUINT32(key, value);
}

HRESULT VirtualActivate::SetUINT64(REFGUID key, UINT64 value) {
    return attributes_->SetUINT64(key, value);
}

HRESULT VirtualActivate::SetDouble(REFGUID key, double value) {
    return attributes_->SetDouble(key, value);
}

HRESULT VirtualActivate::SetGUID(REFGUID key, REFGUID value) {
    return attributes_->SetGUID(key, value);
}

HRESULT VirtualActivate::SetString(REFGUID key, LPCWSTR value) {
    return attributes_->SetString(key, value);
}

HRESULT VirtualActivate::SetBlob(REFGUID key, const UINT8* buffer, UINT32 size) {
    return attributes_->SetBlob(key, buffer, size);
}

HRESULT VirtualActivate::SetUnknown(REFGUID key, IUnknown* object) {
    return attributes_->SetUnknown(key, object);
}

HRESULT VirtualActivate::LockStore() {
    return attributes_->LockStore();
}

HRESULT VirtualActivate::UnlockStore() {
    return attributes_->UnlockStore();
}

HRESULT VirtualActivate::GetCount(UINT32* count) {
    return attributes_->GetCount(count);
}

HRESULT VirtualActivate::GetItemByIndex(UINT32 index, GUID* key, PROPVARIANT* value) {
    return attributes_->GetItemByIndex(index, key, value);
}

HRESULT VirtualActivate::CopyAllItems(IMFAttributes* destination) {
    return attributes_->CopyAllItems(destination);
}

}  // namespace lab::rig
