#pragma once

#include "tests/support/CallJournal.h"
#include "tests/support/FakeFirmware.h"
#include "tests/support/FakeKsControl.h"
#include "tests/support/TaskMemory.h"

#include <windows.h>
#include <mfobjects.h>

#include <list>
#include <memory>
#include <string>

namespace test_support {

// Types of topology nodes.
inline constexpr GUID kDeviceSpecificNode{
    0x941C7AC0, 0xC559, 0x11D0, {0x8A, 0x2B, 0x00, 0xA0, 0xC9, 0x25, 0x5A, 0xC1}};
inline constexpr GUID kVideoProcessingNode{
    0xDFF229E5, 0xF70F, 0x11D0, {0xB9, 0x17, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};

// One way in which Media Foundation exposes a camera: an activation object for the list, another one of the
// program's own making, the media source, its topology and the topology's nodes. All of them belong to the
// fake and only count their references, so that a test sees whether these came back to 0; the program must
// have let go of them before the fake goes. The results may be changed between calls.
class FakeCamera {
  public:
    struct Node {
        GUID type = kDeviceSpecificNode;
        HRESULT typeResult = S_OK;  // of get_NodeType
        bool givesType = true;
        HRESULT createResult = S_OK;  // of CreateNodeInstance
        bool givesInstance = true;
        FakeKsControl control;
    };

    // What the calls answer; all succeed at first. A call that "gives" nothing succeeds and leaves its result
    // null.
    struct Results {
        HRESULT symbolicLink = S_OK;  // GetAllocatedString
        HRESULT friendlyName = S_OK;  // GetAllocatedString
        bool givesTexts = true;
        HRESULT ownActivation = S_OK;  // MFCreateDeviceSourceActivate
        bool givesOwnActivation = true;
        HRESULT activate = S_OK;  // ActivateObject
        bool givesSource = true;
        HRESULT topology = S_OK;  // the source's query for its topology
        bool givesTopology = true;
        HRESULT nodeCount = S_OK;  // get_NumNodes
    };

    // The journal and the memory must outlive the camera. No nodes at first.
    FakeCamera(CallJournal& journal, TaskMemory& memory, std::wstring symbolicLink,
               std::wstring friendlyName);
    ~FakeCamera();

    FakeCamera(const FakeCamera&) = delete;
    FakeCamera& operator=(const FakeCamera&) = delete;

    Node& AddNode(const GUID& type);
    // A device-specific node with the firmware behind it.
    Node& AddExtensionUnit();

    [[nodiscard]] const std::wstring& SymbolicLink() const { return symbolicLink_; }
    [[nodiscard]] const std::wstring& FriendlyName() const { return friendlyName_; }
    [[nodiscard]] std::list<Node>& Nodes() { return nodes_; }
    [[nodiscard]] FakeFirmware& Firmware() { return firmware_; }

    // In which lists the camera is.
    bool isSensorCamera = true;
    bool isVideoCapture = true;
    Results results;

    // References handed out and not given back.
    [[nodiscard]] long ListedActivationReferences() const;
    [[nodiscard]] long OwnActivationReferences() const;
    [[nodiscard]] long SourceReferences() const;
    [[nodiscard]] long TopologyReferences() const;
    // Of all of these and of the nodes.
    [[nodiscard]] long References() const;
    [[nodiscard]] int Shutdowns() const;

    // The activation object for a list, and the program's own; without a reference for the taker.
    [[nodiscard]] IMFActivate* ListedActivation();
    [[nodiscard]] IMFActivate* OwnActivation();

  private:
    class Activation;
    class Source;
    class Topology;

    CallJournal& journal_;
    TaskMemory& memory_;
    std::wstring symbolicLink_;
    std::wstring friendlyName_;
    std::list<Node> nodes_;
    FakeFirmware firmware_;
    std::unique_ptr<Topology> topology_;
    std::unique_ptr<Source> source_;
    std::unique_ptr<Activation> listedActivation_;
    std::unique_ptr<Activation> ownActivation_;
};

}  // namespace test_support
