#include <windows.h>
#include <mfidl.h>
#include <mfapi.h>
#include <mferror.h>
#include <devicetopology.h>
#include <wrl/client.h>

#include "lab/rig/media/KsTopologyInfo.h"
#include "lab/rig/media/VirtualActivate.h"
#include "lab/rig/media/VirtualMediaSource.h"
#include "tests/lab/rig/bus/BusFixture.h"
#include "tests/lab/rig/contracts/ToldBreaches.h"

using namespace lab::rig;
using Microsoft::WRL::ComPtr;

namespace {

constexpr GUID kUnit{0xC9606CCB, 0x594C, 0x4D25, {0xAF, 0x47, 0xCC, 0xC4, 0x96, 0x43, 0x59, 0x95}};
constexpr GUID kDevSpecific{0x941C7AC0, 0xC559, 0x11D0, {0x8A, 0x2B, 0x00, 0xA0, 0xC9, 0x25, 0x5A, 0xC1}};
constexpr HRESULT kNotConnected = static_cast<HRESULT>(0x8007048F);

class VirtualSourceTest : public BusFixture {
  protected:
    VirtualSourceTest() {
        contracts_.media.Started(true);
        contracts_.com.Entered();
    }

    ComPtr<IMFActivate> MakeActivate(const wchar_t* link) {
        ComPtr<IMFAttributes> attributes;
        EXPECT_EQ(MFCreateAttributes(&attributes, 1), S_OK);
        if (link != nullptr) {
            attributes->SetString(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK, link);
        }
        ComPtr<IMFActivate> activate;
        *activate.ReleaseAndGetAddressOf() = new VirtualActivate(*bus_, contracts_, attributes);
        return activate;
    }

    ComPtr<IKsTopologyInfo> Topology() {
        ComPtr<IKsTopologyInfo> topology;
        activate_ = MakeActivate(links_.SensorCamera().c_str());
        EXPECT_EQ(activate_->ActivateObject(__uuidof(IKsTopologyInfo), &topology), S_OK);
        return topology;
    }

    ComPtr<IKsControl> ExtensionUnit() {
        ComPtr<IKsControl> unit;
        EXPECT_EQ(Topology()->CreateNodeInstance(1, __uuidof(IKsControl), &unit), S_OK);
        return unit;
    }

    static KSP_NODE Address(ULONG flags) {
        KSP_NODE address{};
        address.Property.Set = kUnit;
        address.Property.Id = 1;
        address.Property.Flags = flags | KSPROPERTY_TYPE_TOPOLOGY;
        address.NodeId = 1;
        return address;
    }

    static HRESULT Send(IKsControl& unit, KSP_NODE address, std::span<std::uint8_t> data, ULONG& returned,
                        ULONG length = sizeof(KSP_NODE)) {
        return unit.KsProperty(&address.Property, length, data.data(), static_cast<ULONG>(data.size()),
                               &returned);
    }

    ToldBreaches breaches_;
    Contracts contracts_{breaches_.Report()};
    ComPtr<IMFActivate> activate_;
};

}  // namespace

TEST_F(VirtualSourceTest, ActivatesOneSourceUntilItIsShutDown) {
    BeginRunning();
    const auto activate = MakeActivate(links_.Capture().c_str());
    ComPtr<IMFMediaSource> first;
    ComPtr<IMFMediaSource> second;
    ASSERT_EQ(activate->ActivateObject(__uuidof(IMFMediaSource), &first), S_OK);
    ASSERT_EQ(activate->ActivateObject(__uuidof(IMFMediaSource), &second), S_OK);
    EXPECT_EQ(first.Get(), second.Get());
    EXPECT_EQ(activate->ShutdownObject(), S_OK);
    EXPECT_EQ(first->Stop(), MF_E_SHUTDOWN);
    EXPECT_EQ(first->Shutdown(), MF_E_SHUTDOWN);
    second.Reset();
    ASSERT_EQ(activate->ActivateObject(__uuidof(IMFMediaSource), &second), S_OK);
    EXPECT_NE(first.Get(), second.Get());
    second.Reset();
    EXPECT_EQ(activate->DetachObject(), S_OK);
    EXPECT_EQ(first.Reset(), 0U);
}

TEST_F(VirtualSourceTest, DoesNotActivateWhatIsNotThere) {
    Begin({QuickCamera()});
    ComPtr<IMFMediaSource> source;
    EXPECT_EQ(MakeActivate(links_.Capture().c_str())->ActivateObject(__uuidof(IMFMediaSource), &source),
              HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(MakeActivate(nullptr)->ActivateObject(__uuidof(IMFMediaSource), &source),
              MF_E_ATTRIBUTENOTFOUND);
    EXPECT_EQ(source, nullptr);
}

TEST_F(VirtualSourceTest, ActivatesNothingWhileThePlatformIsDown) {
    BeginRunning();
    const auto activate = MakeActivate(links_.Capture().c_str());
    contracts_.media.ShutDown();
    ComPtr<IMFMediaSource> source;
    EXPECT_EQ(activate->ActivateObject(__uuidof(IMFMediaSource), &source), MF_E_PLATFORM_NOT_INITIALIZED);
    EXPECT_EQ(source, nullptr);
    EXPECT_EQ(breaches_.Take(),
              std::vector<std::string>{"Media Foundation is used between MFStartup and MFShutdown: "
                                       "IMFActivate::ActivateObject"});
}

TEST_F(VirtualSourceTest, TellsCallsAfterTheEndOfCom) {
    BeginRunning();
    auto unit = ExtensionUnit();
    ComPtr<IMFMediaSource> source;
    ASSERT_EQ(activate_->ActivateObject(__uuidof(IMFMediaSource), &source), S_OK);
    EXPECT_EQ(breaches_.Take(), std::vector<std::string>{});
    contracts_.com.Left();
    source->Shutdown();
    unit.Reset();
    source.Reset();
    UINT32 items = 0;
    activate_->GetCount(&items);
    const std::string contract = "nothing that COM gave is called after the last CoUninitialize: ";
    EXPECT_EQ(
        breaches_.Take(),
        (std::vector<std::string>{contract + "IMFMediaSource::Shutdown", contract + "IKsControl::Release",
                                  contract + "IMFMediaSource::Release", contract + "IMFActivate::GetCount"}));
}

TEST_F(VirtualSourceTest, HasTheExtensionUnitBehindAnotherNode) {
    BeginRunning();
    const auto topology = Topology();
    DWORD count = 0;
    GUID type{};
    EXPECT_EQ(topology->get_NumNodes(&count), S_OK);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(topology->get_NodeType(0, &type), S_OK);
    EXPECT_FALSE(type == kDevSpecific);
    EXPECT_EQ(topology->get_NodeType(1, &type), S_OK);
    EXPECT_TRUE(type == kDevSpecific);
    EXPECT_EQ(topology->get_NodeType(2, &type), E_INVALIDARG);
    ComPtr<IUnknown> instance;
    EXPECT_EQ(topology->CreateNodeInstance(0, __uuidof(IUnknown), &instance), E_NOINTERFACE);
    EXPECT_EQ(topology->CreateNodeInstance(1, __uuidof(IUnknown), &instance), S_OK);
    ComPtr<IKsControl> control;
    EXPECT_EQ(instance.As(&control), S_OK);
}

TEST_F(VirtualSourceTest, ACameraWithoutExtensionUnitHasNoSuchNode) {
    auto camera = QuickCamera();
    camera.hasExtensionUnit = false;
    BeginRunning(camera);
    DWORD count = 0;
    EXPECT_EQ(Topology()->get_NumNodes(&count), S_OK);
    EXPECT_EQ(count, 1U);
}

TEST_F(VirtualSourceTest, AnswersTheSupportProbeWithoutAnyTransfer) {
    BeginRunning();
    const auto unit = ExtensionUnit();
    ULONG returned = 7;
    EXPECT_EQ(Send(*unit.Get(), Address(KSPROPERTY_TYPE_SETSUPPORT), {}, returned), S_OK);
    EXPECT_EQ(returned, 0U);
    EXPECT_TRUE(events_.Named("firmware-command").empty());
}

TEST_F(VirtualSourceTest, CarriesACommandAndItsReply) {
    BeginRunning();
    const auto unit = ExtensionUnit();
    auto frame = lab::test::MakeFrame(0x10);
    ULONG returned = 0;
    ASSERT_EQ(Send(*unit.Get(), Address(KSPROPERTY_TYPE_SET), frame, returned), S_OK);
    ASSERT_EQ(Send(*unit.Get(), Address(KSPROPERTY_TYPE_GET), frame, returned), S_OK);
    EXPECT_EQ(returned, lab::VirtualCamera::kFrameSize);
    EXPECT_EQ(frame[0], 0x10);
    EXPECT_EQ(
        events_.Named("firmware-reply").at(0),
        (nlohmann::json{{"event", "firmware-reply"}, {"opcode", 0x10}, {"bytes", 1024}, {"result", 0}}));
}

TEST_F(VirtualSourceTest, RefusesAnAddressThatIsNotTheUnits) {
    BeginRunning();
    const auto unit = ExtensionUnit();
    std::vector<std::uint8_t> data(lab::VirtualCamera::kFrameSize);
    ULONG returned = 0;
    auto address = Address(KSPROPERTY_TYPE_SET);
    EXPECT_EQ(Send(*unit.Get(), address, data, returned, sizeof(KSPROPERTY)),
              HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER));
    address.Property.Set = kDevSpecific;
    EXPECT_EQ(Send(*unit.Get(), address, data, returned), HRESULT_FROM_WIN32(ERROR_SET_NOT_FOUND));
    address = Address(KSPROPERTY_TYPE_SET);
    address.Property.Id = 2;
    EXPECT_EQ(Send(*unit.Get(), address, data, returned), HRESULT_FROM_WIN32(ERROR_NOT_FOUND));
    address = Address(KSPROPERTY_TYPE_SET);
    address.NodeId = 0;
    EXPECT_EQ(Send(*unit.Get(), address, data, returned), HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER));
    address = Address(KSPROPERTY_TYPE_SET);
    address.Property.Flags = KSPROPERTY_TYPE_SET;
    EXPECT_EQ(Send(*unit.Get(), address, data, returned), HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(Send(*unit.Get(), Address(KSPROPERTY_TYPE_BASICSUPPORT), data, returned),
              HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(events_.Named("firmware-command").empty());
}

TEST_F(VirtualSourceTest, RefusesDataOfAnotherSizeThanTheControl) {
    BeginRunning();
    const auto unit = ExtensionUnit();
    std::vector<std::uint8_t> data(lab::VirtualCamera::kFrameSize - 1);
    ULONG returned = 0;
    EXPECT_EQ(Send(*unit.Get(), Address(KSPROPERTY_TYPE_SET), data, returned),
              HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(Send(*unit.Get(), Address(KSPROPERTY_TYPE_GET), data, returned),
              HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER));
    EXPECT_EQ(Send(*unit.Get(), Address(KSPROPERTY_TYPE_GET), {}, returned),
              HRESULT_FROM_WIN32(ERROR_MORE_DATA));
    EXPECT_EQ(returned, lab::VirtualCamera::kFrameSize);
}

TEST_F(VirtualSourceTest, GivesTheDriversResultForEachEndOfATransfer) {
    auto camera = QuickCamera();
    camera.faults = {{lab::Fault::Where::CommandWrite, lab::Fault::What::Stall},
                     {lab::Fault::Where::CommandWrite, lab::Fault::What::Timeout, 1},
                     {lab::Fault::Where::CommandWrite, lab::Fault::What::Unplug, 2}};
    BeginRunning(camera);
    const auto unit = ExtensionUnit();
    std::vector<std::uint8_t> data(lab::VirtualCamera::kFrameSize);
    ULONG returned = 0;
    EXPECT_EQ(Send(*unit.Get(), Address(KSPROPERTY_TYPE_SET), data, returned),
              HRESULT_FROM_WIN32(ERROR_GEN_FAILURE));
    EXPECT_EQ(Send(*unit.Get(), Address(KSPROPERTY_TYPE_SET), data, returned),
              HRESULT_FROM_WIN32(ERROR_SEM_TIMEOUT));
    EXPECT_EQ(Send(*unit.Get(), Address(KSPROPERTY_TYPE_SET), data, returned), kNotConnected);
}

TEST_F(VirtualSourceTest, HandsNothingOutOfAControlThatIsNotWhole) {
    auto camera = QuickCamera();
    camera.faults = {
        {.where = lab::Fault::Where::CommandRead, .what = lab::Fault::What::ShortReply, .value = 234}};
    BeginRunning(camera);
    const auto unit = ExtensionUnit();
    std::vector<std::uint8_t> data(lab::VirtualCamera::kFrameSize);
    ULONG returned = 7;
    EXPECT_EQ(Send(*unit.Get(), Address(KSPROPERTY_TYPE_GET), data, returned),
              HRESULT_FROM_WIN32(ERROR_GEN_FAILURE));
    EXPECT_EQ(returned, 0U);
}

TEST_F(VirtualSourceTest, HasTheNodesThatItsSettingsList) {
    auto camera = QuickCamera();
    camera.nodes = {lab::TopologyNode::Foreign, lab::TopologyNode::ExtensionUnit, lab::TopologyNode::Broken};
    BeginRunning(camera);
    const auto topology = Topology();
    DWORD count = 0;
    EXPECT_EQ(topology->get_NumNodes(&count), S_OK);
    EXPECT_EQ(count, 3U);
    for (DWORD node = 0; node < count; ++node) {
        GUID type{};
        EXPECT_EQ(topology->get_NodeType(node, &type), S_OK);
        EXPECT_TRUE(type == kDevSpecific);
    }
    ComPtr<IKsControl> unit;
    EXPECT_EQ(topology->CreateNodeInstance(2, __uuidof(IKsControl), &unit), E_NOINTERFACE);
    ULONG returned = 0;
    ASSERT_EQ(topology->CreateNodeInstance(0, __uuidof(IKsControl), &unit), S_OK);
    auto address = Address(KSPROPERTY_TYPE_SETSUPPORT);
    address.NodeId = 0;
    EXPECT_EQ(Send(*unit.Get(), address, {}, returned), HRESULT_FROM_WIN32(ERROR_SET_NOT_FOUND));
    EXPECT_EQ(Send(*ExtensionUnit().Get(), Address(KSPROPERTY_TYPE_SETSUPPORT), {}, returned), S_OK);
}
