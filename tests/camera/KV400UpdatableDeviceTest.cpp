#include "camera/KV400UpdatableDevice.h"

#include "tests/camera/RefusedAllocation.h"
#include "tests/camera/StoredUpdateMode.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeMediaFoundation.h"
#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <gtest/gtest.h>

#include <rpc.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Microsoft::WRL::ComPtr;
using test_support::FakeCamera;
using test_support::FakeClock;
using test_support::FakeMediaFoundation;
using test_support::ImportRedirect;
using test_support::KsCall;

constexpr HRESULT kDeviceGone = static_cast<HRESULT>(0x8007048F);
constexpr const wchar_t* kSensorLink =
    L"\\\\?\\usb#vid_2f1a&pid_7e00&mi_00#6&1#{24e552d7-6523-47f7-a647-d3465bf1f5ca}\\global";

// The texts of UUIDs, as the system makes them or not.
class UuidTexts : public test_support::OnlyOne<UuidTexts> {
  public:
    RPC_STATUS result = RPC_S_OK;
    std::vector<UUID> asked;
    int unfreed = 0;

  private:
    static RPC_STATUS RPC_ENTRY ToString(const UUID* uuid, RPC_WSTR* text) {
        current_->asked.push_back(*uuid);
        if (current_->result != RPC_S_OK) {
            return current_->result;
        }
        ++current_->unfreed;
        return current_->toString_.Original<decltype(ToString)>()(uuid, text);
    }
    static RPC_STATUS RPC_ENTRY Free(RPC_WSTR* text) {
        --current_->unfreed;
        return current_->free_.Original<decltype(Free)>()(text);
    }

    ImportRedirect toString_{"UuidToStringW", &ToString};
    ImportRedirect free_{"RpcStringFreeW", &Free};
};

class KV400UpdatableDeviceTest : public ::testing::Test {
  protected:
    ~KV400UpdatableDeviceTest() override {
        camera_.reset();
        EXPECT_EQ(mediaFoundation_.References(), 0);
        EXPECT_EQ(mediaFoundation_.OutstandingBlocks(), 0u);
        EXPECT_EQ(ExtensionUnitKsControl::ModuleObjectCount(), 0u);
    }

    HRESULT Open() { return Open(source_); }
    HRESULT Open(FakeCamera& source) { return camera_->Open(ComPtr<IMFActivate>(source.ListedActivation())); }
    std::vector<std::string> Journal() { return mediaFoundation_.Journal().Lines(); }
    std::vector<std::uint32_t> Opcodes() const {
        std::vector<std::uint32_t> opcodes;
        for (const auto& command : source_.Firmware().Commands()) {
            opcodes.push_back(command.opcode);
        }
        return opcodes;
    }

    FakeClock clock_;
    FakeMediaFoundation mediaFoundation_;
    FakeCamera& source_ = mediaFoundation_.AddCamera(kSensorLink, L"Front Camera");
    std::unique_ptr<ICameraDevice> camera_ = std::make_unique<KV400UpdatableDevice>();
};

using KV400UpdatableDeviceOpen = KV400UpdatableDeviceTest;
using KV400UpdatableDeviceMode = KV400UpdatableDeviceTest;

TEST_F(KV400UpdatableDeviceTest, IsNamedAfterItsFamilyAndOfUnknownVersionUntilOpened) {
    EXPECT_EQ(camera_->GetFriendlyName(), L"KV400");
    EXPECT_EQ(camera_->GetSymbolicLink(), L"Unknown");
    EXPECT_EQ(camera_->GetFirmwareVersion(), L"0.0.0.0");
    EXPECT_EQ(camera_->LogStream(), nullptr);
}

TEST_F(KV400UpdatableDeviceTest, AnswersTheTwoQueriesThatNobodyCalls) {
    EXPECT_FALSE(camera_->QueryA());
    EXPECT_FALSE(camera_->QueryB());
}

TEST_F(KV400UpdatableDeviceOpen, OpensThePlainCameraThenFindsTheExtensionUnit) {
    EXPECT_EQ(Open(), S_OK);

    EXPECT_EQ(Journal(),
              (std::vector<std::string>{
                  "listed activation GetAllocatedString({58F0AAD8-22BF-4F8A-BB3D-D2C4978C6E2F})",
                  "listed activation GetAllocatedString({60D0E559-52F8-4FA2-BBCE-ACDB34A8EC01})",
                  "MFCreateAttributes(2)",
                  "SetGUID({C60AC5FE-252A-478F-A0EF-BC8FA5F7CAD3}, {8AC3587A-4AE7-42D8-99E0-0A6013EEF90F})",
                  "SetString({58F0AAD8-22BF-4F8A-BB3D-D2C4978C6E2F}, \"\\\\?\\usb#vid_2f1a&pid_7e00&mi_00"
                  "#6&1#{24e552d7-6523-47f7-a647-d3465bf1f5ca}\\global\")",
                  "MFCreateDeviceSourceActivate(2 attributes)",
                  "own activation ActivateObject({279A808D-AEC7-40C8-9C6B-A6B492C78A66})",
                  "listed activation released",
                  "source QueryInterface({720D4AC0-7533-11D0-A5D6-28DB04C10000})",
                  "get_NumNodes",
                  "get_NodeType(0)",
                  "get_NodeType(1)",
                  "CreateNodeInstance(1, {00000000-0000-0000-C000-000000000046})",
                  "topology released",
              }));
    EXPECT_EQ(camera_->GetFriendlyName(), L"Front Camera");
    EXPECT_EQ(camera_->GetSymbolicLink(), kSensorLink);
}

TEST_F(KV400UpdatableDeviceOpen, ReturnsThePlainCamerasFailureAndLooksForNoUnit) {
    source_.results.activate = kDeviceGone;

    EXPECT_EQ(Open(), kDeviceGone);

    EXPECT_EQ(source_.ListedActivationReferences(), 0);
    EXPECT_EQ(ExtensionUnitKsControl::ModuleObjectCount(), 0u);
    EXPECT_TRUE(Opcodes().empty());
}

TEST_F(KV400UpdatableDeviceOpen, FailsWhenThereIsNoMemoryForTheControl) {
    const RefusedAllocation refused;

    EXPECT_EQ(Open(), static_cast<HRESULT>(0x80004005));

    const auto journal = Journal();
    EXPECT_EQ(std::count(journal.begin(), journal.end(), "get_NumNodes"), 0);
}

TEST_F(KV400UpdatableDeviceOpen, ReturnsTheFailureOfTheSearchAndSendsNothing) {
    source_.results.nodeCount = kDeviceGone;

    EXPECT_EQ(Open(), kDeviceGone);

    EXPECT_TRUE(Opcodes().empty());
    EXPECT_TRUE(clock_.Calls().empty());
    EXPECT_EQ(source_.ListedActivationReferences(), 0);
}

TEST_F(KV400UpdatableDeviceOpen, FailsForACameraWithoutTheExtensionUnit) {
    FakeCamera& plain = mediaFoundation_.AddPlainCamera(L"\\\\?\\plain");

    EXPECT_EQ(Open(plain), E_FAIL);
}

TEST_F(KV400UpdatableDeviceOpen, ReadsTheInformationBlockWithOneCommand) {
    EXPECT_EQ(Open(), S_OK);

    const auto commands = source_.Firmware().Commands();
    ASSERT_EQ(commands.size(), 1u);
    EXPECT_EQ(commands[0].length, 20u);
    EXPECT_EQ(commands[0].magic, (std::array<BYTE, 2>{0xAB, 0xCD}));
    EXPECT_EQ(commands[0].opcode, 0x10u);
    EXPECT_EQ(commands[0].parameters, (std::array<std::uint32_t, 4>{0, 0, 0, 0}));
    EXPECT_EQ(clock_.Sleeps(), (std::vector<DWORD>{100}));
}

// The node answers only for the extension unit's property set and control 1.
TEST_F(KV400UpdatableDeviceOpen, AddressesTheCommandControlOfTheExtensionUnitsNode) {
    EXPECT_EQ(Open(), S_OK);

    const auto calls = source_.Nodes().back().control.Calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[1].Flags(), 0x10000002u);
    EXPECT_EQ(calls[2].Flags(), 0x10000001u);
    for (const KsCall& call : calls) {
        EXPECT_EQ(call.Set(),
                  (GUID{0xC9606CCB, 0x594C, 0x4D25, {0xAF, 0x47, 0xCC, 0xC4, 0x96, 0x43, 0x59, 0x95}}));
        EXPECT_EQ(call.Id(), 1u);
        EXPECT_EQ(call.NodeId(), 1u);
    }
}

// A reply of 230 bytes and its echo satisfies the read, one byte less does not.
TEST_F(KV400UpdatableDeviceOpen, ExpectsABlockOf230Bytes) {
    auto& control = source_.Nodes().back().control;
    ULONG replyLength = 234;
    control.SetAnswer([&](const KsCall& call) {
        const HRESULT result = source_.Firmware().Answer(call);
        if (call.Flags() == 0x10000001) {
            *call.bytesReturned = replyLength;
        }
        return result;
    });

    EXPECT_EQ(Open(), S_OK);
    EXPECT_EQ(camera_->GetFirmwareVersion(), L"5.10.3.0");

    camera_ = std::make_unique<KV400UpdatableDevice>();
    replyLength = 233;
    EXPECT_EQ(Open(), S_OK);
    EXPECT_EQ(camera_->GetFirmwareVersion(), L"0.0.0.0");
}

TEST_F(KV400UpdatableDeviceOpen, TriesAgainAfter500MillisecondsUntilTheBlockComes) {
    source_.Firmware().FailReads(4, kDeviceGone);

    EXPECT_EQ(Open(), S_OK);

    EXPECT_EQ(clock_.Sleeps(), (std::vector<DWORD>{100, 500, 100, 500, 100, 500, 100, 500, 100}));
    EXPECT_EQ(Opcodes(), (std::vector<std::uint32_t>{0x10, 0x10, 0x10, 0x10, 0x10}));
    EXPECT_EQ(camera_->GetFirmwareVersion(), L"5.10.3.0");
}

TEST_F(KV400UpdatableDeviceOpen, StopsTryingOnTheFirstSuccess) {
    source_.Firmware().FailReads(2, kDeviceGone);

    EXPECT_EQ(Open(), S_OK);

    EXPECT_EQ(clock_.Sleeps(), (std::vector<DWORD>{100, 500, 100, 500, 100}));
    EXPECT_EQ(Opcodes().size(), 3u);
}

TEST_F(KV400UpdatableDeviceOpen, SucceedsWithoutAVersionAfterFiveReadsAndFourPauses) {
    source_.Firmware().SetReadResult(kDeviceGone);

    EXPECT_EQ(Open(), S_OK);

    EXPECT_EQ(clock_.Sleeps(), (std::vector<DWORD>{100, 500, 100, 500, 100, 500, 100, 500, 100}));
    EXPECT_EQ(Opcodes(), (std::vector<std::uint32_t>{0x10, 0x10, 0x10, 0x10, 0x10}));
    EXPECT_EQ(camera_->GetFirmwareVersion(), L"0.0.0.0");
}

TEST_F(KV400UpdatableDeviceOpen, SucceedsWithoutAVersionWhenNoCommandCanBeWritten) {
    source_.Firmware().SetWriteResult(kDeviceGone);

    EXPECT_EQ(Open(), S_OK);

    EXPECT_EQ(clock_.Sleeps(), (std::vector<DWORD>{500, 500, 500, 500}));
    EXPECT_EQ(Opcodes().size(), 5u);
    EXPECT_EQ(camera_->GetFirmwareVersion(), L"0.0.0.0");
}

TEST_F(KV400UpdatableDeviceOpen, SucceedsWithoutAVersionWhenEveryReplyHasAWrongEcho) {
    source_.Firmware().SetEcho(0x1E);

    EXPECT_EQ(Open(), S_OK);

    EXPECT_EQ(Opcodes().size(), 5u);
    EXPECT_EQ(camera_->GetFirmwareVersion(), L"0.0.0.0");
}

TEST_F(KV400UpdatableDeviceOpen, LeavesOneControlOneNodeAndOneSourceBehind) {
    source_.Firmware().FailReads(3, kDeviceGone);

    EXPECT_EQ(Open(), S_OK);

    EXPECT_EQ(ExtensionUnitKsControl::ModuleObjectCount(), 1u);
    EXPECT_EQ(source_.Nodes().back().control.References(), 1);
    EXPECT_EQ(source_.SourceReferences(), 1);
    EXPECT_EQ(source_.OwnActivationReferences(), 1);
    EXPECT_EQ(source_.TopologyReferences(), 0);
}

TEST_F(KV400UpdatableDeviceOpen, ReplacesTheControlOfAnEarlierOneAndKeepsTheBlockThatIsNotReadAgain) {
    EXPECT_EQ(Open(), S_OK);
    source_.Firmware().SetReadResult(kDeviceGone);

    EXPECT_EQ(Open(), S_OK);

    EXPECT_EQ(ExtensionUnitKsControl::ModuleObjectCount(), 1u);
    EXPECT_EQ(source_.Nodes().back().control.References(), 1);
    EXPECT_EQ(camera_->GetFirmwareVersion(), L"5.10.3.0");
}

TEST_F(KV400UpdatableDeviceTest, LetsGoOfPipeAndControlBeforeThePlainCameraEnds) {
    EXPECT_EQ(Open(), S_OK);
    mediaFoundation_.Journal().Forget();

    camera_.reset();

    EXPECT_EQ(Journal(), (std::vector<std::string>{"node 1 released", "source Shutdown", "source released",
                                                   "own activation released"}));
}

TEST_F(KV400UpdatableDeviceTest, TellsItsVersionMostSignificantByteFirst) {
    source_.Firmware().SetVersion(0x01, 0x05, 0x0B, 0x0A);
    EXPECT_EQ(Open(), S_OK);
    EXPECT_EQ(camera_->GetFirmwareVersion(), L"1.5.11.10");

    source_.Firmware().SetVersion(255, 0, 128, 99);
    EXPECT_EQ(Open(), S_OK);
    EXPECT_EQ(camera_->GetFirmwareVersion(), L"255.0.128.99");
}

TEST_F(KV400UpdatableDeviceTest, ShowsItsVersionInItsDescription) {
    EXPECT_EQ(Open(), S_OK);

    EXPECT_EQ(camera_->GetDescription(false), L"Front Camera (FW Version: 5.10.3.0)");
    EXPECT_EQ(camera_->GetDescription(true),
              L"Front Camera (FW Version: 5.10.3.0), Symbolic link: " + std::wstring(kSensorLink));
}

TEST_F(KV400UpdatableDeviceTest, IsUpdatableThroughAnyLinkButThatOfTheCaptureCategory) {
    EXPECT_EQ(Open(), S_OK);
    EXPECT_TRUE(camera_->IsUpdatable());
    FakeCamera& capture =
        mediaFoundation_.AddCamera(L"\\\\?\\usb#camera#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\\global");

    EXPECT_EQ(Open(capture), S_OK);

    EXPECT_FALSE(camera_->IsUpdatable());
    EXPECT_EQ(camera_->GetDescription(false), L"KV400 camera") << "no version is shown then";
}

TEST_F(KV400UpdatableDeviceTest, FindsTheCategoryAnywhereInTheLinkAndWithoutBraces) {
    FakeCamera& capture = mediaFoundation_.AddCamera(L"65e8773d-8f56-11d0-a3b9-00a0c9223196 first");
    EXPECT_EQ(Open(capture), S_OK);

    EXPECT_FALSE(camera_->IsUpdatable());
}

TEST_F(KV400UpdatableDeviceTest, LooksForTheCategoryInLowerCaseOnly) {
    FakeCamera& capture =
        mediaFoundation_.AddCamera(L"\\\\?\\usb#camera#{65E8773D-8F56-11D0-A3B9-00A0C9223196}\\global");
    EXPECT_EQ(Open(capture), S_OK);

    EXPECT_TRUE(camera_->IsUpdatable());
}

TEST_F(KV400UpdatableDeviceTest, HasTheSystemMakeTheCategorysTextAndFreesIt) {
    UuidTexts texts;

    EXPECT_TRUE(camera_->IsUpdatable());

    ASSERT_EQ(texts.asked.size(), 1u);
    EXPECT_EQ(texts.asked[0],
              (UUID{0x65E8773D, 0x8F56, 0x11D0, {0xA3, 0xB9, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}}));
    EXPECT_EQ(texts.unfreed, 0);
}

TEST_F(KV400UpdatableDeviceTest, IsNotUpdatableWhenTheCategoryHasNoText) {
    UuidTexts texts;
    texts.result = RPC_S_OUT_OF_MEMORY;

    EXPECT_FALSE(camera_->IsUpdatable());

    EXPECT_EQ(texts.unfreed, 0);
}

TEST_F(KV400UpdatableDeviceTest, EntersDfuModeWithItsCommand) {
    EXPECT_EQ(Open(), S_OK);
    const auto sleeps = clock_.Sleeps().size();

    EXPECT_EQ(camera_->EnterDfuMode(), S_OK);

    const auto commands = source_.Firmware().Commands();
    ASSERT_EQ(commands.size(), 2u);
    EXPECT_EQ(commands[1].length, 20u);
    EXPECT_EQ(commands[1].magic, (std::array<BYTE, 2>{0xAB, 0xCD}));
    EXPECT_EQ(commands[1].opcode, 0x1Eu);
    EXPECT_EQ(commands[1].parameters, (std::array<std::uint32_t, 4>{1, 0, 0, 0}));
    EXPECT_EQ(clock_.Sleeps().size(), sleeps) << "the answer is read back at once";
}

TEST_F(KV400UpdatableDeviceTest, EntersDfuModeWhateverThePipeAnswers) {
    EXPECT_EQ(Open(), S_OK);

    source_.Firmware().SetEcho(0x10);
    EXPECT_EQ(camera_->EnterDfuMode(), S_OK);
    source_.Firmware().SetReadResult(kDeviceGone);
    EXPECT_EQ(camera_->EnterDfuMode(), S_OK);
    source_.Firmware().SetWriteResult(kDeviceGone);
    EXPECT_EQ(camera_->EnterDfuMode(), S_OK);

    EXPECT_EQ(Opcodes(), (std::vector<std::uint32_t>{0x10, 0x1E, 0x1E, 0x1E})) << "nothing is retried";
}

TEST_F(KV400UpdatableDeviceTest, SurvivesDfuModeBeforeItIsOpened) {
    EXPECT_EQ(camera_->EnterDfuMode(), S_OK);

    EXPECT_TRUE(Opcodes().empty());
}

TEST_F(KV400UpdatableDeviceMode, IsStoredAsItsText) {
    const StoredUpdateMode stored;

    EXPECT_EQ(camera_->SetDfuModeAuto(), S_OK);
    EXPECT_EQ(stored.Text(), L"Auto");
    EXPECT_EQ(camera_->SetDfuModeServiceControlled(), S_OK);
    EXPECT_EQ(stored.Text(), L"Service Controlled");
    EXPECT_EQ(camera_->SetDfuModeDisabled(), S_OK);
    EXPECT_EQ(stored.Text(), L"Disabled");
}

LSTATUS WINAPI DenyKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES, PHKEY, LPDWORD) {
    return ERROR_ACCESS_DENIED;
}

LSTATUS WINAPI LoseKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES, PHKEY, LPDWORD) {
    return ERROR_KEY_DELETED;
}

TEST_F(KV400UpdatableDeviceMode, ReturnsTheWritersFailureAndLendsItTheLogStream) {
    const StoredUpdateMode stored;
    const ImportRedirect denied("RegCreateKeyExW", &DenyKey);
    std::ostringstream log;
    camera_->SetLogStream(&log);

    EXPECT_EQ(camera_->SetDfuModeDisabled(), static_cast<HRESULT>(0x80004005));
    EXPECT_EQ(camera_->SetDfuModeAuto(), static_cast<HRESULT>(0x80004005));
    EXPECT_EQ(camera_->SetDfuModeServiceControlled(), static_cast<HRESULT>(0x80004005));

    EXPECT_EQ(log.str(),
              "Failed open registry key with status ACCESS_DENIED\n"
              "Failed open registry key with status ACCESS_DENIED\n"
              "Failed open registry key with status ACCESS_DENIED\n");
    EXPECT_EQ(stored.Text(), std::nullopt);
}

TEST_F(KV400UpdatableDeviceMode, FailsWithoutALogStreamToo) {
    const ImportRedirect lost("RegCreateKeyExW", &LoseKey);

    EXPECT_EQ(camera_->SetDfuModeAuto(), static_cast<HRESULT>(0x80004005));
}

}  // namespace
