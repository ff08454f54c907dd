#include "camera/KV400UpdatableDevice.h"

#include "tests/camera/StoredUpdateMode.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeConfigurationManager.h"
#include "tests/support/FakeMediaFoundation.h"
#include "tests/support/FakeUsbBus.h"
#include "tests/support/ImageFile.h"
#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

// The camera's whole update, from the image's path to the download into each device in DFU mode.

namespace {

using Microsoft::WRL::ComPtr;
using test_support::FakeCamera;
using test_support::FakeClock;
using test_support::FakeConfigurationManager;
using test_support::FakeMediaFoundation;
using test_support::FakeUsbBus;
using test_support::FakeUsbDevice;
using test_support::ImportRedirect;

constexpr HRESULT kFail = static_cast<HRESULT>(0x80004005);
constexpr const wchar_t* kFirstLink =
    L"\\\\?\\usb#vid_2f1a&pid_7e01#0001#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
constexpr const wchar_t* kSecondLink =
    L"\\\\?\\usb#vid_2f1a&pid_7e02#0002#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
constexpr const char* kFirstName =
    "KV400 DFU \\\\?\\usb#vid_2f1a&pid_7e01#0001#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
constexpr const char* kSecondName =
    "KV400 DFU \\\\?\\usb#vid_2f1a&pid_7e02#0002#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";

const std::vector<std::uint8_t> kImage{'T', 'h', 'e', ' ', 'f', 'i', 'r', 'm',
                                       'w', 'a', 'r', 'e', 0,   1,   0xFF};

bool IsOpenElsewhere(const std::wstring& path) {
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return GetLastError() == ERROR_SHARING_VIOLATION;
    }
    CloseHandle(file);
    return false;
}

// Every file that the C++ library opens, with the mode; a path that is not a legal file name can be led to a
// real file.
class OpenedFiles : public test_support::OnlyOne<OpenedFiles> {
  public:
    void Lead(std::wstring from, std::wstring to) {
        from_ = std::move(from);
        to_ = std::move(to);
    }
    const std::vector<std::wstring>& Calls() const { return calls_; }

  private:
    static FILE* __cdecl Open(const wchar_t* path, const wchar_t* mode) {
        current_->calls_.push_back(std::wstring(path) + L" " + mode);
        return current_->open_.Original<decltype(Open)>()(
            path == current_->from_ ? current_->to_.c_str() : path, mode);
    }

    std::wstring from_;
    std::wstring to_;
    std::vector<std::wstring> calls_;
    ImportRedirect open_{"_wfopen", &Open};
};

class KV400UpdatableDeviceUpdate : public ::testing::Test {
  protected:
    KV400UpdatableDeviceUpdate() {
        EXPECT_EQ(camera_->Open(ComPtr<IMFActivate>(source_.ListedActivation())), S_OK);
        camera_->SetLogStream(&log_);
        opened_ = clock_.Calls().size();
    }
    ~KV400UpdatableDeviceUpdate() override {
        camera_.reset();
        EXPECT_EQ(mediaFoundation_.References(), 0);
        EXPECT_EQ(bus_.OpenFiles(), 0u);
        EXPECT_EQ(bus_.OpenInterfaces(), 0u);
        EXPECT_EQ(configurationManager_.ActiveRegistrations(), 0u);
    }

    FakeUsbDevice& Plug(const wchar_t* link) {
        configurationManager_.Plug(link);
        return bus_.Add(link, 64);
    }
    // A device whose first control transfer fails, so that its update fails.
    FakeUsbDevice& PlugBroken(const wchar_t* link) {
        FakeUsbDevice& device = Plug(link);
        device.control = [](const WINUSB_SETUP_PACKET&, std::span<std::uint8_t>) -> DWORD {
            return ERROR_GEN_FAILURE;
        };
        return device;
    }

    HRESULT Update(const std::wstring& path) {
        path_ = path;
        return camera_->UpdateFirmware(path_.c_str());
    }
    HRESULT Update() { return Update(image_.Path()); }

    // The first line of every update: the address of the path's text.
    std::string Announcement() const {
        std::array<char, 32> address{};
        std::snprintf(address.data(), address.size(), "0x%llx",
                      static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(path_.c_str())));
        return "Updating firmware to " + std::string(address.data()) + "\n";
    }
    bool IsLogged(const std::string& text) const { return log_.str().find(text) != std::string::npos; }

    std::size_t DfuModeCommands() const {
        const auto commands = source_.Firmware().Commands();
        return static_cast<std::size_t>(std::count_if(
            commands.begin(), commands.end(), [](const auto& command) { return command.opcode == 0x1E; }));
    }
    // What was waited for since the camera was opened.
    std::vector<FakeClock::Call> Waits() const {
        const auto calls = clock_.Calls();
        return {calls.begin() + static_cast<std::ptrdiff_t>(opened_), calls.end()};
    }

    const StoredUpdateMode stored_;
    const test_support::ImageFile image_{kImage};
    FakeClock clock_;
    FakeConfigurationManager configurationManager_;
    FakeUsbBus bus_;
    FakeMediaFoundation mediaFoundation_;
    FakeCamera& source_ = mediaFoundation_.AddCamera(L"\\\\?\\camera");
    std::ostringstream log_;
    std::unique_ptr<ICameraDevice> camera_ = std::make_unique<KV400UpdatableDevice>();

  private:
    std::wstring path_;
    std::size_t opened_ = 0;
};

TEST_F(KV400UpdatableDeviceUpdate, DownloadsTheImageIntoTheDeviceInDfuMode) {
    FakeUsbDevice& device = Plug(kFirstLink);

    EXPECT_EQ(Update(), S_OK);

    EXPECT_EQ(device.downloaded, kImage);
    EXPECT_EQ(DfuModeCommands(), 1u);
    EXPECT_FALSE(IsLogged("More than one")) << log_.str();
    EXPECT_FALSE(IsLogged("Failed")) << log_.str();
}

TEST_F(KV400UpdatableDeviceUpdate, WorksWithoutALogStream) {
    FakeUsbDevice& device = Plug(kFirstLink);
    PlugBroken(kSecondLink);
    camera_->SetLogStream(nullptr);

    EXPECT_TRUE(FAILED(Update()));

    EXPECT_EQ(device.downloaded, kImage);
    EXPECT_EQ(Update(L"C:\\no such folder\\image.bin"), kFail);
    EXPECT_EQ(log_.str(), "");
}

// The line has always shown where the text is, not what it says.
TEST_F(KV400UpdatableDeviceUpdate, AnnouncesTheAddressOfThePath) {
    EXPECT_EQ(Update(), kFail);

    EXPECT_EQ(log_.str(), Announcement() + "No DFU device was connected \n");
}

TEST_F(KV400UpdatableDeviceUpdate, StopsBeforeAnythingElseWhenTheFileDoesNotOpen) {
    Plug(kFirstLink);

    EXPECT_EQ(Update(L"C:\\no such folder\\image.bin"), kFail);

    EXPECT_EQ(log_.str(), Announcement() + "Failed to open file C:\\no such folder\\image.bin\n");
    EXPECT_EQ(stored_.Text(), std::nullopt);
    EXPECT_EQ(DfuModeCommands(), 0u);
    EXPECT_TRUE(configurationManager_.Registrations().empty());
}

TEST_F(KV400UpdatableDeviceUpdate, StopsForAnEmptyPath) {
    EXPECT_EQ(Update(L""), kFail);

    EXPECT_EQ(log_.str(), Announcement() + "Failed to open file \n");
}

TEST_F(KV400UpdatableDeviceUpdate, TestsTheFileForBinaryReadingAndClosesItAgainAtOnce) {
    Plug(kFirstLink);
    OpenedFiles files;
    std::optional<bool> isOpen;
    configurationManager_.BeforeEachListing([&] {
        if (!isOpen) {
            isOpen = IsOpenElsewhere(image_.Path());
        }
    });

    EXPECT_EQ(Update(), S_OK);

    EXPECT_EQ(isOpen, false);
    ASSERT_FALSE(files.Calls().empty());
    EXPECT_EQ(files.Calls()[0], image_.Path() + L" rb");
}

TEST_F(KV400UpdatableDeviceUpdate, TakesAPathInQuotes) {
    FakeUsbDevice& device = Plug(kFirstLink);
    OpenedFiles files;

    EXPECT_EQ(Update(L"\"" + image_.Path() + L"\""), S_OK);

    EXPECT_EQ(device.downloaded, kImage);
    EXPECT_EQ(files.Calls(), (std::vector<std::wstring>{image_.Path() + L" rb", image_.Path() + L" rb"}));
}

// Each side takes one pair of quotes off the same text: the device gets the path as it was given.
TEST_F(KV400UpdatableDeviceUpdate, HandsThePathToTheDevicesWithItsQuotes) {
    FakeUsbDevice& device = Plug(kFirstLink);
    OpenedFiles files;
    files.Lead(L"\"image\"", image_.Path());

    EXPECT_EQ(Update(L"\"\"image\"\""), S_OK);

    EXPECT_EQ(files.Calls(), (std::vector<std::wstring>{L"\"image\" rb", L"\"image\" rb"}));
    EXPECT_EQ(device.downloaded, kImage);
}

TEST_F(KV400UpdatableDeviceUpdate, TakesAPathWithAQuoteAtItsStartOnlyAsItIs) {
    Plug(kFirstLink);
    OpenedFiles files;
    files.Lead(L"\"image", image_.Path());

    EXPECT_EQ(Update(L"\"image"), S_OK);

    EXPECT_EQ(files.Calls(), (std::vector<std::wstring>{L"\"image rb", L"\"image rb"}));
}

TEST_F(KV400UpdatableDeviceUpdate, TakesAPathWithAQuoteAtItsEndOnlyAsItIs) {
    Plug(kFirstLink);
    OpenedFiles files;
    files.Lead(L"image\"", image_.Path());

    EXPECT_EQ(Update(L"image\""), S_OK);

    EXPECT_EQ(files.Calls(), (std::vector<std::wstring>{L"image\" rb", L"image\" rb"}));
}

TEST_F(KV400UpdatableDeviceUpdate, SetsTheUpdateModeToDisabledAndLeavesItThere) {
    Plug(kFirstLink);
    EXPECT_EQ(camera_->SetDfuModeServiceControlled(), S_OK);

    EXPECT_EQ(Update(), S_OK);

    EXPECT_EQ(stored_.Text(), L"Disabled");
}

TEST_F(KV400UpdatableDeviceUpdate, SetsTheUpdateModeBeforeTheCameraLeavesForDfuMode) {
    Plug(kFirstLink);
    std::optional<std::wstring> atCommand;
    source_.Nodes().back().control.SetAnswer([&](const test_support::KsCall& call) {
        if (!atCommand) {
            atCommand = stored_.Text();
        }
        return source_.Firmware().Answer(call);
    });

    EXPECT_EQ(Update(), S_OK);

    EXPECT_EQ(atCommand, L"Disabled");
}

LSTATUS WINAPI DenyKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, LPSECURITY_ATTRIBUTES, PHKEY, LPDWORD) {
    return ERROR_ACCESS_DENIED;
}

TEST_F(KV400UpdatableDeviceUpdate, StopsBeforeDfuModeWhenTheUpdateModeCannotBeStored) {
    Plug(kFirstLink);
    const ImportRedirect denied("RegCreateKeyExW", &DenyKey);

    EXPECT_EQ(Update(), kFail);

    EXPECT_EQ(log_.str(), Announcement() +
                              "Failed open registry key with status ACCESS_DENIED\n"
                              "Failed disable automatic DFU\n");
    EXPECT_EQ(DfuModeCommands(), 0u);
    EXPECT_TRUE(configurationManager_.Registrations().empty());
    EXPECT_TRUE(Waits().empty());
}

TEST_F(KV400UpdatableDeviceUpdate, SendsTheDfuModeCommandBeforeItLooksForDevices) {
    Plug(kFirstLink);
    std::optional<std::size_t> commandsAtFirstListing;
    configurationManager_.BeforeEachListing([&] {
        if (!commandsAtFirstListing) {
            commandsAtFirstListing = DfuModeCommands();
        }
    });

    EXPECT_EQ(Update(), S_OK);

    EXPECT_EQ(commandsAtFirstListing, 1u);
    EXPECT_EQ(source_.Firmware().Commands().back().parameters, (std::array<std::uint32_t, 4>{1, 0, 0, 0}));
}

TEST_F(KV400UpdatableDeviceUpdate, GoesOnWhenTheDfuModeCommandFails) {
    FakeUsbDevice& device = Plug(kFirstLink);
    source_.Firmware().SetWriteResult(E_FAIL);

    EXPECT_EQ(Update(), S_OK);

    EXPECT_EQ(device.downloaded, kImage);
}

TEST_F(KV400UpdatableDeviceUpdate, WaitsTenSecondsForADeviceAndThenGivesUp) {
    EXPECT_EQ(Update(), kFail);

    const auto waits = Waits();
    ASSERT_EQ(waits.size(), 1u);
    EXPECT_EQ(waits[0].kind, FakeClock::Call::Kind::Wait);
    EXPECT_EQ(waits[0].milliseconds, 10000u);
    EXPECT_EQ(log_.str(), Announcement() + "No DFU device was connected \n");
}

TEST_F(KV400UpdatableDeviceUpdate, UpdatesADeviceThatComesInTime) {
    FakeUsbDevice& device = bus_.Add(kFirstLink, 64);
    clock_.After(9000, [this] { configurationManager_.Plug(kFirstLink); });

    EXPECT_EQ(Update(), S_OK);

    EXPECT_EQ(device.downloaded, kImage);
}

TEST_F(KV400UpdatableDeviceUpdate, MissesADeviceThatComesTooLate) {
    bus_.Add(kFirstLink, 64);
    clock_.After(10001, [this] { configurationManager_.Plug(kFirstLink); });

    EXPECT_EQ(Update(), kFail);
}

TEST_F(KV400UpdatableDeviceUpdate, UpdatesEveryDeviceInOrder) {
    std::vector<std::wstring> order;
    for (const wchar_t* link : {kFirstLink, kSecondLink}) {
        FakeUsbDevice& device = Plug(link);
        device.control = [&device, &order](const WINUSB_SETUP_PACKET& setup, std::span<std::uint8_t> data) {
            if (order.empty() || order.back() != device.link) {
                order.push_back(device.link);
            }
            return device.AnswerInDfuMode(setup, data);
        };
    }

    EXPECT_EQ(Update(), S_OK);

    EXPECT_EQ(order, (std::vector<std::wstring>{kFirstLink, kSecondLink}));
    EXPECT_TRUE(log_.str().starts_with(Announcement() + "More than one DFU device was found, updating all\n"))
        << log_.str();
}

TEST_F(KV400UpdatableDeviceUpdate, GoesOnBehindAFailedDeviceAndReturnsTheLastResult) {
    PlugBroken(kFirstLink);
    FakeUsbDevice& second = Plug(kSecondLink);

    EXPECT_EQ(Update(), S_OK);

    EXPECT_EQ(second.downloaded, kImage);
    EXPECT_TRUE(IsLogged("\nFailed to update device " + std::string(kFirstName) + "\n")) << log_.str();
    EXPECT_FALSE(IsLogged("Failed to update device " + std::string(kSecondName))) << log_.str();
}

TEST_F(KV400UpdatableDeviceUpdate, ReturnsTheLastDevicesFailureThoughTheFirstWasUpdated) {
    FakeUsbDevice& first = Plug(kFirstLink);
    PlugBroken(kSecondLink);

    EXPECT_EQ(Update(), static_cast<HRESULT>(0x8007001F)) << "the failed transfer's code";

    EXPECT_EQ(first.downloaded, kImage);
    EXPECT_TRUE(log_.str().ends_with("Failed to update device " + std::string(kSecondName) + "\n"))
        << log_.str();
    EXPECT_FALSE(IsLogged("Failed to update device " + std::string(kFirstName))) << log_.str();
}

TEST_F(KV400UpdatableDeviceUpdate, HandsItsLogStreamToTheDevices) {
    configurationManager_.Plug(kFirstLink);  // present, but not to be opened

    EXPECT_EQ(Update(), kFail);

    EXPECT_EQ(log_.str(), Announcement() + "Failed to connect to DFU interface with symbolic link" +
                              test_support::Narrow(kFirstLink) + "\nFailed to update device " + kFirstName +
                              "\n");
}

}  // namespace
