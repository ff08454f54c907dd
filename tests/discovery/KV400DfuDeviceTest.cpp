#include "discovery/KV400DfuDevice.h"

#include "tests/discovery/EventJournal.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeConfigurationManager.h"
#include "tests/support/FakeUsbBus.h"
#include "tests/support/ImageFile.h"
#include "tests/support/VirtualSlot.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using test_support::FakeClock;
using test_support::FakeConfigurationManager;
using test_support::FakeUsbBus;
using test_support::FakeUsbDevice;
using test_support::ImageFile;
using test_support::VirtualSlot;
using Bytes = std::vector<std::uint8_t>;
using Calls = std::vector<std::string>;

const std::wstring kLink = L"\\\\?\\usb#vid_2f1a&pid_7e01#1#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
const std::wstring kSecondProductLink =
    L"\\\\?\\usb#vid_2f1a&pid_7e02#2#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
const std::string kNarrowLink = "\\\\?\\usb#vid_2f1a&pid_7e01#1#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";

// A device object for a camera that is present in DFU mode and takes 8 bytes a block.
class KV400DfuDeviceTest : public testing::Test {
  protected:
    KV400DfuDeviceTest() { manager_.SetPresent({kLink}); }

    // What every road that made a watcher or opened a connection must leave behind.
    void ExpectNothingLeftOpen() {
        EXPECT_EQ(manager_.ActiveRegistrations(), 0U);
        EXPECT_EQ(bus_.OpenFiles(), 0U);
        EXPECT_EQ(bus_.OpenInterfaces(), 0U);
    }

    FakeClock clock_;
    FakeConfigurationManager manager_;
    EventJournal events_;
    FakeUsbBus bus_;
    FakeUsbDevice& usbDevice_ = bus_.Add(kLink, 8);
    std::ostringstream log_;
    std::shared_ptr<KV400DfuDevice> device_ = std::make_shared<KV400DfuDevice>(kLink, &log_);
};

// ---- The object

TEST_F(KV400DfuDeviceTest, HasItsOperationsInOrderBehindTheDestructor) {
    EXPECT_EQ(VirtualSlot(&IDfuDevice::Update), 2U);
    EXPECT_EQ(VirtualSlot(&IDfuDevice::GetSymbolicLink), 3U);
    EXPECT_EQ(VirtualSlot(&IDfuDevice::GetName), 4U);
    EXPECT_EQ(VirtualSlot(&IDfuDevice::Reserved), 5U);
    EXPECT_EQ(VirtualSlot(&IDfuDevice::WaitForConnection), 6U);
}

TEST_F(KV400DfuDeviceTest, IsADeviceThatLogs) {
    EXPECT_TRUE(std::is_abstract_v<IDfuDevice>);
    EXPECT_TRUE(std::has_virtual_destructor_v<IDfuDevice>);
    EXPECT_TRUE((std::is_base_of_v<IDfuDevice, KV400DfuDevice>));
    EXPECT_TRUE((std::is_base_of_v<DfuLogger, KV400DfuDevice>));
    EXPECT_EQ(device_->LogStream(), &log_);
}

TEST_F(KV400DfuDeviceTest, TellsItsLinkAndItsName) {
    EXPECT_EQ(device_->GetSymbolicLink(), kLink);
    EXPECT_EQ(device_->GetName(),
              L"KV400 DFU \\\\?\\usb#vid_2f1a&pid_7e01#1#{a5dcbf10-6530-11d2-901f-00c04fb951ed}");
    EXPECT_EQ(KV400DfuDevice(L"", nullptr).GetName(), L"KV400 DFU ");
}

TEST_F(KV400DfuDeviceTest, AnswersItsReservedOperationWithZero) {
    EXPECT_EQ(device_->Reserved(), 0U);
}

TEST_F(KV400DfuDeviceTest, TouchesNothingUntilItIsAsked) {
    EXPECT_EQ(manager_.Calls(), Calls{});
    EXPECT_EQ(bus_.Calls(), Calls{});
}

// ---- WaitForConnection

TEST_F(KV400DfuDeviceTest, IsConnectedWhileItsLinkIsPresent) {
    EXPECT_EQ(device_->WaitForConnection(500), 0U);
    EXPECT_EQ(clock_.Waits(), (std::vector<DWORD>{50}));
    ExpectNothingLeftOpen();
}

TEST_F(KV400DfuDeviceTest, IsNotConnectedAfterTenRounds) {
    manager_.SetPresent({});
    EXPECT_EQ(device_->WaitForConnection(500), 2U);
    EXPECT_EQ(clock_.Waits(), std::vector<DWORD>(10, 50));
    ExpectNothingLeftOpen();
}

TEST_F(KV400DfuDeviceTest, IsNotConnectedThroughAnotherDevice) {
    manager_.SetPresent({kSecondProductLink});
    EXPECT_EQ(device_->WaitForConnection(100), 2U);
    EXPECT_EQ(clock_.Sleeps(), std::vector<DWORD>(10, 10)) << "the watcher knows the second product too";
}

TEST_F(KV400DfuDeviceTest, WatchesBothProducts) {
    manager_.SetPresent({kSecondProductLink});
    KV400DfuDevice device(kSecondProductLink, nullptr);
    EXPECT_EQ(device.WaitForConnection(100), 0U);
}

TEST_F(KV400DfuDeviceTest, WatchesNoOtherProduct) {
    const std::wstring link = L"\\\\?\\usb#vid_2f1a&pid_7e03#3#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
    manager_.SetPresent({link});
    KV400DfuDevice device(link, nullptr);
    EXPECT_EQ(device.WaitForConnection(100), 2U);
}

TEST_F(KV400DfuDeviceTest, NamesItsWatcher) {
    EXPECT_EQ(device_->WaitForConnection(500), 0U);
    const std::string creation = "CreateEventW(no security, manual reset, not signalled, DFU device watcher)";
    ASSERT_GE(events_.Calls().size(), 2U);
    EXPECT_EQ(events_.Calls()[0], creation);
    EXPECT_EQ(events_.Calls()[1], creation);
}

TEST_F(KV400DfuDeviceTest, IsFoundWhenItArrivesDuringTheWait) {
    manager_.SetPresent({});
    clock_.After(120, [this] { manager_.Plug(kLink); });
    EXPECT_EQ(device_->WaitForConnection(500), 0U);
    EXPECT_EQ(clock_.Elapsed(), 120U);
}

// ---- Update

TEST_F(KV400DfuDeviceTest, UpdateDownloadsTheFileWithoutAProbe) {
    const Bytes image{1, 2, 3, 4, 5, 6, 7, 8, 9};
    const ImageFile file(image);
    EXPECT_EQ(device_->Update(file.Path().c_str()), S_OK);
    EXPECT_EQ(usbDevice_.downloaded, image);
    EXPECT_EQ(log_.str(), "Downloaded 8, bytes remaining 1\nDownloaded 1, bytes remaining 0\n");
    for (const std::string& call : bus_.Calls()) {
        EXPECT_EQ(call.find("WinUsb_ControlTransfer(main, A1 02"), std::string::npos) << call;
    }
    ExpectNothingLeftOpen();
}

TEST_F(KV400DfuDeviceTest, UpdateOpensTheLinkAndClosesItWhenTheCommandIsThrough) {
    const ImageFile file({});
    EXPECT_EQ(device_->Update(file.Path().c_str()), S_OK);
    const Calls calls = bus_.Calls();
    ASSERT_GE(calls.size(), 4U);
    EXPECT_EQ(calls[0],
              "CreateFileW(" + kNarrowLink +
                  ", access C0000000, sharing 3, no security, disposition 3, attributes 40000080, no "
                  "template)");
    EXPECT_EQ(calls[calls.size() - 3],
              "WinUsb_ControlTransfer(main, A1 03 0000 0000 0006, 6 bytes, no overlapped)");
    EXPECT_EQ(calls[calls.size() - 2], "WinUsb_Free(main)");
    EXPECT_EQ(calls[calls.size() - 1], "CloseHandle(file)");
}

TEST_F(KV400DfuDeviceTest, UpdateWaitsForTheDeviceWithTenSeconds) {
    const ImageFile file({});
    EXPECT_EQ(device_->Update(file.Path().c_str()), S_OK);
    EXPECT_EQ(clock_.Waits(), (std::vector<DWORD>{1000}));
}

TEST_F(KV400DfuDeviceTest, UpdateFailsAfterTenSecondsWhenTheDeviceHasVanished) {
    manager_.SetPresent({});
    const ImageFile file({1, 2, 3});
    EXPECT_EQ(device_->Update(file.Path().c_str()), 2);
    EXPECT_EQ(clock_.Waits(), std::vector<DWORD>(10, 1000));
    EXPECT_EQ(clock_.Elapsed(), 10000U);
    EXPECT_EQ(log_.str(), "DFU device" + kNarrowLink + " is not connected\n");
    EXPECT_EQ(bus_.Calls(), Calls{}) << "nothing is opened";
    ExpectNothingLeftOpen();
}

TEST_F(KV400DfuDeviceTest, UpdateFailsWhenTheDeviceDoesNotOpen) {
    bus_.Fail("CreateFileW", ERROR_ACCESS_DENIED);
    const ImageFile file({1, 2, 3});
    EXPECT_EQ(device_->Update(file.Path().c_str()), E_FAIL);
    EXPECT_EQ(log_.str(), "Failed to connect to DFU interface with symbolic link" + kNarrowLink + "\n");
    EXPECT_EQ(bus_.Calls().size(), 1U);
    ExpectNothingLeftOpen();
}

TEST_F(KV400DfuDeviceTest, UpdateFailsWhenTheDeviceHasNoDfuInterface) {
    usbDevice_.SetInterfaces({{0, 0, 0x0E}});
    const ImageFile file({1, 2, 3});
    EXPECT_EQ(device_->Update(file.Path().c_str()), E_FAIL);
    EXPECT_EQ(log_.str(), "Failed to connect to DFU interface with symbolic link" + kNarrowLink + "\n");
    ExpectNothingLeftOpen();
}

TEST_F(KV400DfuDeviceTest, UpdateReturnsTheCommandsFailureAndClosesTheConnection) {
    usbDevice_.dfuState = 10;
    const ImageFile file({1, 2, 3});
    EXPECT_EQ(device_->Update(file.Path().c_str()), E_FAIL);
    EXPECT_EQ(log_.str(), "AssertState(DFU_STATE::dfuIDLE) Failed with status-2147467259\n");
    EXPECT_EQ(usbDevice_.blockNumbers, std::vector<std::uint16_t>{});
    ExpectNothingLeftOpen();
}

TEST_F(KV400DfuDeviceTest, UpdateReturnsATransfersStatusUnchanged) {
    bus_.Fail("WinUsb_ControlTransfer", ERROR_GEN_FAILURE);
    const ImageFile file({1, 2, 3});
    EXPECT_EQ(device_->Update(file.Path().c_str()), static_cast<HRESULT>(0x8007001F));
    EXPECT_EQ(log_.str(),
              "usbEndpoint->Transfer(packet, reinterpret_cast<PUCHAR>(&state), sizeof(UCHAR)) Failed with "
              "status-2147024865\n"
              "GetDfuState(state) Failed with status-2147024865\n");
    ExpectNothingLeftOpen();
}

TEST_F(KV400DfuDeviceTest, UpdateFailsForAMissingFileAndClosesTheConnection) {
    const std::wstring path = L"C:\\no such folder\\no such file";
    EXPECT_EQ(device_->Update(path.c_str()), E_FAIL);
    std::ostringstream expected;
    expected << "Failed to open file " << static_cast<const void*>(path.c_str()) << '\n';
    EXPECT_EQ(log_.str(), expected.str());
    ExpectNothingLeftOpen();
}

TEST_F(KV400DfuDeviceTest, UpdateClosesTheConnectionWhenThePathRaises) {
    EXPECT_THROW(device_->Update(L"\""), std::out_of_range);
    ExpectNothingLeftOpen();
}

TEST_F(KV400DfuDeviceTest, UpdateWritesNothingWithoutALogStream) {
    KV400DfuDevice quiet(kLink, nullptr);
    bus_.Fail("CreateFileW", ERROR_ACCESS_DENIED);
    const ImageFile file({1, 2, 3});
    EXPECT_EQ(quiet.Update(file.Path().c_str()), E_FAIL);
    EXPECT_EQ(quiet.Update(file.Path().c_str()), S_OK);
    manager_.SetPresent({});
    EXPECT_EQ(quiet.Update(file.Path().c_str()), 2);
    EXPECT_EQ(log_.str(), "");
}

// The device leaves the bus in the middle: the transfer says so, and the rest is given up.
TEST_F(KV400DfuDeviceTest, UpdateFailsWhenTheDeviceIsUnpluggedInTheMiddle) {
    usbDevice_.control = [this](const WINUSB_SETUP_PACKET& setup, std::span<std::uint8_t> data) -> DWORD {
        if (setup.Request == 1 && setup.Value == 1) {
            return ERROR_DEVICE_NOT_CONNECTED;
        }
        return usbDevice_.AnswerInDfuMode(setup, data);
    };
    const ImageFile file({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    EXPECT_EQ(device_->Update(file.Path().c_str()), static_cast<HRESULT>(0x8007048F));
    EXPECT_EQ(log_.str(),
              "Downloaded 8, bytes remaining 2\n"
              "usbEndpoint->Transfer(downloadPacket, pBuffer, chunkSize) Failed with status-2147023729\n"
              "DownloadImage(reinterpret_cast<const BYTE *>(firmwareImage), imageLength) Failed with "
              "status-2147023729\n");
    ExpectNothingLeftOpen();
}

}  // namespace
