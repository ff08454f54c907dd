#include "check/VideoSources.h"

#include "camera/KernelStreaming.h"
#include "camera/MediaFoundation.h"

#include <span>

using Microsoft::WRL::ComPtr;

namespace check {
namespace {

// Takes over the references of an array in COM's memory, and frees it.
void TakeOver(IMFActivate** array, UINT32 count, std::vector<ComPtr<IMFActivate>>& sources) {
    for (IMFActivate* const source : std::span(array, count)) {
        if (source != nullptr) {
            ComPtr<IMFActivate> owned;
            *owned.GetAddressOf() = source;
            sources.push_back(std::move(owned));
        }
    }
    CoTaskMemFree(array);
}

HRESULT List(const GUID* category, std::vector<ComPtr<IMFActivate>>& sources) {
    ComPtr<IMFAttributes> attributes;
    HRESULT result = MFCreateAttributes(attributes.GetAddressOf(), 2);
    if (FAILED(result)) {
        return result;
    }
    result = attributes->SetGUID(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE,
                                 MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID);
    if (SUCCEEDED(result) && category != nullptr) {
        result = attributes->SetGUID(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_CATEGORY, *category);
    }
    if (FAILED(result)) {
        return result;
    }
    IMFActivate** array = nullptr;
    UINT32 count = 0;
    result = MFEnumDeviceSources(attributes.Get(), &array, &count);
    if (SUCCEEDED(result) && array != nullptr) {
        TakeOver(array, count, sources);
    }
    return result;
}

}  // namespace

HRESULT ListVideoSources(std::vector<ComPtr<IMFActivate>>& sources) {
    const HRESULT result = List(&kSensorCameraCategory, sources);
    return FAILED(result) ? result : List(nullptr, sources);
}

}  // namespace check
