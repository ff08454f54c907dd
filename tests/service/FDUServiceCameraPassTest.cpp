#include "service/FDUService.h"

#include "tests/service/FDUServiceStage.h"

#include <gtest/gtest.h>

#include <dbt.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using Texts = std::vector<std::wstring>;
using test_support::FakeCamera;
using test_support::FakeFirmware;
using test_support::kUpdateServiceGroup;

const std::wstring kLink =
    L"\\\\?\\usb#vid_2f1a&pid_0400&mi_00#7&1a2b3c&0&0000#{e5323777-f976-4f5b-9b55-b94699c46e44}\\global";
const std::wstring kOtherLink =
    L"\\\\?\\usb#vid_2f1a&pid_0400&mi_00#7&9f9f9f&0&0000#{e5323777-f976-4f5b-9b55-b94699c46e44}\\global";
const std::wstring kCaptureLink =
    L"\\\\?\\usb#vid_2f1a&pid_0400&mi_00#7&1a2b3c&0&0000#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\\global";

constexpr LONG kAccepted = 1;

// An interface event's record, as long as it says.
class Arrival {
  public:
    explicit Arrival(const std::wstring& link) : Arrival(link, link.size() + 1) {}
    // A record that ends after so many characters of the link and whatever follows it.
    Arrival(const std::wstring& link, std::size_t characters)
        : storage_((kNameOffset + (link.size() + 1) * sizeof(wchar_t)) / sizeof(DWORD) + 1) {
        std::memcpy(reinterpret_cast<char*>(storage_.data()) + kNameOffset, link.c_str(),
                    (link.size() + 1) * sizeof(wchar_t));
        SetSize(static_cast<DWORD>(kNameOffset + characters * sizeof(wchar_t)));
        storage_[1] = DBT_DEVTYP_DEVICEINTERFACE;
    }

    void SetSize(DWORD size) { storage_[0] = size; }
    [[nodiscard]] const DEV_BROADCAST_DEVICEINTERFACE_W& Record() const {
        return *reinterpret_cast<const DEV_BROADCAST_DEVICEINTERFACE_W*>(storage_.data());
    }

  private:
    static constexpr std::size_t kNameOffset = 28;
    std::vector<DWORD> storage_;
};

// An image of 402 bytes whose version is at its end.
std::vector<std::uint8_t> Image(std::uint8_t first, std::uint8_t second, std::uint8_t third,
                                std::uint8_t fourth) {
    std::vector<std::uint8_t> bytes(402, 0xEE);
    bytes[398] = fourth;
    bytes[399] = third;
    bytes[400] = second;
    bytes[401] = first;
    return bytes;
}

class FDUServiceCameraPass : public FDUServiceStage {
  protected:
    FakeCamera& PlugCamera(const std::wstring& link = kLink) {
        FakeCamera& camera = cameras_.AddCamera(link);
        camera.Firmware().SetVersion(5, 10, 2, 0);
        return camera;
    }
    // A camera, and an image with another version.
    FakeCamera& PlugCameraForUpdate(const std::wstring& link = kLink) {
        folders_.WriteVersionedImage(Image(5, 10, 3, 0));
        return PlugCamera(link);
    }
    HRESULT Arrive(const std::wstring& link = kLink) {
        return Service().OnCameraArrival(Arrival(link).Record());
    }

    [[nodiscard]] std::size_t Prompts() const { return toast_.CallsOf("ShowUpdatePrompt").size(); }
    // Whether the user's acceptance reaches this camera.
    bool IsPending(FakeCamera& camera) {
        const std::size_t before = camera.Firmware().Commands().size();
        EXPECT_EQ(toast_.FireUserRespond(kAccepted), S_OK);
        return camera.Firmware().Commands().size() > before;
    }
};

TEST_F(FDUServiceCameraPass, AsksTheUserWhenTheVersionsDiffer) {
    PlugCameraForUpdate();
    EXPECT_EQ(Arrive(), 0);
    ASSERT_EQ(toast_.Calls().size(), 1u);
    EXPECT_EQ(toast_.Calls()[0].method, "ShowUpdatePrompt");
    EXPECT_EQ(toast_.Calls()[0].texts, (Texts{L"5.10.2.0", L"5.10.3.0"}));
}

// ---- Media Foundation

TEST_F(FDUServiceCameraPass, StartsMediaFoundationOnceBeforeItFirstAsksForCameras) {
    PlugCameraForUpdate();
    Service();
    EXPECT_EQ(cameras_.Journal().Lines(), std::vector<std::string>{});
    Arrive();
    Arrive();
    const auto lines = cameras_.Journal().Lines();
    EXPECT_EQ(lines.at(0), "MFStartup(0x20070, 0)");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), lines.at(0)), 1);
}

TEST_F(FDUServiceCameraPass, FindsNoCameraWhenMediaFoundationDoesNotStartAndTriesAgainAtTheNextArrival) {
    PlugCameraForUpdate();
    cameras_.FailStartup(1, E_OUTOFMEMORY);
    EXPECT_EQ(Arrive(), 0);
    EXPECT_EQ(cameras_.Journal().Lines(), (std::vector<std::string>{"MFStartup(0x20070, 0)"}));
    EXPECT_EQ(Prompts(), 0u);
    EXPECT_EQ(Arrive(), 0);
    EXPECT_EQ(Prompts(), 1u);
}

// ---- The pass

TEST_F(FDUServiceCameraPass, SendsTheCameraIntoDfuModeWhenTheUserAccepts) {
    FakeCamera& camera = PlugCameraForUpdate();
    Arrive();
    const auto before = camera.Firmware().Commands().size();
    EXPECT_EQ(toast_.FireUserRespond(kAccepted), S_OK);
    const auto commands = camera.Firmware().Commands();
    ASSERT_EQ(commands.size(), before + 1);
    EXPECT_EQ(commands.back().opcode, 0x1Eu);
    EXPECT_EQ(commands.back().parameters, (std::array<std::uint32_t, 4>{1, 0, 0, 0}));
}

TEST_F(FDUServiceCameraPass, LeavesTheCameraAloneWhenTheUserDeclines) {
    FakeCamera& camera = PlugCameraForUpdate();
    Arrive();
    const auto before = camera.Firmware().Commands().size();
    for (const LONG answer : {0, 2, -1}) {
        EXPECT_EQ(toast_.FireUserRespond(answer), S_OK);
    }
    EXPECT_EQ(camera.Firmware().Commands().size(), before);
}

TEST_F(FDUServiceCameraPass, AsksForOlderFirmwareToo) {
    PlugCameraForUpdate().Firmware().SetVersion(6, 0, 0, 0);
    EXPECT_EQ(Arrive(), 0);
    EXPECT_EQ(Prompts(), 1u);
}

TEST_F(FDUServiceCameraPass, TracesBothVersions) {
    PlugCameraForUpdate();
    MadeService();
    Arrive();
    EXPECT_EQ(TraceNumbers(), (std::vector<USHORT>{23, 27}));
    EXPECT_EQ(TracedText(23), std::string("5.10.2.0", 9));
    EXPECT_EQ(TracedText(27), std::string("5.10.3.0", 9));
}

TEST_F(FDUServiceCameraPass, TracesTheVersionsAsInformation) {
    PlugCameraForUpdate();
    MadeService();
    ExpectTracedFrom(4, {23, 27}, [this] { Arrive(); });
}

TEST_F(FDUServiceCameraPass, DoesNothingForTheImagesOwnVersion) {
    FakeCamera& camera = PlugCamera();
    folders_.WriteVersionedImage(Image(5, 10, 2, 0));
    EXPECT_EQ(Arrive(), 0);
    EXPECT_TRUE(toast_.Calls().empty());
    EXPECT_FALSE(IsPending(camera));
}

class FDUServiceCameraPassInOtherMode : public FDUServiceCameraPass,
                                        public testing::WithParamInterface<OtherMode> {};

TEST_P(FDUServiceCameraPassInOtherMode, DoesNothing) {
    PlugCameraForUpdate();
    SetUpdateMode(GetParam().text);
    MadeService();
    EXPECT_EQ(Arrive(), 1058);
    EXPECT_TRUE(cameras_.Journal().Lines().empty());
    EXPECT_TRUE(folders_.WindowsQueries().empty());
    EXPECT_TRUE(toast_.Calls().empty());
    EXPECT_TRUE(TraceNumbers().empty());
}

INSTANTIATE_TEST_SUITE_P(Modes, FDUServiceCameraPassInOtherMode, testing::ValuesIn(kOtherModes), NameOfMode);

TEST_F(FDUServiceCameraPass, DoesNothingWithoutCameras) {
    folders_.WriteVersionedImage(Image(5, 10, 3, 0));
    EXPECT_EQ(Arrive(), 0);
    EXPECT_TRUE(folders_.WindowsQueries().empty());
    EXPECT_TRUE(toast_.Calls().empty());
}

TEST_F(FDUServiceCameraPass, DoesNothingForACameraThatIsNotListed) {
    FakeCamera& other = PlugCameraForUpdate(kOtherLink);
    MadeService();
    EXPECT_EQ(Arrive(), 0);
    EXPECT_TRUE(folders_.WindowsQueries().empty());
    EXPECT_TRUE(toast_.Calls().empty());
    EXPECT_TRUE(TraceNumbers().empty());
    EXPECT_FALSE(IsPending(other));
}

TEST_F(FDUServiceCameraPass, FindsTheCameraByItsLinkWithoutRegardToCase) {
    PlugCameraForUpdate(L"\\\\?\\USB#Vid_2F1A&pid_0400#abc#{e5323777}\\Global");
    EXPECT_EQ(Arrive(L"\\\\?\\usb#VID_2f1a&PID_0400#ABC#{E5323777}\\global"), 0);
    EXPECT_EQ(Prompts(), 1u);
}

TEST_F(FDUServiceCameraPass, ComparesTheWholeLink) {
    PlugCameraForUpdate();
    EXPECT_EQ(Arrive(kLink + L"2"), 0);
    EXPECT_EQ(Arrive(kLink.substr(0, kLink.size() - 1)), 0);
    EXPECT_EQ(Arrive(L""), 0);
    EXPECT_EQ(Prompts(), 0u);
}

// The single-byte folding changes no character beyond a byte.
TEST_F(FDUServiceCameraPass, ComparesCharactersBeyondAByteAsTheyAre) {
    PlugCameraForUpdate(L"\\\\?\\usb#\x0430");
    EXPECT_EQ(Arrive(L"\\\\?\\usb#\x0410"), 0);
    EXPECT_EQ(Prompts(), 0u);
    EXPECT_EQ(Arrive(L"\\\\?\\usb#\xFFFF"), 0);
    EXPECT_EQ(Prompts(), 0u);
    EXPECT_EQ(Arrive(L"\\\\?\\usb#\x0430"), 0);
    EXPECT_EQ(Prompts(), 1u);
}

TEST_F(FDUServiceCameraPass, ReadsNoLinkBeyondTheEndOfItsRecord) {
    PlugCameraForUpdate();
    const Arrival cut(kLink, kLink.size() - 1);
    EXPECT_EQ(Service().OnCameraArrival(cut.Record()), 0);
    EXPECT_EQ(Prompts(), 0u);
    const Arrival unterminated(kLink + L"2", kLink.size());
    EXPECT_EQ(Service().OnCameraArrival(unterminated.Record()), 0);
    EXPECT_EQ(Prompts(), 1u);
}

TEST_F(FDUServiceCameraPass, ReadsNoLinkFromARecordThatIsTooShort) {
    PlugCameraForUpdate();
    Arrival arrival(kLink);
    for (const DWORD size : {0u, 4u, 27u, 28u, 29u}) {
        arrival.SetSize(size);
        EXPECT_EQ(Service().OnCameraArrival(arrival.Record()), 0) << size;
    }
    EXPECT_EQ(Prompts(), 0u);
}

TEST_F(FDUServiceCameraPass, SkipsACameraWithoutTheExtensionUnit) {
    cameras_.AddPlainCamera(kLink);
    folders_.WriteVersionedImage(Image(5, 10, 3, 0));
    MadeService();
    EXPECT_EQ(Arrive(), 0);
    EXPECT_TRUE(toast_.Calls().empty());
    EXPECT_TRUE(TraceNumbers().empty());
}

TEST_F(FDUServiceCameraPass, SkipsTheCameraUnderTheLinkOfTheCaptureCategory) {
    PlugCameraForUpdate(kCaptureLink);
    EXPECT_EQ(Arrive(kCaptureLink), 0);
    EXPECT_TRUE(toast_.Calls().empty());
    EXPECT_TRUE(folders_.WindowsQueries().empty());
}

TEST_F(FDUServiceCameraPass, AsksOnceForACameraThatIsListedTwice) {
    PlugCameraForUpdate();
    EXPECT_EQ(Arrive(), 0);
    EXPECT_EQ(Prompts(), 1u);
}

TEST_F(FDUServiceCameraPass, FindsTheCameraBehindOthers) {
    FakeCamera& other = PlugCamera(kOtherLink);
    other.Firmware().SetVersion(1, 1, 1, 1);
    FakeCamera& camera = PlugCameraForUpdate();
    EXPECT_EQ(Arrive(), 0);
    ASSERT_EQ(Prompts(), 1u);
    EXPECT_EQ(toast_.Calls()[0].texts.at(0), L"5.10.2.0");
    EXPECT_FALSE(IsPending(other));
    EXPECT_TRUE(IsPending(camera));
}

TEST_F(FDUServiceCameraPass, NeverAsksForACameraOfUnknownVersion) {
    FakeCamera& camera = PlugCameraForUpdate();
    camera.Firmware().SetVersion(0, 0, 0, 0);
    MadeService();
    EXPECT_EQ(Arrive(), static_cast<HRESULT>(0x80004005));
    EXPECT_EQ(TraceNumbers(), std::vector<USHORT>{22});
    EXPECT_TRUE(traces_.Find(kUpdateServiceGroup, 22).at(0).arguments.empty());
    EXPECT_TRUE(folders_.WindowsQueries().empty());
    EXPECT_TRUE(toast_.Calls().empty());
    EXPECT_FALSE(IsPending(camera));
}

TEST_F(FDUServiceCameraPass, TracesAnUnknownVersionAsCritical) {
    PlugCamera().Firmware().SetVersion(0, 0, 0, 0);
    MadeService();
    ExpectTracedFrom(1, {22}, [this] { Arrive(); });
}

TEST_F(FDUServiceCameraPass, NeverAsksForACameraThatDoesNotAnswer) {
    PlugCameraForUpdate().Firmware().SetReadResult(E_FAIL);
    EXPECT_EQ(Arrive(), static_cast<HRESULT>(0x80004005));
    EXPECT_TRUE(toast_.Calls().empty());
}

TEST_F(FDUServiceCameraPass, DoesNothingWithoutAnImage) {
    FakeCamera& camera = PlugCamera();
    MadeService();
    EXPECT_EQ(Arrive(), 0);
    EXPECT_EQ(TraceNumbers(), (std::vector<USHORT>{23, 25}));
    EXPECT_TRUE(toast_.Calls().empty());
    EXPECT_FALSE(IsPending(camera));
}

TEST_F(FDUServiceCameraPass, DoesNothingWithAnImageThatIsTooShort) {
    FakeCamera& camera = PlugCamera();
    folders_.WriteVersionedImage(std::vector<std::uint8_t>(401, 9));
    MadeService();
    EXPECT_EQ(Arrive(), 0);
    EXPECT_EQ(TraceNumbers(), (std::vector<USHORT>{23, 26}));
    EXPECT_TRUE(toast_.Calls().empty());
    EXPECT_FALSE(IsPending(camera));
}

// The image of the other pass is no substitute.
TEST_F(FDUServiceCameraPass, DoesNotLookForTheImageInTheSystemDirectory) {
    PlugCamera();
    folders_.WriteDownloadedImage(Image(5, 10, 3, 0));
    EXPECT_EQ(Arrive(), 0);
    EXPECT_TRUE(toast_.Calls().empty());
    EXPECT_TRUE(folders_.SystemQueries().empty());
}

TEST_F(FDUServiceCameraPass, AsksWithAnEmptyVersionWhenTheWindowsDirectoryCannotBeTold) {
    FakeCamera& camera = PlugCameraForUpdate();
    folders_.FailWindowsDirectory(ERROR_ACCESS_DENIED);
    EXPECT_EQ(Arrive(), 0);
    ASSERT_EQ(Prompts(), 1u);
    EXPECT_EQ(toast_.Calls()[0].texts, (Texts{L"5.10.2.0", L""}));
    EXPECT_TRUE(IsPending(camera));
}

TEST_F(FDUServiceCameraPass, WaitsForTheAnswerThoughThePromptFailed) {
    FakeCamera& camera = PlugCameraForUpdate();
    toast_.results["ShowUpdatePrompt"] = E_FAIL;
    EXPECT_EQ(Arrive(), 0);
    EXPECT_TRUE(IsPending(camera));
}

TEST_F(FDUServiceCameraPass, MakesTheCameraPendingOnlyAfterThePrompt) {
    FakeCamera& camera = PlugCameraForUpdate();
    bool pendingDuringPrompt = true;
    toast_.whileCalled = [&](const test_support::FakeToastController::Call&) {
        pendingDuringPrompt = IsPending(camera);
    };
    EXPECT_EQ(Arrive(), 0);
    EXPECT_FALSE(pendingDuringPrompt);
    EXPECT_TRUE(IsPending(camera));
}

TEST_F(FDUServiceCameraPass, GivesAnEarlierPromptsAnswerToTheNewerCamera) {
    FakeCamera& first = PlugCameraForUpdate();
    FakeCamera& second = PlugCamera(kOtherLink);
    EXPECT_EQ(Arrive(kLink), 0);
    EXPECT_EQ(Arrive(kOtherLink), 0);
    EXPECT_EQ(Prompts(), 2u);
    EXPECT_FALSE(IsPending(first));
    EXPECT_TRUE(IsPending(second));
}

TEST_F(FDUServiceCameraPass, ReleasesThePendingCameraForANewerOne) {
    FakeCamera& first = PlugCameraForUpdate();
    FakeCamera& second = PlugCamera(kOtherLink);
    Arrive(kLink);
    EXPECT_GT(first.References(), 0);
    Arrive(kOtherLink);
    EXPECT_EQ(first.References(), 0);
    EXPECT_GT(second.References(), 0);
    EndService();
    EXPECT_EQ(second.References(), 0);
}

// Cameras that answer each thread as if it were the only one: what two commands at a time would do to a real
// camera's control is not looked at here.
class FDUServiceAnswersDuringPasses : public FDUServiceCameraPass {
  protected:
    static constexpr std::size_t kAnsweringThreads = 2;

    // The firmware of one camera as each answering thread sees it.
    using Seen = std::array<FakeFirmware, kAnsweringThreads>;

    FakeCamera& PlugCameraForThreads(const std::wstring& link, Seen& seen) {
        FakeCamera& camera = PlugCamera(link);
        camera.Nodes().back().control.SetAnswer([&camera, &seen](const test_support::KsCall& call) {
            return answeringThread_ ? seen.at(*answeringThread_).Answer(call)
                                    : camera.Firmware().Answer(call);
        });
        return camera;
    }

    // Accepts so many times for every pass that has begun, as the thread of that number.
    void AnswerAs(std::size_t thread, int passes, int answersForEach, const std::atomic<int>& begun) {
        answeringThread_ = thread;
        for (int pass = 1; pass <= passes; ++pass) {
            while (begun < pass) {
                SwitchToThread();
            }
            for (int answer = 0; answer < answersForEach; ++answer) {
                EXPECT_EQ(toast_.FireUserRespond(kAccepted), S_OK);
            }
        }
    }

    static std::size_t CommandsTo(const Seen& seen) {
        return seen[0].Commands().size() + seen[1].Commands().size();
    }

    Seen first_;
    Seen second_;

  private:
    static inline thread_local std::optional<std::size_t> answeringThread_;
};

TEST_F(FDUServiceAnswersDuringPasses, ReachAPendingCameraEachAndTheLastOneInTheEnd) {
    constexpr int kPasses = 200;
    constexpr int kAnswersForEach = 3;
    FakeCamera& first = PlugCameraForThreads(kLink, first_);
    FakeCamera& second = PlugCameraForThreads(kOtherLink, second_);
    folders_.WriteVersionedImage(Image(5, 10, 3, 0));
    Arrive(kLink);
    std::atomic<int> begun{0};
    std::thread one([&] { AnswerAs(0, kPasses, kAnswersForEach, begun); });
    std::thread other([&] { AnswerAs(1, kPasses, kAnswersForEach, begun); });
    for (int pass = 1; pass <= kPasses; ++pass) {
        begun = pass;
        EXPECT_EQ(Arrive(pass % 2 == 0 ? kLink : kOtherLink), 0);
    }
    one.join();
    other.join();
    EXPECT_EQ(Prompts(), 1u + kPasses);
    EXPECT_EQ(CommandsTo(first_) + CommandsTo(second_), kPasses * kAnswersForEach * kAnsweringThreads);
    EXPECT_EQ(second.References(), 0) << "nobody holds a camera that is not pending any more";
    EXPECT_FALSE(IsPending(second));
    EXPECT_TRUE(IsPending(first));
}

TEST_F(FDUServiceCameraPass, KeepsThePendingCameraThroughPassesThatEndEarlier) {
    FakeCamera& camera = PlugCameraForUpdate();
    Arrive();
    Arrive(kOtherLink);
    folders_.WriteVersionedImage(Image(5, 10, 2, 0));
    Arrive();
    SetUpdateMode(L"Auto");
    Arrive();
    EXPECT_TRUE(IsPending(camera));
    EXPECT_TRUE(IsPending(camera)) << "an answer does not clear it";
}

TEST_F(FDUServiceCameraPass, ReleasesThePendingCameraBehindItsEventAndBeforeTheRest) {
    FakeCamera& camera = PlugCameraForUpdate();
    Arrive();
    const HANDLE event = life_.unnamedEvents.at(0);
    bool isEventClosed = false;
    std::size_t registrations = 0;
    bool isSinkConnected = false;
    camera.Nodes().back().control.OnLastRelease([&] {
        const auto& closed = life_.closedUnnamedEvents;
        isEventClosed = std::find(closed.begin(), closed.end(), event) != closed.end();
        registrations = devices_.ActiveRegistrations();
        isSinkConnected = toast_.Sink() != nullptr;
    });
    EndService();
    EXPECT_EQ(camera.References(), 0);
    EXPECT_TRUE(isEventClosed);
    EXPECT_EQ(registrations, 1u) << "the watcher";
    EXPECT_TRUE(isSinkConnected);
}

TEST_F(FDUServiceCameraPass, HoldsNoCameraThatIsNotPending) {
    FakeCamera& camera = PlugCamera();
    folders_.WriteVersionedImage(Image(5, 10, 2, 0));
    Arrive();
    EXPECT_EQ(camera.References(), 0);
    EXPECT_EQ(cameras_.References(), 0);
}

TEST_F(FDUServiceCameraPass, AsksNobodyWithoutAPromptClient) {
    activation_.creationResult = E_FAIL;
    FakeCamera& camera = PlugCameraForUpdate();
    EXPECT_EQ(Arrive(), 0);
    EXPECT_TRUE(toast_.Calls().empty());
    EXPECT_GT(camera.References(), 0) << "it is the pending camera all the same";
    EndService();
    EXPECT_EQ(camera.References(), 0);
}

class FDUServiceImageVersion : public FDUServiceStage {
  protected:
    FDUServiceImageVersion() { MadeService(); }
    HRESULT Read() { return FDUService::ReadImageVersion(text_); }

    std::wstring text_ = L"untouched";
};

TEST_F(FDUServiceImageVersion, IsTheFourBytesAtOffset398TheLastFirst) {
    std::vector<std::uint8_t> image(1000, 0xEE);
    image[398] = 0x05;
    image[399] = 0x0B;
    image[400] = 0x02;
    image[401] = 0x01;
    folders_.WriteVersionedImage(image);
    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(text_, L"1.2.11.5");
    EXPECT_EQ(TraceNumbers(), std::vector<USHORT>{27});
    EXPECT_EQ(TracedText(27), std::string("1.2.11.5", 9));
}

TEST_F(FDUServiceImageVersion, IsUnsigned) {
    folders_.WriteVersionedImage(Image(255, 128, 200, 255));
    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(text_, L"255.128.200.255");
}

// A byte that a text stream would change or stop at is a byte like any other.
TEST_F(FDUServiceImageVersion, IsReadAsBytes) {
    std::vector<std::uint8_t> image = Image(0x1A, 0x0D, 0x0A, 0x00);
    image[0] = 0x1A;
    image[10] = 0x0D;
    image[11] = 0x0A;
    folders_.WriteVersionedImage(image);
    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(text_, L"26.13.10.0");
}

TEST_F(FDUServiceImageVersion, IsReadFromTheImageUnderTheWindowsDirectory) {
    folders_.WriteVersionedImage(Image(5, 10, 3, 0));
    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(folders_.OpenedFiles(), Texts{L"windows\\system32\\drivers\\KV400Firmware.bin rb"});
}

TEST_F(FDUServiceImageVersion, AsksForTheWindowsDirectoryWithRoomFor520Characters) {
    Read();
    ASSERT_EQ(folders_.WindowsQueries().size(), 1u);
    EXPECT_TRUE(folders_.WindowsQueries()[0].hasBuffer);
    EXPECT_EQ(folders_.WindowsQueries()[0].capacity, 520u);
}

TEST_F(FDUServiceImageVersion, IsThePositiveErrorWithoutAWindowsDirectory) {
    folders_.WriteVersionedImage(Image(5, 10, 3, 0));
    folders_.FailWindowsDirectory(ERROR_ACCESS_DENIED);
    EXPECT_EQ(Read(), 5);
    EXPECT_EQ(text_, L"untouched");
    EXPECT_TRUE(TraceNumbers().empty());
}

TEST_F(FDUServiceImageVersion, FailsWithoutAnImage) {
    EXPECT_EQ(Read(), static_cast<HRESULT>(0x80004005));
    EXPECT_EQ(text_, L"untouched");
    EXPECT_EQ(TraceNumbers(), std::vector<USHORT>{25});
    EXPECT_TRUE(traces_.Find(kUpdateServiceGroup, 25).at(0).arguments.empty());
}

class FDUServiceShortImage : public FDUServiceImageVersion,
                             public testing::WithParamInterface<std::size_t> {};

TEST_P(FDUServiceShortImage, HasNoVersion) {
    folders_.WriteVersionedImage(std::vector<std::uint8_t>(GetParam(), 7));
    EXPECT_EQ(Read(), static_cast<HRESULT>(0x80004005));
    EXPECT_EQ(text_, L"untouched");
    EXPECT_EQ(TraceNumbers(), std::vector<USHORT>{26});
    EXPECT_TRUE(traces_.Find(kUpdateServiceGroup, 26).at(0).arguments.empty());
}

INSTANTIATE_TEST_SUITE_P(Sizes, FDUServiceShortImage, testing::Values(0, 1, 397, 398, 399, 401));

TEST_F(FDUServiceImageVersion, HasAShortFileThatIsCritical) {
    folders_.WriteVersionedImage({});
    ExpectTracedFrom(1, {26}, [this] { Read(); });
}

TEST_F(FDUServiceImageVersion, HasAMissingFileThatIsCritical) {
    ExpectTracedFrom(1, {25}, [this] { Read(); });
}

TEST_F(FDUServiceImageVersion, IsTracedAsInformation) {
    folders_.WriteVersionedImage(Image(5, 10, 3, 0));
    ExpectTracedFrom(4, {27}, [this] { Read(); });
}

}  // namespace
