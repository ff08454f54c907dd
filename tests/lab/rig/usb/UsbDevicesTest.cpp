#include <windows.h>

#include "lab/rig/usb/UsbDevices.h"
#include "tests/lab/rig/bus/BusFixture.h"

using namespace lab::rig;

namespace {

constexpr DWORD kNoSuchDevice = 433;
constexpr lab::SetupPacket kGetState{0xA1, 5, 0, 0, 1};

// Two interfaces: a vendor's own with two settings, then that of DFU.
const std::vector<std::uint8_t> kTwoInterfaces{9, 2,    45, 0,    2, 1,    0, 0x80, 50,  //
                                               9, 4,    0,  0,    0, 0xFF, 0, 0,    0,   //
                                               9, 4,    0,  1,    0, 0xFF, 0, 0,    0,   //
                                               9, 4,    1,  0,    0, 0xFE, 1, 2,    0,   //
                                               9, 0x21, 3,  0xE8, 3, 0,    4, 0x10, 1};

class UsbDevicesTest : public BusFixture {
  protected:
    void BeginInDfuMode(lab::CameraSettings camera) {
        Begin({std::move(camera)});
        BringIntoDfuMode();
        devices_ =
            std::make_unique<UsbDevices>(*bus_, [this](const nlohmann::json& event) { events_.Add(event); });
    }

    void BeginOpened(lab::CameraSettings camera) {
        BeginInDfuMode(std::move(camera));
        ASSERT_EQ(devices_->Open(links_.DfuUsb(), FILE_FLAG_OVERLAPPED, file_), DWORD{ERROR_SUCCESS});
        ASSERT_EQ(devices_->Initialize(file_, handle_), DWORD{ERROR_SUCCESS});
    }

    void Close(HANDLE file) {
        devices_->Closing(file);
        EXPECT_TRUE(CloseHandle(file));
    }

    DWORD GetState() {
        ULONG transferred = 0;
        std::uint8_t state = 0;
        return devices_->ControlTransfer(handle_, kGetState, {&state, 1}, transferred);
    }

    std::unique_ptr<UsbDevices> devices_;
    HANDLE file_ = nullptr;
    WINUSB_INTERFACE_HANDLE handle_ = nullptr;
};

}  // namespace

TEST_F(UsbDevicesTest, OpensADeviceInDfuModeWhateverTheCaseOfItsLink) {
    BeginInDfuMode(QuickCamera());
    const std::wstring folded =
        LR"(\\?\usb#vid_2f1a&pid_7e01#kv4000001#{a5dcbf10-6530-11d2-901f-00c04fb951ed})";
    ASSERT_EQ(devices_->Open(folded, FILE_FLAG_OVERLAPPED, file_), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(WaitForSingleObject(file_, 0), DWORD{WAIT_TIMEOUT});
    Close(file_);
    EXPECT_EQ(events_.Named("usb-open").back().at("ok"), true);
    EXPECT_EQ(events_.Named("usb-close").size(), 1U);
}

TEST_F(UsbDevicesTest, DoesNotFindWhatIsNotThere) {
    BeginInDfuMode(QuickCamera());
    EXPECT_EQ(devices_->Open(links_.RunningUsb(), FILE_FLAG_OVERLAPPED, file_), DWORD{ERROR_FILE_NOT_FOUND});
    bus_->Unplug(0);
    EXPECT_EQ(devices_->Open(links_.DfuUsb(), FILE_FLAG_OVERLAPPED, file_), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(events_.Named("usb-open").back().at("ok"), false);
}

TEST_F(UsbDevicesTest, DoesNotOpenWhatItsDriverHasNotStarted) {
    auto camera = QuickCamera();
    camera.driverStartMs = 60'000;
    BeginInDfuMode(camera);
    EXPECT_EQ(devices_->Open(links_.DfuUsb(), FILE_FLAG_OVERLAPPED, file_), DWORD{ERROR_FILE_NOT_FOUND});
    bus_->Skip(60'000);
    ASSERT_EQ(devices_->Open(links_.DfuUsb(), FILE_FLAG_OVERLAPPED, file_), DWORD{ERROR_SUCCESS});
    Close(file_);
}

TEST_F(UsbDevicesTest, NeverOpensWhatNeverStarts) {
    auto camera = QuickCamera();
    camera.driverStartMs.reset();
    BeginInDfuMode(camera);
    bus_->Skip(600'000);
    EXPECT_EQ(devices_->Open(links_.DfuUsb(), FILE_FLAG_OVERLAPPED, file_), DWORD{ERROR_FILE_NOT_FOUND});
}

// The driver serves one file at a time, so a handle that the product leaks must show here.
TEST_F(UsbDevicesTest, DeniesASecondFileUntilTheFirstIsClosed) {
    BeginInDfuMode(QuickCamera());
    HANDLE second = nullptr;
    ASSERT_EQ(devices_->Open(links_.DfuUsb(), FILE_FLAG_OVERLAPPED, file_), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(devices_->Open(links_.DfuUsb(), FILE_FLAG_OVERLAPPED, second), DWORD{ERROR_ACCESS_DENIED});
    Close(file_);
    EXPECT_EQ(devices_->Open(links_.DfuUsb(), FILE_FLAG_OVERLAPPED, second), DWORD{ERROR_SUCCESS});
    Close(second);
}

TEST_F(UsbDevicesTest, InitializesOnlyOverlappedFilesOfItsOwn) {
    BeginInDfuMode(QuickCamera());
    ASSERT_EQ(devices_->Open(links_.DfuUsb(), 0, file_), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(devices_->Initialize(file_, handle_), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(devices_->Initialize(GetCurrentProcess(), handle_), DWORD{ERROR_INVALID_HANDLE});
    Close(file_);
}

TEST_F(UsbDevicesTest, ClosingAHandleOfAnotherKindIsNoEvent) {
    BeginInDfuMode(QuickCamera());
    devices_->Closing(GetCurrentProcess());
    EXPECT_TRUE(events_.Named("usb-close").empty());
}

TEST_F(UsbDevicesTest, ReadsDescriptorsUpToTheBuffersSize) {
    BeginOpened(QuickCamera());
    std::array<std::uint8_t, 64> buffer{};
    ULONG transferred = 0;
    EXPECT_EQ(devices_->GetDescriptor(handle_, 1, 0, buffer, transferred), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(transferred, 18U);
    EXPECT_EQ(buffer[0], 18);
    EXPECT_EQ(devices_->GetDescriptor(handle_, 2, 0, std::span(buffer).first(9), transferred),
              DWORD{ERROR_SUCCESS});
    EXPECT_EQ(transferred, 9U);
    EXPECT_EQ(devices_->GetDescriptor(handle_, 2, 0, buffer, transferred), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(transferred, 27U);
    EXPECT_EQ(devices_->GetDescriptor(handle_, 3, 0, buffer, transferred), DWORD{ERROR_GEN_FAILURE});
    EXPECT_EQ(transferred, 0U);
    EXPECT_EQ(events_.Named("descriptor").size(), 4U);
}

TEST_F(UsbDevicesTest, WalksTheInterfacesAndTheirSettings) {
    auto camera = QuickCamera();
    camera.configurationDescriptor = kTwoInterfaces;
    BeginOpened(camera);
    USB_INTERFACE_DESCRIPTOR descriptor{};
    EXPECT_EQ(devices_->QueryInterfaceSettings(handle_, 1, descriptor), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(descriptor.bInterfaceNumber, 0);
    EXPECT_EQ(descriptor.bAlternateSetting, 1);
    EXPECT_EQ(devices_->QueryInterfaceSettings(handle_, 2, descriptor), DWORD{ERROR_NO_MORE_ITEMS});

    WINUSB_INTERFACE_HANDLE second = nullptr;
    WINUSB_INTERFACE_HANDLE again = nullptr;
    ASSERT_EQ(devices_->GetAssociatedInterface(handle_, 0, second), DWORD{ERROR_SUCCESS});
    EXPECT_NE(second, handle_);
    EXPECT_EQ(devices_->GetAssociatedInterface(handle_, 0, again), DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_EQ(devices_->GetAssociatedInterface(handle_, 1, again), DWORD{ERROR_NO_MORE_ITEMS});
    EXPECT_EQ(devices_->QueryInterfaceSettings(second, 0, descriptor), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(descriptor.bInterfaceNumber, 1);
    EXPECT_EQ(descriptor.bInterfaceClass, 0xFE);
    EXPECT_EQ(devices_->SetCurrentAlternateSetting(second, 0), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(devices_->SetCurrentAlternateSetting(second, 1), DWORD{ERROR_NOT_FOUND});
    EXPECT_EQ(
        events_.Named("alternate-setting")[0],
        (nlohmann::json{
            {"event", "alternate-setting"}, {"interface", 1}, {"setting", 0}, {"ok", true}, {"error", 0}}));
    EXPECT_EQ(devices_->Free(second), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(devices_->GetAssociatedInterface(handle_, 0, again), DWORD{ERROR_SUCCESS});
}

TEST_F(UsbDevicesTest, AFreedHandleReachesNothing) {
    BeginOpened(QuickCamera());
    EXPECT_EQ(GetState(), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(devices_->Free(handle_), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(GetState(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(devices_->Free(handle_), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(events_.Named("transfer").size(), 1U);
}

TEST_F(UsbDevicesTest, AHandleWhoseFileIsClosedCanOnlyBeFreed) {
    BeginOpened(QuickCamera());
    Close(file_);
    EXPECT_EQ(GetState(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(devices_->Free(handle_), DWORD{ERROR_SUCCESS});
}

TEST_F(UsbDevicesTest, ADeviceThatLeftIsNoSuchDevice) {
    BeginOpened(QuickCamera());
    bus_->Unplug(0);
    EXPECT_EQ(GetState(), DWORD{ERROR_BAD_COMMAND});
    bus_->Skip(500);
    USB_INTERFACE_DESCRIPTOR descriptor{};
    std::array<std::uint8_t, 18> buffer{};
    ULONG transferred = 0;
    EXPECT_EQ(GetState(), kNoSuchDevice);
    EXPECT_EQ(devices_->GetDescriptor(handle_, 1, 0, buffer, transferred), kNoSuchDevice);
    EXPECT_EQ(devices_->QueryInterfaceSettings(handle_, 0, descriptor), kNoSuchDevice);
    EXPECT_EQ(devices_->SetCurrentAlternateSetting(handle_, 0), kNoSuchDevice);
}

TEST_F(UsbDevicesTest, GivesTheDriversErrorForEachEndOfATransfer) {
    auto camera = QuickCamera();
    camera.timeoutMs = 0;  // the clock here is a real one
    camera.faults = {{lab::Fault::Where::GetState, lab::Fault::What::Stall, 0, 1, 0, false},
                     {lab::Fault::Where::GetState, lab::Fault::What::Timeout, 1, 1, 0, false}};
    BeginOpened(camera);
    EXPECT_EQ(GetState(), DWORD{ERROR_GEN_FAILURE});
    EXPECT_EQ(GetState(), DWORD{ERROR_SEM_TIMEOUT});
    EXPECT_EQ(GetState(), DWORD{ERROR_SUCCESS});
}

TEST_F(UsbDevicesTest, RefusesATransferLongerThanItsBuffer) {
    BeginOpened(QuickCamera());
    ULONG transferred = 7;
    EXPECT_EQ(devices_->ControlTransfer(handle_, kGetState, {}, transferred), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(transferred, 0U);
    EXPECT_TRUE(events_.Named("transfer").empty());
}
