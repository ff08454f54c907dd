#include <windows.h>
#include <mfapi.h>
#include <mferror.h>
#include <mfidl.h>
#include <objbase.h>
#include <wrl/client.h>

#include <string>
#include <vector>

#include "lab/rig/bus/InterfaceClasses.h"
#include "lab/rig/media/VirtualActivate.h"
#include "lab/rig/media/WatchedAttributes.h"
#include "lab/rig/process/ImportTable.h"
#include "lab/rig/redirects/Redirects.h"
#include "lab/rig/run/Rig.h"

namespace lab::rig {
namespace {

using Microsoft::WRL::ComPtr;

constexpr wchar_t kFriendlyName[] = L"Morrow KV400";

decltype(&::MFStartup) startMedia = nullptr;
decltype(&::MFShutdown) shutDownMedia = nullptr;
decltype(&::MFCreateAttributes) createAttributes = nullptr;
decltype(&::MFEnumDeviceSources) enumDeviceSources = nullptr;
// The toolchain's headers do not declare this one.
HRESULT(WINAPI* createDeviceSourceActivate)(IMFAttributes*, IMFActivate**) = nullptr;

// A service starts Media Foundation in its passes; another program may do so wherever its own code runs.
bool isService = true;

bool Holds(IMFAttributes& attributes, const GUID& key, const GUID& wanted) {
    GUID value{};
    return SUCCEEDED(attributes.GetGUID(key, &value)) && value == wanted;
}

HRESULT DescribeSource(const std::wstring& link, ComPtr<IMFAttributes>& attributes) {
    HRESULT result = MFCreateAttributes(&attributes, 3);
    if (SUCCEEDED(result)) {
        result = attributes->SetGUID(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE,
                                     MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID);
    }
    if (SUCCEEDED(result)) {
        result = attributes->SetString(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK, link.c_str());
    }
    if (SUCCEEDED(result)) {
        result = attributes->SetString(MF_DEVSOURCE_ATTRIBUTE_FRIENDLY_NAME, kFriendlyName);
    }
    return result;
}

// One activation object for each link, in an array that the caller frees with CoTaskMemFree.
HRESULT CreateActivates(Rig& rig, const std::vector<std::wstring>& links, IMFActivate**& array) {
    std::vector<ComPtr<IMFActivate>> activates;
    for (const std::wstring& link : links) {
        ComPtr<IMFAttributes> attributes;
        if (const HRESULT result = DescribeSource(link, attributes); FAILED(result)) {
            return result;
        }
        ComPtr<IMFActivate> activate;
        *activate.ReleaseAndGetAddressOf() =
            new VirtualActivate(rig.TheBus(), rig.TheContracts(), attributes);
        activates.push_back(activate);
    }
    array = static_cast<IMFActivate**>(CoTaskMemAlloc(activates.size() * sizeof(IMFActivate*)));
    if (array == nullptr) {
        return E_OUTOFMEMORY;
    }
    for (std::size_t index = 0; index < activates.size(); ++index) {
        array[index] = activates[index].Detach();
    }
    return S_OK;
}

HRESULT WINAPI StartMedia(ULONG version, DWORD flags) {
    Rig* const rig = Rig::Get();
    if (rig != nullptr && rig->TheContracts().media.TakeFailure()) {
        return MF_E_DISABLED_IN_SAFEMODE;
    }
    const HRESULT result = startMedia(version, flags);
    if (rig != nullptr && SUCCEEDED(result)) {
        rig->TheContracts().media.Started(!isService || rig->Controls().IsHandlingHere());
    }
    return result;
}

HRESULT WINAPI ShutDownMedia() {
    const HRESULT result = shutDownMedia();
    Rig* const rig = Rig::Get();
    if (rig != nullptr && SUCCEEDED(result)) {
        rig->TheContracts().media.ShutDown();
    }
    return result;
}

HRESULT WINAPI CreateWatchedAttributes(IMFAttributes** attributes, UINT32 size) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr || attributes == nullptr) {
        return createAttributes(attributes, size);
    }
    *attributes = nullptr;
    ComPtr<IMFAttributes> store;
    const HRESULT result = createAttributes(&store, size);
    if (SUCCEEDED(result)) {
        *attributes = new WatchedAttributes(rig->TheContracts().com, store);
    }
    return result;
}

HRESULT WINAPI EnumDeviceSources(IMFAttributes* attributes, IMFActivate*** array, UINT32* count) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr) {
        return enumDeviceSources(attributes, array, count);
    }
    if (attributes == nullptr || array == nullptr || count == nullptr) {
        return E_INVALIDARG;
    }
    *array = nullptr;
    *count = 0;
    if (const HRESULT result = rig->TheContracts().media.Check("MFEnumDeviceSources"); FAILED(result)) {
        return result;
    }
    if (!Holds(*attributes, MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE,
               MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID)) {
        return MF_E_ATTRIBUTENOTFOUND;
    }
    const bool sensors =
        Holds(*attributes, MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_CATEGORY, kSensorCameraClass);
    const auto links = rig->TheBus().SourceLinks(sensors ? SourceKind::SensorCamera : SourceKind::Capture);
    if (links.empty()) {
        return S_OK;
    }
    const HRESULT result = CreateActivates(*rig, links, *array);
    if (SUCCEEDED(result)) {
        *count = static_cast<UINT32>(links.size());
    }
    return result;
}

HRESULT WINAPI CreateDeviceSourceActivate(IMFAttributes* attributes, IMFActivate** activate) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr) {
        return createDeviceSourceActivate(attributes, activate);
    }
    if (attributes == nullptr || activate == nullptr) {
        return E_INVALIDARG;
    }
    *activate = nullptr;
    if (const HRESULT result = rig->TheContracts().media.Check("MFCreateDeviceSourceActivate");
        FAILED(result)) {
        return result;
    }
    if (!Holds(*attributes, MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE,
               MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID)) {
        return MF_E_ATTRIBUTENOTFOUND;
    }
    ComPtr<IMFAttributes> own;
    HRESULT result = MFCreateAttributes(&own, 3);
    if (SUCCEEDED(result)) {
        result = attributes->CopyAllItems(own.Get());
    }
    if (SUCCEEDED(result)) {
        *activate = new VirtualActivate(rig->TheBus(), rig->TheContracts(), own);
    }
    return result;
}

}  // namespace

void RedirectMediaFoundation() {
    isService = IsImported("RegisterServiceCtrlHandlerExW");
    Redirect("MFStartup", &StartMedia, startMedia);
    Redirect("MFShutdown", &ShutDownMedia, shutDownMedia);
    Redirect("MFCreateAttributes", &CreateWatchedAttributes, createAttributes);
    Redirect("MFEnumDeviceSources", &EnumDeviceSources, enumDeviceSources);
    Redirect("MFCreateDeviceSourceActivate", &CreateDeviceSourceActivate, createDeviceSourceActivate);
}

}  // namespace lab::rig
