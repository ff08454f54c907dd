#include "dfu/WinUsbControlEndpoint.h"

#include "dfu/WinUsbDfuConnection.h"
#include "tests/support/FakeUsbBus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace dfu {
namespace {

using test_support::FakeUsbBus;
using test_support::FakeUsbDevice;
using Calls = std::vector<std::string>;

const std::wstring kLink = L"\\\\?\\usb#vid_2f1a&pid_7e01#1#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";

constexpr HRESULT kInvalidHandle = static_cast<HRESULT>(0x80070006);
constexpr HRESULT kBadLength = static_cast<HRESULT>(0x80070018);

// A device whose DFU interface has number 3, takes 64 bytes at once and answers every transfer.
class WinUsbControlEndpointTest : public testing::Test {
  protected:
    WinUsbControlEndpointTest() : device_(bus_.Add(kLink, 64)) {
        device_.SetInterfaces({{3, 0, 0xFE}});
        device_.control = [this](const WINUSB_SETUP_PACKET&, std::span<std::uint8_t> data) {
            std::fill(data.begin(), data.end(), std::uint8_t{0x5A});
            return controlError_;
        };
        connection_ = std::make_unique<WinUsbDfuConnection>(kLink);
        endpoint_ = connection_->AcquireEndpoint();
        bus_.ForgetCalls();
    }

    void SetUp() override { ASSERT_NE(endpoint_, nullptr); }

    HRESULT TransferOf(std::size_t length) {
        packet_ = {0xA1, 0x02, 0x1234, 0xFFFF, static_cast<USHORT>(length)};
        return endpoint_->Transfer(packet_, buffer_.data(), length);
    }

    DWORD controlError_ = ERROR_SUCCESS;
    FakeUsbBus bus_;
    FakeUsbDevice& device_;
    std::unique_ptr<WinUsbDfuConnection> connection_;
    std::shared_ptr<usb_core::IUsbControlEndpoint> endpoint_;
    WINUSB_SETUP_PACKET packet_{};
    std::array<UCHAR, 128> buffer_{};
};

TEST_F(WinUsbControlEndpointTest, SendsTheRequestOnTheConnectionsMainHandle) {
    EXPECT_EQ(TransferOf(6), S_OK);
    EXPECT_EQ(bus_.Calls(),
              (Calls{"WinUsb_ControlTransfer(main, A1 02 1234 0003 0006, 6 bytes, no overlapped)"}));
    EXPECT_EQ(buffer_[0], 0x5A);
    EXPECT_EQ(buffer_[5], 0x5A);
    EXPECT_EQ(buffer_[6], 0);
}

TEST_F(WinUsbControlEndpointTest, WritesTheInterfaceNumberZeroExtendedIntoTheCallersPacket) {
    TransferOf(6);
    EXPECT_EQ(packet_.Index, 0x0003);
    EXPECT_EQ(packet_.RequestType, 0xA1);
    EXPECT_EQ(packet_.Request, 0x02);
    EXPECT_EQ(packet_.Value, 0x1234);
    EXPECT_EQ(packet_.Length, 0x0006);
}

// The packet's own length is what the device is told; the transfer has the length of the buffer.
TEST_F(WinUsbControlEndpointTest, TransfersTheLengthItIsGivenWhateverThePacketSays) {
    packet_ = {0xA1, 0x02, 0x1234, 0, 6};
    EXPECT_EQ(endpoint_->Transfer(packet_, buffer_.data(), 4), S_OK);
    EXPECT_EQ(bus_.Calls(),
              (Calls{"WinUsb_ControlTransfer(main, A1 02 1234 0003 0006, 4 bytes, no overlapped)"}));
}

TEST_F(WinUsbControlEndpointTest, PassesANullBufferOn) {
    packet_ = {0x21, 0x00, 0x03E8, 0, 0};
    EXPECT_EQ(endpoint_->Transfer(packet_, nullptr, 0), S_OK);
    EXPECT_EQ(bus_.Calls(),
              (Calls{"WinUsb_ControlTransfer(main, 21 00 03E8 0003 0000, no buffer, 0 bytes, no "
                     "overlapped)"}));
}

TEST_F(WinUsbControlEndpointTest, SendsARequestOfExactlyTheMaximum) {
    EXPECT_EQ(TransferOf(64), S_OK);
    EXPECT_EQ(bus_.Calls().size(), 1U);
}

TEST_F(WinUsbControlEndpointTest, RefusesALongerRequestBeforeAnyBusTraffic) {
    EXPECT_EQ(TransferOf(65), kBadLength);
    EXPECT_EQ(bus_.Calls(), Calls{});
    EXPECT_EQ(packet_.Index, 0xFFFF) << "a refused packet stays as it was";
}

// The length is a machine word; what it would be in 32 or 16 bits does not count.
TEST_F(WinUsbControlEndpointTest, RefusesALengthThatOnlyFitsWhenCutOff) {
    packet_ = {0xA1, 0x02, 0, 0, 1};
    EXPECT_EQ(endpoint_->Transfer(packet_, buffer_.data(), 0x100000001), kBadLength);
    EXPECT_EQ(endpoint_->Transfer(packet_, buffer_.data(), 0x10001), kBadLength);
    EXPECT_EQ(endpoint_->Transfer(packet_, buffer_.data(), std::numeric_limits<std::size_t>::max()),
              kBadLength);
    EXPECT_EQ(bus_.Calls(), Calls{});
}

TEST_F(WinUsbControlEndpointTest, FailsWithoutBusTrafficWhenDisconnected) {
    EXPECT_TRUE(endpoint_->IsConnected());
    endpoint_->Disconnect();
    EXPECT_FALSE(endpoint_->IsConnected());
    EXPECT_EQ(TransferOf(6), kInvalidHandle);
    EXPECT_EQ(bus_.Calls(), Calls{});
    EXPECT_EQ(packet_.Index, 0xFFFF);
    endpoint_->Disconnect();
    EXPECT_FALSE(endpoint_->IsConnected());
}

TEST_F(WinUsbControlEndpointTest, LooksAtTheConnectionBeforeTheLength) {
    endpoint_->Disconnect();
    EXPECT_EQ(TransferOf(65), kInvalidHandle);
}

TEST_F(WinUsbControlEndpointTest, DoesNotCompareTheTransferredCount) {
    device_.reportedTransferLength = 1;
    EXPECT_EQ(TransferOf(6), S_OK);
}

TEST_F(WinUsbControlEndpointTest, ReportsAWindowsErrorAsItsHresult) {
    controlError_ = ERROR_GEN_FAILURE;
    EXPECT_EQ(TransferOf(6), static_cast<HRESULT>(0x8007001F));
    controlError_ = ERROR_SEM_TIMEOUT;
    EXPECT_EQ(TransferOf(6), static_cast<HRESULT>(0x80070079));
}

TEST_F(WinUsbControlEndpointTest, KeepsTheLow16BitsOfALargeErrorCode) {
    controlError_ = 0x00012345;
    EXPECT_EQ(TransferOf(6), static_cast<HRESULT>(0x80072345));
    controlError_ = 0x7FFFFFFF;
    EXPECT_EQ(TransferOf(6), static_cast<HRESULT>(0x8007FFFF));
}

TEST_F(WinUsbControlEndpointTest, ReturnsANegativeErrorAsItIs) {
    controlError_ = 0x80004005;
    EXPECT_EQ(TransferOf(6), E_FAIL);
    controlError_ = 0xFFFFFFFF;
    EXPECT_EQ(TransferOf(6), static_cast<HRESULT>(0xFFFFFFFF));
}

TEST_F(WinUsbControlEndpointTest, ReportsSuccessForAFailureWithLastErrorZero) {
    bus_.Fail("WinUsb_ControlTransfer", 0);
    EXPECT_EQ(TransferOf(6), S_OK);
    EXPECT_EQ(bus_.Calls().size(), 1U);
}

TEST_F(WinUsbControlEndpointTest, KnowsTheDevicesTransferSize) {
    EXPECT_EQ(endpoint_->GetMaxTransferSize(), 64);
}

TEST_F(WinUsbControlEndpointTest, StaysUsableUntilTheConnectionIsClosed) {
    connection_->Close();
    bus_.ForgetCalls();
    EXPECT_FALSE(endpoint_->IsConnected());
    EXPECT_EQ(TransferOf(6), kInvalidHandle);
    EXPECT_EQ(bus_.Calls(), Calls{});
    EXPECT_EQ(endpoint_->GetMaxTransferSize(), 64);
}

TEST_F(WinUsbControlEndpointTest, OutlivesTheConnectionObject) {
    connection_.reset();
    bus_.ForgetCalls();
    EXPECT_EQ(TransferOf(6), kInvalidHandle);
    EXPECT_EQ(bus_.Calls(), Calls{});
}

TEST_F(WinUsbControlEndpointTest, TellsAnUnpluggedDeviceByItsError) {
    bus_.Remove(kLink);
    EXPECT_EQ(TransferOf(6), static_cast<HRESULT>(0x8007048F));
    EXPECT_TRUE(endpoint_->IsConnected()) << "only closing disconnects an endpoint";
}

}  // namespace
}  // namespace dfu
