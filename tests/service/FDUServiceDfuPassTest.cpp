#include "service/FDUService.h"

#include "tests/service/FDUServiceStage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <new>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::wstring>;
using test_support::FakeToastController;
using test_support::FakeUsbDevice;
using test_support::kUpdateServiceGroup;

const std::wstring kLink = L"\\\\?\\usb#vid_2f1a&pid_7e01#serial#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
const std::wstring kSecondLink =
    L"\\\\?\\usb#vid_2f1a&pid_7e02#serial#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
const std::wstring kForeignLink =
    L"\\\\?\\usb#vid_0001&pid_7e01#serial#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";

constexpr HRESULT kNoInterface = static_cast<HRESULT>(0x80004002);
constexpr HRESULT kFail = static_cast<HRESULT>(0x80004005);
constexpr HRESULT kInvalidHandle = static_cast<HRESULT>(0x80070006);
constexpr HRESULT kBadLength = static_cast<HRESULT>(0x80070018);

std::vector<std::uint8_t> ImageOf(std::size_t size) {
    std::vector<std::uint8_t> bytes(size);
    for (std::size_t index = 0; index < size; ++index) {
        bytes[index] = static_cast<std::uint8_t>(index * 7);
    }
    return bytes;
}

class FDUServiceDfuPass : public FDUServiceStage {
  protected:
    // A camera in DFU mode is present, before anybody is told.
    FakeUsbDevice& PlugDevice(std::uint16_t transferSize = 4096) {
        devices_.SetPresent({kLink});
        return bus_.Add(kLink, transferSize);
    }
    // One that takes blocks of that size, and an image to download.
    FakeUsbDevice& PlugDeviceForImage(std::size_t imageSize = 100, std::uint16_t transferSize = 4096) {
        folders_.WriteDownloadedImage(ImageOf(imageSize));
        return PlugDevice(transferSize);
    }
    // Forgets what construction left behind, and runs the pass.
    HRESULT Run() {
        FDUService& service = MadeService();
        devices_.ForgetCalls();
        return service.OnUsbDeviceArrival();
    }
    // The methods that the toast controller was called for, in order.
    [[nodiscard]] std::vector<std::string> Methods() const {
        std::vector<std::string> methods;
        for (const auto& call : toast_.Calls()) {
            methods.push_back(call.method);
        }
        return methods;
    }
    [[nodiscard]] bool BusSaw(const std::string& call) const {
        return std::any_of(bus_.Calls().begin(), bus_.Calls().end(),
                           [&call](const std::string& line) { return line.find(call) != std::string::npos; });
    }
};

TEST_F(FDUServiceDfuPass, DownloadsTheImageAndReportsEveryBlock) {
    FakeUsbDevice& device = PlugDevice();
    const auto image = ImageOf(10000);
    folders_.WriteDownloadedImage(image);
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(device.downloaded, image);
    EXPECT_EQ(Methods(), (std::vector<std::string>{"NotifyProgress", "NotifyProgress", "NotifyProgress",
                                                   "NotifyProgress", "NotifyComplete"}));
    EXPECT_EQ(ProgressTexts(), (Texts{L"start:2", L"1", L"2", L"3"}));
    EXPECT_EQ(TraceNumbers(), std::vector<USHORT>{19});
}

class FDUServiceDfuPassInOtherMode : public FDUServiceDfuPass,
                                     public testing::WithParamInterface<OtherMode> {};

TEST_P(FDUServiceDfuPassInOtherMode, DoesNothing) {
    PlugDeviceForImage();
    SetUpdateMode(GetParam().text);
    EXPECT_EQ(Run(), 1058);
    EXPECT_TRUE(devices_.Calls().empty());
    EXPECT_TRUE(clock_.Waits().empty());
    EXPECT_TRUE(bus_.Calls().empty());
    EXPECT_TRUE(toast_.Calls().empty());
    EXPECT_TRUE(TraceNumbers().empty());
}

INSTANTIATE_TEST_SUITE_P(Modes, FDUServiceDfuPassInOtherMode, testing::ValuesIn(kOtherModes), NameOfMode);

TEST_F(FDUServiceDfuPass, EndsAfter100MillisecondsWithoutADevice) {
    EXPECT_EQ(Run(), kNoInterface);
    EXPECT_EQ(clock_.Waits(), std::vector<DWORD>{100});
    EXPECT_EQ(clock_.Elapsed(), 100u);
    EXPECT_EQ(TraceNumbers(), std::vector<USHORT>{18});
    EXPECT_TRUE(traces_.Find(kUpdateServiceGroup, 18).at(0).arguments.empty());
    EXPECT_TRUE(bus_.Calls().empty());
    EXPECT_TRUE(toast_.Calls().empty());
}

// Without its event the watcher has nothing to wait for: the wait fails at once.
TEST_F(FDUServiceDfuPass, TakesAWaitThatFailsForAMissingDevice) {
    life_.namedEventError = ERROR_INVALID_HANDLE;
    PlugDevice();
    EXPECT_EQ(Run(), kNoInterface);
    EXPECT_EQ(TraceNumbers(), std::vector<USHORT>{18});
    EXPECT_TRUE(bus_.Calls().empty());
}

TEST_F(FDUServiceDfuPass, TakesNoOtherUsbDevice) {
    devices_.SetPresent({kForeignLink});
    bus_.Add(kForeignLink);
    EXPECT_EQ(Run(), kNoInterface);
    EXPECT_TRUE(bus_.Calls().empty());
}

TEST_F(FDUServiceDfuPass, TracesAMissingDeviceAsAnError) {
    ExpectTracedFrom(2, {18}, [this] { Run(); });
}

TEST_F(FDUServiceDfuPass, TracesAFoundDeviceAsInformation) {
    PlugDevice();
    ExpectTracedFrom(4, {19}, [this] { Run(); });
    EXPECT_TRUE(traces_.Find(kUpdateServiceGroup, 19).at(0).arguments.empty());
}

TEST_F(FDUServiceDfuPass, ListsTheDevicesAnew) {
    Service();
    PlugDeviceForImage();
    EXPECT_EQ(Run(), 0);
    devices_.SetPresent({});
    EXPECT_EQ(Run(), kNoInterface) << "the device of the pass before is not in the list any more";
}

TEST_F(FDUServiceDfuPass, TakesADeviceThatComesWithinTheWait) {
    FakeUsbDevice& device = bus_.Add(kLink);
    folders_.WriteDownloadedImage(ImageOf(100));
    Service();
    clock_.After(60, [this] { devices_.Plug(kLink); });
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(device.downloaded.size(), 100u);
}

TEST_F(FDUServiceDfuPass, TakesTheFirstOfSeveralDevices) {
    bus_.Add(kLink);
    bus_.Add(kSecondLink);
    devices_.SetPresent({kForeignLink, kSecondLink, kLink});
    folders_.WriteDownloadedImage(ImageOf(100));
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(BusSaw("pid_7e02"));
    EXPECT_FALSE(BusSaw("pid_7e01"));
}

TEST_F(FDUServiceDfuPass, OpensTheFoldedLink) {
    bus_.Add(kLink);
    devices_.SetPresent({L"\\\\?\\USB#VID_2F1A&PID_7E01#SERIAL#{A5DCBF10-6530-11D2-901F-00C04FB951ED}"});
    folders_.WriteDownloadedImage(ImageOf(100));
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(BusSaw("CreateFileW(\\\\?\\usb#vid_2f1a&pid_7e01#serial#"));
}

// A removal signals the same event.
TEST_F(FDUServiceDfuPass, OpensAnEmptyPathWhenTheListIsEmptyAfterAll) {
    Service();
    clock_.After(60, [this] { devices_.Unplug(kLink); });
    EXPECT_EQ(Run(), kInvalidHandle);
    EXPECT_EQ(TraceNumbers(), (std::vector<USHORT>{19, 20}));
    EXPECT_TRUE(toast_.Calls().empty());
}

TEST_F(FDUServiceDfuPass, EndsWithADeviceThatDoesNotOpen) {
    PlugDeviceForImage();
    bus_.Fail("CreateFileW", ERROR_ACCESS_DENIED);
    EXPECT_EQ(Run(), kInvalidHandle);
    EXPECT_EQ(TraceNumbers(), (std::vector<USHORT>{19, 20}));
    EXPECT_TRUE(traces_.Find(kUpdateServiceGroup, 20).at(0).arguments.empty());
    EXPECT_TRUE(toast_.Calls().empty());
    EXPECT_TRUE(folders_.SystemQueries().empty());
}

TEST_F(FDUServiceDfuPass, TracesADeviceThatDoesNotOpenAsAnError) {
    PlugDevice();
    ExpectTracedFrom(2, {20}, [this] {
        bus_.Fail("CreateFileW", ERROR_ACCESS_DENIED);
        Run();
    });
}

TEST_F(FDUServiceDfuPass, EndsWithADeviceWithoutDfuInterface) {
    PlugDevice().SetInterfaces({{0, 0, 0x0E}});
    folders_.WriteDownloadedImage(ImageOf(100));
    EXPECT_EQ(Run(), kInvalidHandle);
    EXPECT_EQ(bus_.OpenFiles(), 0u);
    EXPECT_EQ(bus_.OpenInterfaces(), 0u);
    EXPECT_TRUE(toast_.Calls().empty());
}

TEST_F(FDUServiceDfuPass, ReadsTheDevicesStatusOf68Bytes) {
    PlugDeviceForImage();
    EXPECT_EQ(Run(), 0);
    EXPECT_TRUE(BusSaw("A1 02 0000 0000 0044, 68 bytes"));
}

TEST_F(FDUServiceDfuPass, AsksForTheSystemDirectorysLengthFirst) {
    PlugDevice();
    Run();
    ASSERT_EQ(folders_.SystemQueries().size(), 2u);
    EXPECT_FALSE(folders_.SystemQueries()[0].hasBuffer);
    EXPECT_EQ(folders_.SystemQueries()[0].capacity, 0u);
    EXPECT_TRUE(folders_.SystemQueries()[1].hasBuffer);
    EXPECT_GT(folders_.SystemQueries()[1].capacity, 0u);
    EXPECT_TRUE(folders_.WindowsQueries().empty());
}

TEST_F(FDUServiceDfuPass, FailsWithoutAnImageButCompletes) {
    PlugDevice();
    EXPECT_EQ(Run(), kFail);
    EXPECT_EQ(Methods(), std::vector<std::string>{"NotifyComplete"});
    EXPECT_FALSE(BusSaw("WinUsb_ControlTransfer"));
    EXPECT_EQ(TraceNumbers(), std::vector<USHORT>{19});
}

TEST_F(FDUServiceDfuPass, OpensTheImageUnderTheSystemDirectoryForItsSizeAndForTheEngine) {
    PlugDeviceForImage();
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(folders_.OpenedFiles(),
              (Texts{L"system\\drivers\\KV400Firmware.bin rb", L"system\\drivers\\KV400Firmware.bin rb"}));
}

TEST_F(FDUServiceDfuPass, LetsTheEngineLogNothing) {
    PlugDevice();
    std::ostringstream output;
    std::streambuf* const standardOutput = std::cout.rdbuf(output.rdbuf());
    EXPECT_EQ(Run(), kFail) << "there is no image";
    std::cout.rdbuf(standardOutput);
    EXPECT_EQ(output.str(), "");
}

// The image of the other pass is no substitute.
TEST_F(FDUServiceDfuPass, DoesNotLookForTheImageInTheWindowsDirectory) {
    PlugDevice();
    folders_.WriteVersionedImage(ImageOf(500));
    EXPECT_EQ(Run(), kFail);
}

struct Blocks {
    std::size_t imageSize;
    std::uint16_t transferSize;
    const wchar_t* started;
    std::size_t reports;
};

class FDUServiceBlockCount : public FDUServiceDfuPass, public testing::WithParamInterface<Blocks> {};

TEST_P(FDUServiceBlockCount, IsTheWholeTransfersInTheImage) {
    PlugDeviceForImage(GetParam().imageSize, GetParam().transferSize);
    EXPECT_EQ(Run(), 0);
    ASSERT_EQ(ProgressTexts().size(), GetParam().reports + 1);
    EXPECT_EQ(ProgressTexts().front(), GetParam().started);
    EXPECT_EQ(Methods().back(), "NotifyComplete");
}

INSTANTIATE_TEST_SUITE_P(Images, FDUServiceBlockCount,
                         testing::Values(Blocks{0, 4096, L"start:0", 0}, Blocks{1, 4096, L"start:0", 1},
                                         Blocks{4095, 4096, L"start:0", 1}, Blocks{4096, 4096, L"start:1", 1},
                                         Blocks{4097, 4096, L"start:1", 2},
                                         Blocks{65536, 64 * 2, L"start:512", 512},
                                         Blocks{70000, 65535, L"start:1", 2}),
                         [](const auto& blocks) {
                             return std::to_string(blocks.param.imageSize) + "BytesInBlocksOf" +
                                    std::to_string(blocks.param.transferSize);
                         });

TEST_F(FDUServiceDfuPass, NeverDividesByATransferSizeOfZero) {
    PlugDeviceForImage(100, 0);
    EXPECT_LT(Run(), 0);
    EXPECT_EQ(Methods(), std::vector<std::string>{"NotifyComplete"});
}

TEST_F(FDUServiceDfuPass, SendsNoBlockToADeviceWhoseTransfersAreShorterThanItsStatus) {
    FakeUsbDevice& device = PlugDeviceForImage(128, 64);
    EXPECT_EQ(Run(), kBadLength);
    EXPECT_TRUE(device.downloaded.empty());
    EXPECT_EQ(ProgressTexts(), Texts{L"start:2"});
    EXPECT_EQ(Methods().back(), "NotifyComplete");
}

TEST_F(FDUServiceDfuPass, GivesTheFailureOfTheDownloadAndCompletesOnce) {
    FakeUsbDevice& device = PlugDeviceForImage(300, 100);
    device.control = [&device](const WINUSB_SETUP_PACKET& setup, std::span<std::uint8_t> data) -> DWORD {
        if (setup.Request == 1 && setup.Value == 2) {
            return ERROR_GEN_FAILURE;
        }
        return device.AnswerInDfuMode(setup, data);
    };
    EXPECT_EQ(Run(), static_cast<HRESULT>(0x8007001F));
    EXPECT_EQ(ProgressTexts(), (Texts{L"start:3", L"1", L"2"}));
    EXPECT_EQ(toast_.CallsOf("NotifyComplete").size(), 1u);
    EXPECT_EQ(Methods().back(), "NotifyComplete");
}

TEST_F(FDUServiceDfuPass, GoesOnWhenTheControllerTakesNoProgress) {
    FakeUsbDevice& device = PlugDeviceForImage(300, 100);
    toast_.results = {{"NotifyProgress", E_FAIL}, {"NotifyComplete", E_FAIL}};
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(device.downloaded.size(), 300u);
    EXPECT_EQ(ProgressTexts().size(), 4u);
}

// A report that cannot be made for want of memory ends the download, but not without a word to the user.
TEST_F(FDUServiceDfuPass, CompletesWhenAReportRaises) {
    PlugDeviceForImage(300, 100);
    toast_.whileCalled = [](const FakeToastController::Call& call) {
        if (call.texts == Texts{L"2"}) {
            throw std::bad_alloc();
        }
    };
    EXPECT_THROW(Run(), std::bad_alloc);
    EXPECT_EQ(toast_.CallsOf("NotifyComplete").size(), 1u);
    EXPECT_EQ(Methods().back(), "NotifyComplete");
    EXPECT_EQ(bus_.OpenFiles(), 0u);
}

TEST_F(FDUServiceDfuPass, CompletesBeforeItClosesTheImageAndTheDevice) {
    PlugDeviceForImage();
    std::optional<bool> imageInUse;
    std::size_t openFiles = 0;
    toast_.whileCalled = [&](const FakeToastController::Call& call) {
        if (call.method != "NotifyComplete") {
            return;
        }
        openFiles = bus_.OpenFiles();
        imageInUse = !DeleteFileW(folders_.DownloadedImagePath().c_str());
    };
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(openFiles, 1u);
    EXPECT_EQ(imageInUse, true);
    EXPECT_EQ(bus_.OpenFiles(), 0u);
    EXPECT_EQ(bus_.OpenInterfaces(), 0u);
    EXPECT_TRUE(DeleteFileW(folders_.DownloadedImagePath().c_str()));
}

TEST_F(FDUServiceDfuPass, ClosesTheDeviceAfterAFailureToo) {
    PlugDevice();
    EXPECT_EQ(Run(), kFail);
    EXPECT_EQ(bus_.OpenFiles(), 0u);
    EXPECT_EQ(bus_.OpenInterfaces(), 0u);
}

TEST_F(FDUServiceDfuPass, RunsAgainForTheNextArrival) {
    FakeUsbDevice& device = PlugDeviceForImage();
    EXPECT_EQ(Run(), 0);
    device.dfuState = 2;
    EXPECT_EQ(Run(), 0);
    EXPECT_EQ(device.downloaded.size(), 200u);
    EXPECT_EQ(toast_.CallsOf("NotifyComplete").size(), 2u);
}

class FDUServiceWithoutPrompt : public FDUServiceDfuPass {
  protected:
    void ExpectToDownloadAllTheSame() {
        FakeUsbDevice& device = PlugDeviceForImage(300, 100);
        EXPECT_EQ(Run(), 0);
        EXPECT_EQ(device.downloaded.size(), 300u);
        EXPECT_TRUE(toast_.Calls().empty());
    }
};

TEST_F(FDUServiceWithoutPrompt, DownloadsAllTheSame) {
    activation_.creationResult = E_FAIL;
    ExpectToDownloadAllTheSame();
}

TEST_F(FDUServiceWithoutPrompt, DownloadsAllTheSameWhenComRefusedItsSecurity) {
    com_.securityResult = E_FAIL;
    ExpectToDownloadAllTheSame();
}

TEST_F(FDUServiceWithoutPrompt, DownloadsAllTheSameWhenTheControllerCannotBeRegistered) {
    FailToastController(ERROR_ACCESS_DENIED);
    ExpectToDownloadAllTheSame();
}

using FDUServiceProgress = FDUServiceDfuPass;

TEST_F(FDUServiceProgress, IsSentAsSignedDecimalText) {
    Service().ReportProgress(37);
    Service().ReportProgress(0);
    Service().ReportProgress(-1);
    Service().ReportProgress(2147483647);
    Service().ReportProgress(-2147483647 - 1);
    EXPECT_EQ(ProgressTexts(), (Texts{L"37", L"0", L"-1", L"2147483647", L"-2147483648"}));
}

TEST_F(FDUServiceProgress, IsSentToNobodyWithoutAPromptClient) {
    activation_.creationResult = E_FAIL;
    Service().ReportProgress(37);
    EXPECT_TRUE(toast_.Calls().empty());
}

}  // namespace
