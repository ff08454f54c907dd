#include "camera/ExtensionUnitKsControl.h"

#include "tests/camera/RefusedAllocation.h"
#include "tests/support/FakeMediaFoundation.h"
#include "tests/support/VirtualSlot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Microsoft::WRL::ComPtr;
using test_support::FakeCamera;
using test_support::FakeKsControl;
using test_support::FakeMediaFoundation;
using test_support::kDeviceSpecificNode;
using test_support::KsCall;
using test_support::kVideoProcessingNode;
using test_support::VirtualSlot;

constexpr GUID kUnit{0xC9606CCB, 0x594C, 0x4D25, {0xAF, 0x47, 0xCC, 0xC4, 0x96, 0x43, 0x59, 0x95}};
constexpr GUID kOtherSet{0x01020304, 0x0506, 0x0708, {0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10}};
constexpr GUID kIUnknown{0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
constexpr GUID kIKsControl{0x28F54685, 0x06FD, 0x11D2, {0xB2, 0x7A, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};
constexpr GUID kIMFMediaSource{0x279A808D, 0xAEC7, 0x40C8, {0x9C, 0x6B, 0xA6, 0xB4, 0x92, 0xC7, 0x8A, 0x66}};
constexpr HRESULT kDeviceGone = static_cast<HRESULT>(0x8007048F);

constexpr const char* kAskedForTopology = "source QueryInterface({720D4AC0-7533-11D0-A5D6-28DB04C10000})";

std::string Created(int node) {
    return "CreateNodeInstance(" + std::to_string(node) + ", {00000000-0000-0000-C000-000000000046})";
}

std::string AskedForType(int node) {
    return "get_NodeType(" + std::to_string(node) + ")";
}

// A camera whose nodes a test adds, and a control to attach to it.
class ExtensionUnitKsControlTest : public ::testing::Test {
  protected:
    ~ExtensionUnitKsControlTest() override {
        control_.Reset();
        EXPECT_EQ(mediaFoundation_.References(), 0);
    }

    ComPtr<IMFMediaSource> Source(FakeCamera& camera) {
        ComPtr<IMFMediaSource> source;
        EXPECT_EQ(camera.OwnActivation()->ActivateObject(kIMFMediaSource,
                                                         reinterpret_cast<void**>(source.GetAddressOf())),
                  S_OK);
        mediaFoundation_.Journal().Forget();
        return source;
    }

    HRESULT Attach() { return control_->Attach(Source(camera_)); }
    std::vector<std::string> Journal() { return mediaFoundation_.Journal().Lines(); }
    bool HasJournal(const std::string& line) {
        const auto lines = Journal();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }

    // The node id in a forwarded property call: which node was chosen. Also the number of the called node.
    ULONG ChosenNode() {
        KSPROPERTY property{};
        property.Set = kUnit;
        property.Id = 1;
        property.Flags = KSPROPERTY_TYPE_GET;
        ULONG bytesReturned = 0;
        control_->KsProperty(&property, sizeof property, nullptr, 0, &bytesReturned);
        ULONG number = 0;
        for (auto& node : camera_.Nodes()) {
            const auto calls = node.control.Calls();
            if (!calls.empty() && calls.back().Flags() == 0x10000001) {
                EXPECT_EQ(calls.back().NodeId(), number);
                return number;
            }
            ++number;
        }
        return 0xFFFFFFFF;
    }

    FakeMediaFoundation mediaFoundation_;
    FakeCamera& camera_ = mediaFoundation_.AddBareCamera(L"\\\\?\\camera", L"camera");
    ComPtr<ExtensionUnitKsControl> control_ = ExtensionUnitKsControl::Create();
};

using ExtensionUnitAttach = ExtensionUnitKsControlTest;

TEST_F(ExtensionUnitAttach, ReturnsTheFailureOfTheTopologyQuery) {
    camera_.AddExtensionUnit();
    camera_.results.topology = kDeviceGone;

    EXPECT_EQ(Attach(), kDeviceGone);

    EXPECT_EQ(Journal(), (std::vector<std::string>{kAskedForTopology, "source released"}));
}

TEST_F(ExtensionUnitAttach, ReturnsTheFailureOfTheNodeCount) {
    camera_.AddExtensionUnit();
    camera_.results.nodeCount = kDeviceGone;

    EXPECT_EQ(Attach(), kDeviceGone);

    EXPECT_FALSE(HasJournal(AskedForType(0)));
    EXPECT_EQ(mediaFoundation_.References(), 0);
}

TEST_F(ExtensionUnitAttach, FailsWithoutNodes) {
    EXPECT_EQ(Attach(), E_FAIL);

    EXPECT_FALSE(HasJournal(AskedForType(0)));
    EXPECT_EQ(mediaFoundation_.References(), 0);
}

TEST_F(ExtensionUnitAttach, FailsWithoutADeviceSpecificNode) {
    camera_.AddNode(kVideoProcessingNode);
    camera_.AddNode(kVideoProcessingNode);

    EXPECT_EQ(Attach(), E_FAIL);

    EXPECT_TRUE(HasJournal(AskedForType(0)));
    EXPECT_TRUE(HasJournal(AskedForType(1)));
    EXPECT_FALSE(HasJournal(Created(0)));
    EXPECT_FALSE(HasJournal(Created(1)));
    EXPECT_EQ(mediaFoundation_.References(), 0);
}

TEST_F(ExtensionUnitAttach, AsksEachNodeInOrderAndKeepsTheFirstThatPasses) {
    camera_.AddNode(kVideoProcessingNode);
    camera_.AddNode(kDeviceSpecificNode).control.SetAnswer([](const KsCall&) { return E_FAIL; });
    camera_.AddExtensionUnit();
    camera_.AddExtensionUnit();

    EXPECT_EQ(Attach(), S_OK);

    EXPECT_EQ(Journal(), (std::vector<std::string>{
                             kAskedForTopology,
                             "get_NumNodes",
                             AskedForType(0),
                             AskedForType(1),
                             Created(1),
                             "node 1 released",
                             AskedForType(2),
                             Created(2),
                             "topology released",
                             "source released",
                         }));
    EXPECT_EQ(ChosenNode(), 2u);
}

TEST_F(ExtensionUnitAttach, ProbesTheCommandControlsSupportOnTheNode) {
    camera_.AddNode(kVideoProcessingNode);
    camera_.AddNode(kVideoProcessingNode);
    auto& node = camera_.AddExtensionUnit();

    EXPECT_EQ(Attach(), S_OK);

    const auto calls = node.control.Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].operation, KsCall::Operation::Property);
    EXPECT_EQ(calls[0].descriptor,
              (std::vector<BYTE>{0xCB, 0x6C, 0x60, 0xC9, 0x4C, 0x59, 0x25, 0x4D,
                                 0xAF, 0x47, 0xCC, 0xC4, 0x96, 0x43, 0x59, 0x95,  // the extension unit
                                 1,    0,    0,    0,                             // its command control
                                 0x00, 0x01, 0x00, 0x10,                          // support, of a node
                                 2,    0,    0,    0,                             // which node
                                 0,    0,    0,    0}));
    EXPECT_EQ(calls[0].data, nullptr);
    EXPECT_EQ(calls[0].dataLength, 0u);
}

TEST_F(ExtensionUnitAttach, AsksTheNodeInstanceForItsKsControl) {
    auto& node = camera_.AddExtensionUnit();

    EXPECT_EQ(Attach(), S_OK);

    EXPECT_EQ(node.control.Queries(), (std::vector<GUID>{kIUnknown, kIKsControl}));
}

TEST_F(ExtensionUnitAttach, TakesAnySuccessOfTheProbe) {
    camera_.AddNode(kDeviceSpecificNode).control.SetAnswer([](const KsCall&) { return S_FALSE; });

    EXPECT_EQ(Attach(), S_OK);

    EXPECT_EQ(ChosenNode(), 0u);
}

TEST_F(ExtensionUnitAttach, KeepsOneReferenceOnTheNodeAndNoneOnTheRest) {
    camera_.AddNode(kDeviceSpecificNode).control.SetControlResult(E_NOINTERFACE);
    auto& node = camera_.AddExtensionUnit();

    EXPECT_EQ(Attach(), S_OK);

    EXPECT_EQ(camera_.SourceReferences(), 0);
    EXPECT_EQ(camera_.TopologyReferences(), 0);
    EXPECT_EQ(camera_.Nodes().front().control.References(), 0);
    EXPECT_EQ(node.control.References(), 1);
    control_.Reset();
    EXPECT_EQ(node.control.References(), 0);
}

struct SkippedNode {
    const char* name;
    std::function<void(FakeCamera::Node&)> spoil;
    bool isInstanceCreated;
};

std::ostream& operator<<(std::ostream& stream, const SkippedNode& skipped) {
    return stream << skipped.name;
}

class ExtensionUnitAttachSkips : public ExtensionUnitKsControlTest,
                                 public ::testing::WithParamInterface<SkippedNode> {};

TEST_P(ExtensionUnitAttachSkips, TheNodeAndLeavesNothingOfItBehind) {
    auto& spoilt = camera_.AddExtensionUnit();
    GetParam().spoil(spoilt);
    camera_.AddExtensionUnit();

    EXPECT_EQ(Attach(), S_OK);

    EXPECT_EQ(HasJournal(Created(0)), GetParam().isInstanceCreated);
    EXPECT_EQ(spoilt.control.References(), 0);
    EXPECT_EQ(ChosenNode(), 1u);
}

TEST_P(ExtensionUnitAttachSkips, TheOnlyNodeAndFails) {
    GetParam().spoil(camera_.AddExtensionUnit());

    EXPECT_EQ(Attach(), E_FAIL);

    EXPECT_EQ(mediaFoundation_.References(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    , ExtensionUnitAttachSkips,
    ::testing::Values(
        SkippedNode{"WithoutAnswerToItsType", [](auto& node) { node.typeResult = E_FAIL; }, false},
        SkippedNode{"WithoutType", [](auto& node) { node.givesType = false; }, false},
        SkippedNode{"OfAnotherType", [](auto& node) { node.type = kVideoProcessingNode; }, false},
        SkippedNode{"WithoutInstance", [](auto& node) { node.createResult = E_ACCESSDENIED; }, true},
        SkippedNode{"WithoutKsControl", [](auto& node) { node.control.SetControlResult(E_NOINTERFACE); },
                    true},
        SkippedNode{"ThatFailsTheProbe",
                    [](auto& node) { node.control.SetAnswer([](const KsCall&) { return kDeviceGone; }); },
                    true}),
    [](const auto& instance) { return std::string(instance.param.name); });

// The type is read into a zeroed GUID for each node: the type of the node before is not taken for this one's.
TEST_F(ExtensionUnitAttach, DoesNotTakeOverTheTypeOfTheNodeBefore) {
    camera_.AddNode(kDeviceSpecificNode).createResult = E_FAIL;
    camera_.AddExtensionUnit().givesType = false;

    EXPECT_EQ(Attach(), E_FAIL);

    EXPECT_FALSE(HasJournal(Created(1)));
}

// Node objects may come from a camera vendor's own plug-in.
TEST_F(ExtensionUnitAttach, SurvivesANodeThatSucceedsWithANullInstance) {
    camera_.AddExtensionUnit().givesInstance = false;
    camera_.AddExtensionUnit();

    EXPECT_EQ(Attach(), S_OK);

    EXPECT_EQ(ChosenNode(), 1u);
}

TEST_F(ExtensionUnitAttach, SurvivesAnInstanceThatSucceedsWithANullControl) {
    camera_.AddExtensionUnit().control.SetControlResult(S_OK, false);
    camera_.AddExtensionUnit();

    EXPECT_EQ(Attach(), S_OK);

    EXPECT_EQ(ChosenNode(), 1u);
}

TEST_F(ExtensionUnitAttach, SurvivesASourceThatSucceedsWithANullTopology) {
    camera_.AddExtensionUnit();
    camera_.results.givesTopology = false;

    EXPECT_EQ(Attach(), E_FAIL);
}

TEST_F(ExtensionUnitAttach, ReplacesAndReleasesAnEarlierNode) {
    auto& first = camera_.AddExtensionUnit();
    FakeCamera& other = mediaFoundation_.AddBareCamera(L"\\\\?\\other", L"other");
    other.AddNode(kVideoProcessingNode);
    auto& second = other.AddExtensionUnit();
    EXPECT_EQ(Attach(), S_OK);

    EXPECT_EQ(control_->Attach(Source(other)), S_OK);

    EXPECT_EQ(first.control.References(), 0);
    EXPECT_EQ(second.control.References(), 1);
    KSPROPERTY property{};
    control_->KsProperty(&property, sizeof property, nullptr, 0, nullptr);
    EXPECT_EQ(second.control.Calls().back().NodeId(), 1u);
}

TEST_F(ExtensionUnitKsControlTest, AnswersEveryForwardedCallWithFailWhileDetached) {
    KSPROPERTY descriptor{};
    ULONG bytesReturned = 7;
    std::array<BYTE, 4> data{};

    EXPECT_EQ(control_->KsProperty(&descriptor, sizeof descriptor, data.data(), 4, &bytesReturned), E_FAIL);
    EXPECT_EQ(control_->KsMethod(&descriptor, sizeof descriptor, data.data(), 4, &bytesReturned), E_FAIL);
    EXPECT_EQ(control_->KsEvent(&descriptor, sizeof descriptor, data.data(), 4, &bytesReturned), E_FAIL);
}

TEST_F(ExtensionUnitKsControlTest, StaysDetachedAfterAFailedAttach) {
    auto& node = camera_.AddNode(kDeviceSpecificNode);
    node.control.SetAnswer([](const KsCall&) { return E_FAIL; });
    EXPECT_EQ(Attach(), E_FAIL);
    node.control.SetAnswer({});
    KSPROPERTY descriptor{};
    ULONG bytesReturned = 0;

    EXPECT_EQ(control_->KsProperty(&descriptor, sizeof descriptor, nullptr, 0, &bytesReturned), E_FAIL);

    EXPECT_EQ(node.control.Calls().size(), 1u) << "only the probe reached the node";
}

// The operations of IKsControl, called through their slots.
struct ForwardedOperation {
    const char* name;
    KsCall::Operation operation;
    std::size_t slot;
};

std::ostream& operator<<(std::ostream& stream, const ForwardedOperation& forwarded) {
    return stream << forwarded.name;
}

class ExtensionUnitForwards : public ExtensionUnitKsControlTest,
                              public ::testing::WithParamInterface<ForwardedOperation> {
  protected:
    ExtensionUnitForwards() {
        camera_.AddNode(kVideoProcessingNode);
        camera_.AddNode(kVideoProcessingNode);
        camera_.AddNode(kVideoProcessingNode);
        node_ = &camera_.AddExtensionUnit();
        EXPECT_EQ(Attach(), S_OK);
        node_->control.SetAnswer([this](const KsCall& call) {
            if (call.bytesReturned != nullptr) {
                *call.bytesReturned = 99;
            }
            return result_;
        });
    }

    HRESULT Call(KSIDENTIFIER& descriptor, ULONG descriptorLength, void* data, ULONG dataLength,
                 ULONG* bytesReturned) {
        using Slot = HRESULT(STDMETHODCALLTYPE*)(IKsControl*, KSIDENTIFIER*, ULONG, void*, ULONG, ULONG*);
        IKsControl* const control = control_.Get();
        Slot* const slots = *reinterpret_cast<Slot**>(control);
        return slots[GetParam().slot](control, &descriptor, descriptorLength, data, dataLength,
                                      bytesReturned);
    }

    KsCall LastCall() const { return node_->control.Calls().back(); }

    FakeCamera::Node* node_ = nullptr;
    HRESULT result_ = S_OK;
};

TEST_P(ExtensionUnitForwards, WithTheNodeIdAndTheTopologyFlagAdded) {
    KSIDENTIFIER descriptor{};
    descriptor.Set = kOtherSet;
    descriptor.Id = 0x01020304;
    descriptor.Flags = KSPROPERTY_TYPE_GET;
    ULONG bytesReturned = 0;

    EXPECT_EQ(Call(descriptor, sizeof descriptor, nullptr, 0, &bytesReturned), S_OK);

    EXPECT_EQ(LastCall().operation, GetParam().operation);
    ASSERT_EQ(LastCall().descriptor.size(), 32u);
    EXPECT_EQ(LastCall().Set(), kOtherSet);
    EXPECT_EQ(LastCall().Id(), 0x01020304u);
    EXPECT_EQ(LastCall().Flags(), 0x10000001u);
    EXPECT_EQ(LastCall().NodeId(), 3u);
}

TEST_P(ExtensionUnitForwards, EveryFlagOfTheCaller) {
    KSIDENTIFIER descriptor{};
    ULONG bytesReturned = 0;

    descriptor.Flags = 0xE0000602;
    Call(descriptor, sizeof descriptor, nullptr, 0, &bytesReturned);
    EXPECT_EQ(LastCall().Flags(), 0xF0000602u);
    descriptor.Flags = 0x10000200;
    Call(descriptor, sizeof descriptor, nullptr, 0, &bytesReturned);
    EXPECT_EQ(LastCall().Flags(), 0x10000200u);
    EXPECT_EQ(descriptor.Flags, 0x10000200u) << "the caller's own descriptor is not written to";
}

TEST_P(ExtensionUnitForwards, WithoutUseOfTheCallersDescriptorLength) {
    KSIDENTIFIER descriptor{};
    ULONG bytesReturned = 0;

    for (const ULONG length : {0ul, 24ul, 4096ul}) {
        Call(descriptor, length, nullptr, 0, &bytesReturned);
        EXPECT_EQ(LastCall().descriptor.size(), 32u);
    }
}

TEST_P(ExtensionUnitForwards, TheCallersDataAsItIs) {
    KSIDENTIFIER descriptor{};
    std::array<BYTE, 5> data{};
    ULONG bytesReturned = 17;

    Call(descriptor, sizeof descriptor, data.data(), 5, &bytesReturned);

    EXPECT_EQ(LastCall().data, data.data());
    EXPECT_EQ(LastCall().dataLength, 5u);
    EXPECT_EQ(LastCall().bytesReturned, &bytesReturned);
    EXPECT_EQ(LastCall().bytesReturnedBefore, 17u);
    EXPECT_EQ(bytesReturned, 99u);
    Call(descriptor, sizeof descriptor, nullptr, 3, nullptr);
    EXPECT_EQ(LastCall().data, nullptr);
    EXPECT_EQ(LastCall().bytesReturned, nullptr);
}

TEST_P(ExtensionUnitForwards, TheNodesResultUnchanged) {
    KSIDENTIFIER descriptor{};
    ULONG bytesReturned = 0;

    for (const HRESULT result : {S_OK, S_FALSE, E_NOTIMPL, kDeviceGone}) {
        result_ = result;
        EXPECT_EQ(Call(descriptor, sizeof descriptor, nullptr, 0, &bytesReturned), result);
    }
}

INSTANTIATE_TEST_SUITE_P(, ExtensionUnitForwards,
                         ::testing::Values(ForwardedOperation{"Properties", KsCall::Operation::Property, 3},
                                           ForwardedOperation{"Methods", KsCall::Operation::Method, 4},
                                           ForwardedOperation{"Events", KsCall::Operation::Event, 5}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(ExtensionUnitKsControlTest, AnswersForIUnknownAndIKsControlWithAReference) {
    for (const GUID& interfaceId : {kIUnknown, kIKsControl}) {
        void* object = nullptr;

        EXPECT_EQ(control_->QueryInterface(interfaceId, &object), S_OK);

        EXPECT_EQ(object, static_cast<void*>(static_cast<IKsControl*>(control_.Get())));
        EXPECT_EQ(control_->AddRef(), 3u) << "the test's own, the query's and this one";
        while (control_->Release() > 1) {
        }
    }
}

TEST_F(ExtensionUnitKsControlTest, RefusesEveryOtherInterfaceWithANullResult) {
    for (const GUID& interfaceId : {kIMFMediaSource, kUnit, GUID{}}) {
        void* object = this;

        EXPECT_EQ(control_->QueryInterface(interfaceId, &object), static_cast<HRESULT>(0x80004002));

        EXPECT_EQ(object, nullptr);
    }
    EXPECT_EQ(control_->AddRef(), 2u);
    EXPECT_EQ(control_->Release(), 1u);
}

TEST_F(ExtensionUnitKsControlTest, RefusesANullResultPointer) {
    EXPECT_EQ(control_->QueryInterface(kIUnknown, nullptr), E_POINTER);
}

TEST_F(ExtensionUnitKsControlTest, CountsReferencesAndReturnsTheNewCount) {
    EXPECT_EQ(control_->AddRef(), 2u);
    EXPECT_EQ(control_->AddRef(), 3u);
    EXPECT_EQ(control_->Release(), 2u);
    EXPECT_EQ(control_->Release(), 1u);
}

TEST_F(ExtensionUnitKsControlTest, AnswersThroughTheSlotsOfIUnknown) {
    using QuerySlot = HRESULT(STDMETHODCALLTYPE*)(IKsControl*, const GUID*, void**);
    using CountSlot = ULONG(STDMETHODCALLTYPE*)(IKsControl*);
    IKsControl* const control = control_.Get();
    void** const slots = *reinterpret_cast<void***>(control);
    void* object = nullptr;

    EXPECT_EQ(reinterpret_cast<QuerySlot>(slots[0])(control, &kIKsControl, &object), S_OK);
    EXPECT_EQ(object, static_cast<void*>(control));
    EXPECT_EQ(reinterpret_cast<CountSlot>(slots[1])(control), 3u);
    EXPECT_EQ(reinterpret_cast<CountSlot>(slots[2])(control), 2u);
    EXPECT_EQ(reinterpret_cast<CountSlot>(slots[2])(control), 1u);
}

TEST_F(ExtensionUnitKsControlTest, CountsReferencesOfTwoThreadsTogether) {
    std::atomic<int> ready{0};
    const auto useIt = [this, &ready] {
        ++ready;
        while (ready < 2) {
            SwitchToThread();
        }
        for (int round = 0; round < 2000000; ++round) {
            control_->AddRef();
            control_->Release();
        }
    };
    std::thread other(useIt);
    useIt();
    other.join();

    EXPECT_EQ(control_->AddRef(), 2u);
    EXPECT_EQ(control_->Release(), 1u);
}

TEST_F(ExtensionUnitKsControlTest, CountsAsOneOfTheModulesObjectsUntilItsLastRelease) {
    EXPECT_EQ(ExtensionUnitKsControl::ModuleObjectCount(), 1u);
    auto second = ExtensionUnitKsControl::Create();
    EXPECT_EQ(ExtensionUnitKsControl::ModuleObjectCount(), 2u);
    second->AddRef();
    second->Release();
    EXPECT_EQ(ExtensionUnitKsControl::ModuleObjectCount(), 2u);

    second.Reset();

    EXPECT_EQ(ExtensionUnitKsControl::ModuleObjectCount(), 1u);
}

TEST_F(ExtensionUnitKsControlTest, IsNotDestroyedTwiceWhenItsNodeTakesAReferenceWhileItIsDestroyed) {
    auto& node = camera_.AddExtensionUnit();
    EXPECT_EQ(Attach(), S_OK);
    ExtensionUnitKsControl* const control = control_.Get();
    std::vector<ULONG> counts;
    node.control.OnLastRelease([&] {
        counts.push_back(control->AddRef());
        counts.push_back(control->Release());
    });

    control_.Reset();

    EXPECT_EQ(counts, (std::vector<ULONG>{0xC0000002, 0xC0000001}));
    EXPECT_EQ(ExtensionUnitKsControl::ModuleObjectCount(), 0u);
}

TEST_F(ExtensionUnitKsControlTest, IsNotMadeWithoutMemory) {
    const RefusedAllocation refused;

    EXPECT_EQ(ExtensionUnitKsControl::Create(), nullptr);

    EXPECT_EQ(ExtensionUnitKsControl::ModuleObjectCount(), 1u) << "only the test's own";
}

// The interfaces that this toolchain's headers leave out must have their operations where Windows has them.
TEST(KernelStreaming, HasTheTopologysOperationsInTheirSlots) {
    EXPECT_EQ(VirtualSlot(&IKsTopologyInfo::get_NumCategories), 3u);
    EXPECT_EQ(VirtualSlot(&IKsTopologyInfo::get_Category), 4u);
    EXPECT_EQ(VirtualSlot(&IKsTopologyInfo::get_NumConnections), 5u);
    EXPECT_EQ(VirtualSlot(&IKsTopologyInfo::get_ConnectionInfo), 6u);
    EXPECT_EQ(VirtualSlot(&IKsTopologyInfo::get_NodeName), 7u);
    EXPECT_EQ(VirtualSlot(&IKsTopologyInfo::get_NumNodes), 8u);
    EXPECT_EQ(VirtualSlot(&IKsTopologyInfo::get_NodeType), 9u);
    EXPECT_EQ(VirtualSlot(&IKsTopologyInfo::CreateNodeInstance), 10u);
}

}  // namespace
