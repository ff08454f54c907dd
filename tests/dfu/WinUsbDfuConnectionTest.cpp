#include "dfu/WinUsbDfuConnection.h"

#include "tests/support/FakeUsbBus.h"
#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

using test_support::FakeUsbBus;
using test_support::FakeUsbDevice;
using Calls = std::vector<std::string>;

const std::wstring kLink = L"\\\\?\\usb#vid_2f1a&pid_7e01#1#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";

const std::string kOpenFile =
    "CreateFileW(\\\\?\\usb#vid_2f1a&pid_7e01#1#{a5dcbf10-6530-11d2-901f-00c04fb951ed}, access C0000000, "
    "sharing 3, no security, disposition 3, attributes 40000080, no template)";
const std::string kInitialize = "WinUsb_Initialize(file)";
const std::string kReadDevice = "WinUsb_GetDescriptor(main, type 1, index 0, language 0, 18 bytes)";
const std::string kReadHeader = "WinUsb_GetDescriptor(main, type 2, index 0, language 0, 9 bytes)";
const std::string kQueryMain = "WinUsb_QueryInterfaceSettings(main, alternate 0)";
const std::string kAssociateFirst = "WinUsb_GetAssociatedInterface(main, index 0)";
const std::string kAssociateSecond = "WinUsb_GetAssociatedInterface(main, index 1)";
const std::string kQueryFirst = "WinUsb_QueryInterfaceSettings(interface 1, alternate 0)";
const std::string kFreeFirst = "WinUsb_Free(interface 1)";
const std::string kReadConfiguration = "WinUsb_GetDescriptor(main, type 2, index 0, language 0, 1024 bytes)";
const std::string kFreeMain = "WinUsb_Free(main)";
const std::string kCloseFile = "CloseHandle(file)";

class WinUsbDfuConnectionTest : public testing::Test {
  protected:
    // Opens a connection, expects it to fail with exactly these calls and to leave nothing open.
    void ExpectFailedOpening(const Calls& calls) {
        {
            WinUsbDfuConnection connection(kLink);
            EXPECT_FALSE(connection.IsOpened());
            EXPECT_EQ(connection.WinUsbHandle(), nullptr);
            EXPECT_EQ(connection.AcquireEndpoint(), nullptr);
            EXPECT_EQ(bus_.Calls(), calls);
            EXPECT_EQ(bus_.OpenFiles(), 0U);
            EXPECT_EQ(bus_.OpenInterfaces(), 0U);
        }
        EXPECT_EQ(bus_.Calls(), calls) << "destroying a connection that is not open closes nothing again";
    }

    // The same, when it fails once the device descriptor is asked for: what is called from there to the
    // freeing of the main handle.
    void ExpectFailedSearch(const Calls& calls) {
        Calls all{kOpenFile, kInitialize, kReadDevice};
        all.insert(all.end(), calls.begin(), calls.end());
        all.insert(all.end(), {kFreeMain, kCloseFile});
        ExpectFailedOpening(all);
    }

    // Behind the configuration's own descriptor and fillers of two bytes: to an odd place.
    void MoveFunctionalDescriptorTo(std::size_t place) {
        std::vector<std::uint8_t>& bytes = device_.configurationDescriptor;
        const std::vector<std::uint8_t> functional(bytes.end() - 9, bytes.end());
        bytes.resize(9);
        while (bytes.size() < place) {
            bytes.insert(bytes.end(), {2, 0x24});
        }
        bytes.insert(bytes.end(), functional.begin(), functional.end());
    }

    FakeUsbBus bus_;
    FakeUsbDevice& device_ = bus_.Add(kLink, 0x1234);
};

TEST_F(WinUsbDfuConnectionTest, OpensADeviceWhoseMainInterfaceIsTheDfuInterface) {
    device_.SetInterfaces({{5, 0, 0xFE}});
    const WinUsbDfuConnection connection(kLink);
    EXPECT_TRUE(connection.IsOpened());
    EXPECT_EQ(bus_.Calls(),
              (Calls{kOpenFile, kInitialize, kReadDevice, kReadHeader, kQueryMain, kReadConfiguration,
                     "WinUsb_SetCurrentAlternateSetting(main, setting 0)"}));
}

TEST_F(WinUsbDfuConnectionTest, OpensADeviceWhoseTransferSizeIsZero) {
    const std::wstring link = kLink + L"zero";
    bus_.Add(link, 0);
    WinUsbDfuConnection connection(link);
    EXPECT_TRUE(connection.IsOpened());
    const auto endpoint = connection.AcquireEndpoint();
    ASSERT_NE(endpoint, nullptr);
    EXPECT_EQ(endpoint->GetMaxTransferSize(), 0U);
}

// Freeing the selected handle as well would leave no valid one for the transfers.
TEST_F(WinUsbDfuConnectionTest, KeepsTheMainHandleValidWhenItIsTheSelectedOne) {
    WinUsbDfuConnection connection(kLink);
    EXPECT_EQ(bus_.OpenInterfaces(), 1U);
    EXPECT_NE(connection.WinUsbHandle(), nullptr);
    const auto endpoint = connection.AcquireEndpoint();
    ASSERT_NE(endpoint, nullptr);
    WINUSB_SETUP_PACKET packet{0xA1, 5, 0, 0, 1};
    UCHAR state = 0;
    EXPECT_EQ(endpoint->Transfer(packet, &state, 1), S_OK);
    EXPECT_EQ(state, 2);
}

TEST_F(WinUsbDfuConnectionTest, SelectsTheAlternateSettingOfTheDfuInterface) {
    device_.SetInterfaces({{0, 2, 0xFE}});
    const WinUsbDfuConnection connection(kLink);
    EXPECT_TRUE(connection.IsOpened());
    EXPECT_EQ(bus_.Calls().back(), "WinUsb_SetCurrentAlternateSetting(main, setting 2)");
}

TEST_F(WinUsbDfuConnectionTest, FindsTheDfuInterfaceAmongTheAssociatedOnes) {
    device_.SetInterfaces({{0, 0, 0x0E}, {1, 0, 0x01}, {4, 3, 0xFE}, {5, 0, 0x03}});
    WinUsbDfuConnection connection(kLink);
    EXPECT_TRUE(connection.IsOpened());
    EXPECT_EQ(
        bus_.Calls(),
        (Calls{kOpenFile, kInitialize, kReadDevice, kReadHeader, kQueryMain, kAssociateFirst, kQueryFirst,
               kFreeFirst, kAssociateSecond, "WinUsb_QueryInterfaceSettings(interface 2, alternate 0)",
               kReadConfiguration, "WinUsb_SetCurrentAlternateSetting(interface 2, setting 3)",
               "WinUsb_Free(interface 2)"}));
    EXPECT_EQ(bus_.OpenInterfaces(), 1U);

    const auto endpoint = connection.AcquireEndpoint();
    ASSERT_NE(endpoint, nullptr);
    bus_.ForgetCalls();
    WINUSB_SETUP_PACKET packet{0x21, 0, 1000, 0, 0};
    EXPECT_EQ(endpoint->Transfer(packet, nullptr, 0), S_OK);
    EXPECT_EQ(bus_.Calls(),
              (Calls{"WinUsb_ControlTransfer(main, 21 00 03E8 0004 0000, no buffer, 0 bytes, no "
                     "overlapped)"}))
        << "transfers go to the main handle, with the DFU interface's number";
}

TEST_F(WinUsbDfuConnectionTest, TakesTheFirstOfTwoDfuInterfaces) {
    device_.SetInterfaces({{0, 0, 0x0E}, {1, 0, 0xFE}, {2, 0, 0xFE}});
    const WinUsbDfuConnection connection(kLink);
    EXPECT_TRUE(connection.IsOpened());
    EXPECT_EQ(bus_.Calls().back(), "WinUsb_Free(interface 1)");
}

TEST_F(WinUsbDfuConnectionTest, StaysClosedWhenTheFileDoesNotOpen) {
    bus_.Fail("CreateFileW", ERROR_ACCESS_DENIED);
    ExpectFailedOpening({kOpenFile});
}

TEST_F(WinUsbDfuConnectionTest, ClosesTheFileWhenWinUsbDoesNotInitialize) {
    bus_.Fail("WinUsb_Initialize", ERROR_BAD_COMMAND);
    ExpectFailedOpening({kOpenFile, kInitialize, kCloseFile});
}

TEST_F(WinUsbDfuConnectionTest, ClosesTheFileWhenWinUsbFailsWithLastErrorZero) {
    bus_.Fail("WinUsb_Initialize", 0);
    ExpectFailedOpening({kOpenFile, kInitialize, kCloseFile});
}

TEST_F(WinUsbDfuConnectionTest, StaysClosedWhenTheDeviceDescriptorIsNotRead) {
    bus_.Fail("WinUsb_GetDescriptor", ERROR_GEN_FAILURE);
    ExpectFailedSearch({});
}

TEST_F(WinUsbDfuConnectionTest, StaysClosedWhenTheDeviceDescriptorIsShort) {
    device_.deviceDescriptor.resize(17);
    device_.shortReadError = ERROR_INVALID_DATA;
    ExpectFailedSearch({});
}

// The failure is the last error's; there is none when that is 0.
TEST_F(WinUsbDfuConnectionTest, GoesOnAfterAShortDeviceDescriptorWithLastErrorZero) {
    device_.deviceDescriptor.resize(17);
    device_.shortReadError = ERROR_SUCCESS;
    const WinUsbDfuConnection connection(kLink);
    EXPECT_TRUE(connection.IsOpened());
}

// A driver that tells, for a read of this size, of one byte more than there was room for.
class OverlongDescriptor : public test_support::OnlyOne<OverlongDescriptor> {
  public:
    explicit OverlongDescriptor(ULONG size) : size_(size) {}

  private:
    static BOOL WINAPI OnGet(WINUSB_INTERFACE_HANDLE handle, UCHAR type, UCHAR index, USHORT language,
                             UCHAR* buffer, ULONG size, ULONG* transferred) {
        const BOOL result = current_->get_.Original<decltype(WinUsb_GetDescriptor)>()(
            handle, type, index, language, buffer, size, transferred);
        if (size == current_->size_) {
            ++*transferred;
            SetLastError(ERROR_INVALID_DATA);
        }
        return result;
    }

    ULONG size_;
    test_support::ImportRedirect get_{"WinUsb_GetDescriptor", OnGet};
};

TEST_F(WinUsbDfuConnectionTest, StaysClosedWhenADescriptorIsToldToBeLongerThanItIs) {
    for (const ULONG size : {ULONG{18}, ULONG{9}}) {
        const OverlongDescriptor overlong(size);
        const WinUsbDfuConnection connection(kLink);
        EXPECT_FALSE(connection.IsOpened()) << size << " bytes";
    }
}

TEST_F(WinUsbDfuConnectionTest, StaysClosedWhenTheConfigurationHeaderIsNotRead) {
    bus_.Fail("WinUsb_GetDescriptor", ERROR_GEN_FAILURE, 1);
    ExpectFailedSearch({kReadHeader});
}

TEST_F(WinUsbDfuConnectionTest, StaysClosedWhenTheConfigurationHeaderIsShort) {
    device_.configurationDescriptor.resize(8);
    device_.shortReadError = ERROR_INVALID_DATA;
    ExpectFailedSearch({kReadHeader});
}

TEST_F(WinUsbDfuConnectionTest, StaysClosedWhenTheDeviceHasNoInterfaces) {
    device_.configurationDescriptor[4] = 0;
    ExpectFailedSearch({kReadHeader});
}

TEST_F(WinUsbDfuConnectionTest, StaysClosedWhenTheQueryOfTheMainInterfaceFails) {
    bus_.Fail("WinUsb_QueryInterfaceSettings", ERROR_NO_MORE_ITEMS);
    ExpectFailedSearch({kReadHeader, kQueryMain});
}

// A query that fails with last error 0 tells of no interface: neither of its own nor of another connection's.
TEST_F(WinUsbDfuConnectionTest, TakesNoInterfaceOverFromAnEarlierConnection) {
    EXPECT_TRUE(WinUsbDfuConnection(kLink).IsOpened());
    device_.SetInterfaces({{0, 0, 0x0E}});
    bus_.Fail("WinUsb_QueryInterfaceSettings", ERROR_SUCCESS);
    EXPECT_FALSE(WinUsbDfuConnection(kLink).IsOpened());
}

TEST_F(WinUsbDfuConnectionTest, FreesAnAssociatedInterfaceWhoseQueryFails) {
    device_.SetInterfaces({{0, 0, 0x0E}, {1, 0, 0xFE}});
    bus_.Fail("WinUsb_QueryInterfaceSettings", ERROR_GEN_FAILURE, 1);
    ExpectFailedSearch({kReadHeader, kQueryMain, kAssociateFirst, kQueryFirst, kFreeFirst});
}

TEST_F(WinUsbDfuConnectionTest, SearchesOnAfterAFailedQueryWithLastErrorZero) {
    device_.SetInterfaces({{0, 0, 0xFE}, {1, 0, 0xFE}});
    bus_.Fail("WinUsb_QueryInterfaceSettings", 0);
    const WinUsbDfuConnection connection(kLink);
    EXPECT_TRUE(connection.IsOpened());
    EXPECT_EQ(bus_.Calls().back(), "WinUsb_Free(interface 1)") << "nothing is known of the first interface";
}

TEST_F(WinUsbDfuConnectionTest, StaysClosedWhenTheNextInterfaceIsNotToBeHad) {
    device_.SetInterfaces({{0, 0, 0x0E}, {1, 0, 0xFE}});
    bus_.Fail("WinUsb_GetAssociatedInterface", ERROR_GEN_FAILURE);
    ExpectFailedSearch({kReadHeader, kQueryMain, kAssociateFirst});
}

TEST_F(WinUsbDfuConnectionTest, SearchesOnAfterAFailedAssociationWithLastErrorZero) {
    device_.SetInterfaces({{0, 0, 0x0E}, {1, 0, 0x0E}, {2, 0, 0xFE}});
    bus_.Fail("WinUsb_GetAssociatedInterface", 0);
    ExpectFailedSearch(
        {kReadHeader, kQueryMain, kAssociateFirst, "WinUsb_QueryInterfaceSettings(no handle, alternate 0)"});
}

TEST_F(WinUsbDfuConnectionTest, StaysClosedWhenNoInterfaceHasTheDfuClass) {
    device_.SetInterfaces({{0, 0, 0x0E}, {1, 0, 0x0E}});
    ExpectFailedSearch({kReadHeader, kQueryMain, kAssociateFirst, kQueryFirst, kFreeFirst, kAssociateSecond});
}

// The device says that it has two interfaces, and gives three: the third is freed, not looked at.
TEST_F(WinUsbDfuConnectionTest, EndsTheSearchAtTheNumberOfInterfaces) {
    device_.SetInterfaces({{0, 0, 0x0E}, {1, 0, 0x0E}, {2, 0, 0xFE}});
    device_.configurationDescriptor[4] = 2;
    ExpectFailedSearch({kReadHeader, kQueryMain, kAssociateFirst, kQueryFirst, kFreeFirst, kAssociateSecond,
                        "WinUsb_Free(interface 2)"});
}

TEST_F(WinUsbDfuConnectionTest, SearchesAsManyInterfacesAsAByteCounts) {
    std::vector<FakeUsbDevice::Interface> interfaces;
    for (int number = 0; number < 255; ++number) {
        interfaces.push_back({static_cast<std::uint8_t>(number), 0, 0x0E});
    }
    device_.SetInterfaces(interfaces);
    const WinUsbDfuConnection connection(kLink);
    EXPECT_FALSE(connection.IsOpened());
    EXPECT_EQ(bus_.OpenInterfaces(), 0U);
}

TEST_F(WinUsbDfuConnectionTest, StaysClosedWhenTheWholeConfigurationIsNotRead) {
    bus_.Fail("WinUsb_GetDescriptor", ERROR_GEN_FAILURE, 2);
    ExpectFailedSearch({kReadHeader, kQueryMain, kReadConfiguration});
}

TEST_F(WinUsbDfuConnectionTest, StaysClosedWithoutAFunctionalDescriptor) {
    device_.configurationDescriptor.resize(18);
    ExpectFailedSearch({kReadHeader, kQueryMain, kReadConfiguration});
}

TEST_F(WinUsbDfuConnectionTest, FreesTheSelectedInterfaceWithoutAFunctionalDescriptor) {
    device_.SetInterfaces({{0, 0, 0x0E}, {1, 0, 0xFE}});
    device_.configurationDescriptor.resize(27);
    ExpectFailedSearch(
        {kReadHeader, kQueryMain, kAssociateFirst, kQueryFirst, kReadConfiguration, kFreeFirst});
}

TEST_F(WinUsbDfuConnectionTest, StaysClosedWhenTheAlternateSettingIsRefused) {
    bus_.Fail("WinUsb_SetCurrentAlternateSetting", ERROR_GEN_FAILURE);
    ExpectFailedSearch(
        {kReadHeader, kQueryMain, kReadConfiguration, "WinUsb_SetCurrentAlternateSetting(main, setting 0)"});
}

TEST_F(WinUsbDfuConnectionTest, FreesTheSelectedInterfaceWhenTheAlternateSettingIsRefused) {
    device_.SetInterfaces({{0, 0, 0x0E}, {1, 0, 0xFE}});
    bus_.Fail("WinUsb_SetCurrentAlternateSetting", ERROR_GEN_FAILURE);
    ExpectFailedSearch({kReadHeader, kQueryMain, kAssociateFirst, kQueryFirst, kReadConfiguration,
                        "WinUsb_SetCurrentAlternateSetting(interface 1, setting 0)", kFreeFirst});
}

TEST_F(WinUsbDfuConnectionTest, OpensWhenTheAlternateSettingFailsWithLastErrorZero) {
    bus_.Fail("WinUsb_SetCurrentAlternateSetting", 0);
    const WinUsbDfuConnection connection(kLink);
    EXPECT_TRUE(connection.IsOpened());
}

TEST_F(WinUsbDfuConnectionTest, LooksAtNothingBehindWhatTheDeviceSent) {
    device_.reportedConfigurationLength = 26;  // one byte less than the functional descriptor needs
    ExpectFailedSearch({kReadHeader, kQueryMain, kReadConfiguration});
}

TEST_F(WinUsbDfuConnectionTest, LooksAtNothingBehindItsBufferWhateverLengthIsReported) {
    device_.configurationDescriptor.resize(18);
    device_.configurationDescriptor.resize(1024 + 200, 255);  // a chain of descriptors that leaves the buffer
    device_.reportedConfigurationLength = 0xFFFFFFFF;
    const WinUsbDfuConnection connection(kLink);
    EXPECT_FALSE(connection.IsOpened());
}

TEST_F(WinUsbDfuConnectionTest, DoesNotFindAFunctionalDescriptorBehind1024Bytes) {
    MoveFunctionalDescriptorTo(1019);
    const WinUsbDfuConnection connection(kLink);
    EXPECT_FALSE(connection.IsOpened());
}

TEST_F(WinUsbDfuConnectionTest, FindsAFunctionalDescriptorThatEndsThe1024Bytes) {
    MoveFunctionalDescriptorTo(1015);
    ASSERT_EQ(device_.configurationDescriptor.size(), 1024U);
    WinUsbDfuConnection connection(kLink);
    ASSERT_TRUE(connection.IsOpened());
    EXPECT_EQ(connection.AcquireEndpoint()->GetMaxTransferSize(), 0x1234);
}

TEST_F(WinUsbDfuConnectionTest, EndsTheWalkAtADescriptorOfLengthZero) {
    device_.configurationDescriptor[9] = 0;
    const WinUsbDfuConnection connection(kLink);
    EXPECT_FALSE(connection.IsOpened());
}

TEST_F(WinUsbDfuConnectionTest, DoesNotOpenAnEmptyLink) {
    const WinUsbDfuConnection connection(L"");
    EXPECT_FALSE(connection.IsOpened());
}

TEST_F(WinUsbDfuConnectionTest, HandsOutConnectedEndpointsOfTheDevicesTransferSize) {
    WinUsbDfuConnection connection(kLink);
    bus_.ForgetCalls();
    const auto endpoint = connection.AcquireEndpoint();
    ASSERT_NE(endpoint, nullptr);
    EXPECT_TRUE(endpoint->IsConnected());
    EXPECT_EQ(endpoint->GetMaxTransferSize(), 0x1234);
    EXPECT_EQ(bus_.Calls(), Calls{});
}

TEST_F(WinUsbDfuConnectionTest, HandsOutANewEndpointEachTimeAndKeepsAShareOfEach) {
    WinUsbDfuConnection connection(kLink);
    const auto first = connection.AcquireEndpoint();
    const auto second = connection.AcquireEndpoint();
    EXPECT_NE(first, second);
    EXPECT_EQ(first.use_count(), 2);
    EXPECT_EQ(second.use_count(), 2);
}

TEST_F(WinUsbDfuConnectionTest, CloseFreesTheHandleBeforeTheFileAndDisconnectsEveryEndpoint) {
    WinUsbDfuConnection connection(kLink);
    const auto first = connection.AcquireEndpoint();
    const auto second = connection.AcquireEndpoint();
    bus_.ForgetCalls();
    connection.Close();
    EXPECT_EQ(bus_.Calls(), (Calls{kFreeMain, kCloseFile}));
    EXPECT_FALSE(connection.IsOpened());
    EXPECT_EQ(connection.WinUsbHandle(), nullptr);
    EXPECT_FALSE(first->IsConnected());
    EXPECT_FALSE(second->IsConnected());
    EXPECT_EQ(first.use_count(), 1) << "the list is empty";
    EXPECT_EQ(second.use_count(), 1);
}

TEST_F(WinUsbDfuConnectionTest, EveryEndpointFailsAfterClose) {
    WinUsbDfuConnection connection(kLink);
    const auto first = connection.AcquireEndpoint();
    const auto second = connection.AcquireEndpoint();
    connection.Close();
    bus_.ForgetCalls();
    for (const auto& endpoint : {first, second}) {
        WINUSB_SETUP_PACKET packet{0x21, 0, 1000, 0, 0};
        EXPECT_EQ(endpoint->Transfer(packet, nullptr, 0), static_cast<HRESULT>(0x80070006));
    }
    EXPECT_EQ(bus_.Calls(), Calls{});
}

TEST_F(WinUsbDfuConnectionTest, ClosesOnlyOnce) {
    {
        WinUsbDfuConnection connection(kLink);
        bus_.ForgetCalls();
        connection.Close();
        connection.Close();
    }
    EXPECT_EQ(bus_.Calls(), (Calls{kFreeMain, kCloseFile}));
}

TEST_F(WinUsbDfuConnectionTest, GivesNoEndpointAfterClose) {
    WinUsbDfuConnection connection(kLink);
    connection.Close();
    EXPECT_EQ(connection.AcquireEndpoint(), nullptr);
}

TEST_F(WinUsbDfuConnectionTest, ClosesWhenItIsDestroyed) {
    std::shared_ptr<usb_core::IUsbControlEndpoint> endpoint;
    {
        WinUsbDfuConnection connection(kLink);
        endpoint = connection.AcquireEndpoint();
        bus_.ForgetCalls();
    }
    EXPECT_EQ(bus_.Calls(), (Calls{kFreeMain, kCloseFile}));
    EXPECT_FALSE(endpoint->IsConnected());
}

}  // namespace
