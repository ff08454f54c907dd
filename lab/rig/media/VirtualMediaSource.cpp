#include "lab/rig/media/VirtualMediaSource.h"

#include <devicetopology.h>
#include <mferror.h>

#include <algorithm>
#include <string_view>

#include "lab/rig/bus/InterfaceClasses.h"
#include "lab/rig/media/VirtualExtensionUnit.h"

namespace lab::rig {
namespace {

// KSNODETYPE_VIDEO_PROCESSING
constexpr GUID kProcessingType{0xDFF229E5, 0xF70F, 0x11D0, {0xB9, 0x17, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};
// KSNODETYPE_DEV_SPECIFIC
constexpr GUID kVendorType{0x941C7AC0, 0xC559, 0x11D0, {0x8A, 0x2B, 0x00, 0xA0, 0xC9, 0x25, 0x5A, 0xC1}};

}  // namespace

HRESULT VirtualMediaSource::QueryInterface(REFIID iid, void** object) {
    IsCalled("QueryInterface");
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (iid == __uuidof(IUnknown) || iid == __uuidof(IMFMediaEventGenerator) ||
        iid == __uuidof(IMFMediaSource)) {
        *object = static_cast<IMFMediaSource*>(this);
    } else if (iid == __uuidof(IKsTopologyInfo)) {
        *object = static_cast<IKsTopologyInfo*>(this);
    } else {
        return E_NOINTERFACE;
    }
    AddReference();
    return S_OK;
}

HRESULT VirtualMediaSource::GetEvent(DWORD, IMFMediaEvent**) {
    IsCalled("GetEvent");
    return StreamsNothing();
}

HRESULT VirtualMediaSource::BeginGetEvent(IMFAsyncCallback*, IUnknown*) {
    IsCalled("BeginGetEvent");
    return StreamsNothing();
}

HRESULT VirtualMediaSource::EndGetEvent(IMFAsyncResult*, IMFMediaEvent**) {
    IsCalled("EndGetEvent");
    return StreamsNothing();
}

HRESULT VirtualMediaSource::QueueEvent(MediaEventType, REFGUID, HRESULT, const PROPVARIANT*) {
    IsCalled("QueueEvent");
    return StreamsNothing();
}

HRESULT VirtualMediaSource::GetCharacteristics(DWORD* characteristics) {
    IsCalled("GetCharacteristics");
    const HRESULT result = Check(characteristics, 0, 1);
    if (SUCCEEDED(result)) {
        *characteristics = MFMEDIASOURCE_IS_LIVE;
    }
    return result;
}

HRESULT VirtualMediaSource::CreatePresentationDescriptor(IMFPresentationDescriptor**) {
    IsCalled("CreatePresentationDescriptor");
    return StreamsNothing();
}

HRESULT VirtualMediaSource::Start(IMFPresentationDescriptor*, const GUID*, const PROPVARIANT*) {
    IsCalled("Start");
    return StreamsNothing();
}

HRESULT VirtualMediaSource::Stop() {
    IsCalled("Stop");
    return StreamsNothing();
}

HRESULT VirtualMediaSource::Pause() {
    IsCalled("Pause");
    return StreamsNothing();
}

HRESULT VirtualMediaSource::Shutdown() {
    IsCalled("Shutdown");
    return isShutDown_.exchange(true) ? MF_E_SHUTDOWN : S_OK;
}

HRESULT VirtualMediaSource::get_NumCategories(DWORD* count) {
    IsCalled("get_NumCategories");
    const HRESULT result = Check(count, 0, 1);
    if (SUCCEEDED(result)) {
        *count = 1;
    }
    return result;
}

HRESULT VirtualMediaSource::get_Category(DWORD index, GUID* category) {
    IsCalled("get_Category");
    const HRESULT result = Check(category, index, 1);
    if (SUCCEEDED(result)) {
        *category = kVideoCameraClass;
    }
    return result;
}

HRESULT VirtualMediaSource::get_NumConnections(DWORD* count) {
    IsCalled("get_NumConnections");
    const HRESULT result = Check(count, 0, 1);
    if (SUCCEEDED(result)) {
        *count = ConnectionCount();
    }
    return result;
}

HRESULT VirtualMediaSource::get_ConnectionInfo(DWORD index, KSTOPOLOGY_CONNECTION* connection) {
    IsCalled("get_ConnectionInfo");
    const HRESULT result = Check(connection, index, ConnectionCount());
    if (SUCCEEDED(result)) {
        *connection = {index, 0, index + 1, 1};
    }
    return result;
}

// The length is in bytes, with the NUL.
HRESULT VirtualMediaSource::get_NodeName(DWORD node, WCHAR* name, DWORD size, DWORD* nameLength) {
    IsCalled("get_NodeName");
    const auto nodes = bus_.Nodes(presence_);
    const HRESULT result = Check(nameLength, node, static_cast<DWORD>(nodes.size()));
    if (FAILED(result)) {
        return result;
    }
    const std::wstring_view text =
        nodes[node] == TopologyNode::Processing ? L"Video Processing" : L"Device Specific";
    *nameLength = static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR));
    if (name == nullptr || size < *nameLength) {
        return HRESULT_FROM_WIN32(ERROR_MORE_DATA);
    }
    std::ranges::copy(text, name);
    name[text.size()] = L'\0';
    return S_OK;
}

HRESULT VirtualMediaSource::get_NumNodes(DWORD* count) {
    IsCalled("get_NumNodes");
    const HRESULT result = Check(count, 0, 1);
    if (SUCCEEDED(result)) {
        *count = static_cast<DWORD>(bus_.Nodes(presence_).size());
    }
    return result;
}

HRESULT VirtualMediaSource::get_NodeType(DWORD node, GUID* type) {
    IsCalled("get_NodeType");
    const auto nodes = bus_.Nodes(presence_);
    const HRESULT result = Check(type, node, static_cast<DWORD>(nodes.size()));
    if (SUCCEEDED(result)) {
        *type = nodes[node] == TopologyNode::Processing ? kProcessingType : kVendorType;
    }
    return result;
}

HRESULT VirtualMediaSource::CreateNodeInstance(DWORD node, REFIID iid, void** instance) {
    IsCalled("CreateNodeInstance");
    const auto nodes = bus_.Nodes(presence_);
    const HRESULT result = Check(instance, node, static_cast<DWORD>(nodes.size()));
    if (FAILED(result)) {
        return result;
    }
    *instance = nullptr;
    if (nodes[node] != TopologyNode::ExtensionUnit && nodes[node] != TopologyNode::Foreign) {
        return E_NOINTERFACE;
    }
    const bool isForeign = nodes[node] == TopologyNode::Foreign;
    auto* const unit = new VirtualExtensionUnit(bus_, Library(), presence_, node, isForeign);
    const HRESULT asked = unit->QueryInterface(iid, instance);
    unit->Release();
    return asked;
}

HRESULT VirtualMediaSource::StreamsNothing() const {
    return isShutDown_ ? MF_E_SHUTDOWN : E_NOTIMPL;
}

HRESULT VirtualMediaSource::Check(const void* result, DWORD index, DWORD count) const {
    if (isShutDown_) {
        return MF_E_SHUTDOWN;
    }
    if (result == nullptr) {
        return E_POINTER;
    }
    return index < count ? S_OK : E_INVALIDARG;
}

// Each node is connected with the next.
DWORD VirtualMediaSource::ConnectionCount() const {
    const auto nodes = bus_.Nodes(presence_).size();
    return nodes > 1 ? static_cast<DWORD>(nodes - 1) : 0;
}

}  // namespace lab::rig
