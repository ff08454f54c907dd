#include "check/CameraQuery.h"

#include "camera/MediaFoundationPlatform.h"
#include "check/InspectedCamera.h"
#include "check/LinkParts.h"
#include "check/Utf8.h"
#include "check/VideoSources.h"
#include "discovery/DevicePathMatching.h"
#include "discovery/WatchedProducts.h"

#include <algorithm>
#include <set>

using Microsoft::WRL::ComPtr;

namespace check {
namespace {

bool IsOfVendor(const std::wstring& link) {
    static const std::vector<DeviceFilter> kVendor{{kVendorText, L"", L""}};
    return MatchesFilters(ToLowerCopy(link), kVendor);
}

// What opening it and asking it gave. True when it is one of the family's or of the vendor's.
bool Inspect(const ComPtr<IMFActivate>& source, std::wstring& link, CameraState& camera) {
    InspectedCamera inspected;
    const HRESULT opened = inspected.Open(source);
    link = inspected.GetSymbolicLink();
    camera.name = Utf8(inspected.GetFriendlyName());
    if (FAILED(opened)) {
        camera.openError = static_cast<std::uint32_t>(opened);
        return IsOfVendor(link);
    }
    const HRESULT found = inspected.FindExtensionUnit();
    if (FAILED(found)) {
        camera.unitError = static_cast<std::uint32_t>(found);
        return IsOfVendor(link);
    }
    std::wstring version;
    camera.versionError = static_cast<std::uint32_t>(inspected.ReadVersion(version));
    camera.version = Utf8(version);
    return true;
}

std::wstring LinkOf(const ComPtr<IMFActivate>& source) {
    WCHAR* allocated = nullptr;
    UINT32 length = 0;
    std::wstring link;
    if (SUCCEEDED(source->GetAllocatedString(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK,
                                             &allocated, &length)) &&
        allocated != nullptr) {
        link.assign(allocated, length);
    }
    CoTaskMemFree(allocated);
    return link;
}

// A camera is listed in several ways; the one that answers is asked once. `others` has the devices of other
// makers' cameras.
void Add(const ComPtr<IMFActivate>& source, CamerasState& state, std::set<std::string>& others) {
    const std::string link = Utf8(LinkOf(source));
    const std::string device = DeviceOfLink(link);
    const auto known = std::find_if(state.cameras.begin(), state.cameras.end(),
                                    [&device](const CameraState& camera) { return camera.device == device; });
    const CameraListing listing{link, std::string(CategoryOfLink(link))};
    if (known != state.cameras.end() && known->openError == 0 && known->unitError == 0) {
        const bool isThere = std::any_of(known->listings.begin(), known->listings.end(),
                                         [&link](const CameraListing& each) { return each.link == link; });
        if (!isThere) {
            known->listings.push_back(listing);
        }
        return;
    }
    CameraState camera;
    std::wstring opened;
    if (!Inspect(source, opened, camera)) {
        others.insert(device);
        return;
    }
    camera.device = device;
    if (known != state.cameras.end()) {
        camera.listings = known->listings;
        state.cameras.erase(known);
    }
    camera.listings.push_back(listing);
    state.cameras.push_back(std::move(camera));
}

}  // namespace

CamerasState QueryCameras() {
    CamerasState state;
    MediaFoundationPlatform platform;
    HRESULT result = platform.EnsureStarted();
    std::vector<ComPtr<IMFActivate>> sources;
    if (SUCCEEDED(result)) {
        result = ListVideoSources(sources);
    }
    if (FAILED(result)) {
        state.mediaError = static_cast<std::uint32_t>(result);
    }
    std::set<std::string> others;
    for (const ComPtr<IMFActivate>& source : sources) {
        Add(source, state, others);
    }
    state.others = static_cast<unsigned>(others.size());
    return state;
}

}  // namespace check
