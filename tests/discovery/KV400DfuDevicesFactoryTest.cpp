#include "discovery/KV400DfuDevicesFactory.h"

#include "tests/discovery/EventJournal.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeConfigurationManager.h"
#include "tests/support/VirtualSlot.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using test_support::FakeClock;
using test_support::FakeConfigurationManager;
using test_support::VirtualSlot;
using Links = std::vector<std::wstring>;

const std::wstring kClass = L"#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
const std::wstring kFirst = L"\\\\?\\usb#vid_2f1a&pid_7e01#1" + kClass;
const std::wstring kSecond = L"\\\\?\\usb#vid_2f1a&pid_7e02#2" + kClass;
const std::wstring kOther = L"\\\\?\\usb#vid_2f1a&pid_7e03#3" + kClass;

const std::string kSizeQuery =
    "CM_Get_Device_Interface_List_SizeW({A5DCBF10-6530-11D2-901F-00C04FB951ED}, no device, flags 0)";
const std::string kRegistration =
    "CM_Register_Notification(416 bytes, flags 0, type 0, {A5DCBF10-6530-11D2-901F-00C04FB951ED})";
const std::string kUnregistration = "CM_Unregister_Notification(registration 0)";

class KV400DfuDevicesFactoryTest : public testing::Test {
  protected:
    Links GetLinks(DWORD timeoutMs) {
        Links links;
        for (const auto& device : factory_.GetDevices(timeoutMs)) {
            links.push_back(device->GetSymbolicLink());
        }
        return links;
    }

    FakeClock clock_;
    FakeConfigurationManager manager_;
    EventJournal events_;
    std::ostringstream log_;
    KV400DfuDevicesFactory factory_{&log_};
};

TEST_F(KV400DfuDevicesFactoryTest, HasItsOperationBehindTheDestructor) {
    EXPECT_EQ(VirtualSlot(&IDfuDevicesFactory::GetDevices), 2U);
    EXPECT_TRUE(std::is_abstract_v<IDfuDevicesFactory>);
    EXPECT_TRUE(std::has_virtual_destructor_v<IDfuDevicesFactory>);
    EXPECT_TRUE((std::is_base_of_v<IDfuDevicesFactory, KV400DfuDevicesFactory>));
    EXPECT_TRUE((std::is_base_of_v<DfuLogger, KV400DfuDevicesFactory>));
    EXPECT_EQ(factory_.LogStream(), &log_);
}

TEST_F(KV400DfuDevicesFactoryTest, ReturnsWhatIsPresentAtOnceWithATimeoutOfZero) {
    manager_.SetPresent({kSecond, kOther, kFirst});
    EXPECT_EQ(GetLinks(0), (Links{kSecond, kFirst}));
    EXPECT_EQ(clock_.Calls().size(), 0U);
    ASSERT_EQ(manager_.Calls().size(), 4U) << "one refresh";
    EXPECT_EQ(manager_.Calls()[0], kRegistration);
    EXPECT_EQ(manager_.Calls()[1], kSizeQuery);
    EXPECT_EQ(manager_.Calls()[3], kUnregistration);
}

TEST_F(KV400DfuDevicesFactoryTest, ReturnsNothingAtOnceWithATimeoutOfZeroAndNoDevice) {
    EXPECT_EQ(GetLinks(0), Links{});
    EXPECT_EQ(clock_.Calls().size(), 0U);
    EXPECT_EQ(manager_.Calls(), (std::vector<std::string>{kRegistration, kSizeQuery, kUnregistration}));
}

TEST_F(KV400DfuDevicesFactoryTest, WaitsOnTheArrivalEventBetweenTwoRefreshes) {
    EXPECT_EQ(GetLinks(10000), Links{});
    ASSERT_EQ(clock_.Calls().size(), 1U);
    EXPECT_EQ(clock_.Calls()[0].kind, FakeClock::Call::Kind::Wait);
    EXPECT_EQ(clock_.Calls()[0].milliseconds, 10000U);
    EXPECT_EQ(clock_.Calls()[0].object, events_.Handle(0));
    EXPECT_EQ(clock_.Calls()[0].result, static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_EQ(manager_.Calls(),
              (std::vector<std::string>{kRegistration, kSizeQuery, kSizeQuery, kUnregistration}));
}

TEST_F(KV400DfuDevicesFactoryTest, WaitsAsLongAsItIsToldTo) {
    EXPECT_EQ(GetLinks(1), Links{});
    EXPECT_EQ(clock_.Waits(), (std::vector<DWORD>{1}));
}

TEST_F(KV400DfuDevicesFactoryTest, DoesNotWaitForADeviceThatIsPresent) {
    manager_.SetPresent({kFirst});
    EXPECT_EQ(GetLinks(10000), (Links{kFirst}));
    EXPECT_EQ(clock_.Waits(), (std::vector<DWORD>{10000}));
    EXPECT_EQ(clock_.Elapsed(), 0U);
}

TEST_F(KV400DfuDevicesFactoryTest, ReturnsADeviceThatArrivesDuringTheWait) {
    clock_.After(3000, [this] { manager_.Plug(kSecond); });
    EXPECT_EQ(GetLinks(10000), (Links{kSecond}));
    EXPECT_EQ(clock_.Elapsed(), 3000U);
}

// What counts is the list after the wait.
TEST_F(KV400DfuDevicesFactoryTest, DoesNotReturnADeviceThatIsGoneAfterTheWait) {
    manager_.BeforeEachListing(
        [this, count = 0]() mutable { manager_.SetPresent(++count == 1 ? Links{kFirst} : Links{}); });
    EXPECT_EQ(GetLinks(10000), Links{});
}

TEST_F(KV400DfuDevicesFactoryTest, ReturnsADeviceThatIsListedOnlyAfterAWaitThatTimedOut) {
    manager_.BeforeEachListing(
        [this, count = 0]() mutable { manager_.SetPresent(++count == 1 ? Links{} : Links{kFirst}); });
    EXPECT_EQ(GetLinks(10000), (Links{kFirst}));
    EXPECT_EQ(clock_.Elapsed(), 10000U);
}

TEST_F(KV400DfuDevicesFactoryTest, ReturnsWhatIsPresentWithoutAnEventToWaitFor) {
    events_.RefuseEvents();
    manager_.SetPresent({kFirst});
    EXPECT_EQ(GetLinks(10000), (Links{kFirst}));
}

TEST_F(KV400DfuDevicesFactoryTest, NamesItsWatcher) {
    EXPECT_EQ(GetLinks(0), Links{});
    const std::string creation = "CreateEventW(no security, manual reset, not signalled, DFU device watcher)";
    ASSERT_EQ(events_.Created(), 2U);
    EXPECT_EQ(events_.Calls()[0], creation);
    EXPECT_EQ(events_.Calls()[1], creation);
}

TEST_F(KV400DfuDevicesFactoryTest, DestroysItsWatcher) {
    manager_.SetPresent({kFirst});
    const auto devices = factory_.GetDevices(10000);
    EXPECT_EQ(manager_.ActiveRegistrations(), 0U);
    EXPECT_FALSE(events_.IsOpen(0));
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_EQ(devices[0].use_count(), 1) << "nobody but the caller holds the device";
}

TEST_F(KV400DfuDevicesFactoryTest, FoldsTheLinksOfItsDevices) {
    manager_.SetPresent({L"\\\\?\\USB#VID_2F1A&PID_7E01#1#{A5DCBF10-6530-11D2-901F-00C04FB951ED}"});
    EXPECT_EQ(GetLinks(0), (Links{kFirst}));
}

TEST_F(KV400DfuDevicesFactoryTest, HandsItsLogStreamToEveryDevice) {
    manager_.SetPresent({kFirst, kSecond});
    const auto devices = factory_.GetDevices(0);
    manager_.SetPresent({});
    for (const auto& device : devices) {
        EXPECT_EQ(device->Update(L""), 2);
    }
    EXPECT_EQ(
        log_.str(),
        "DFU device\\\\?\\usb#vid_2f1a&pid_7e01#1#{a5dcbf10-6530-11d2-901f-00c04fb951ed} is not connected\n"
        "DFU device\\\\?\\usb#vid_2f1a&pid_7e02#2#{a5dcbf10-6530-11d2-901f-00c04fb951ed} is not connected\n");
}

TEST_F(KV400DfuDevicesFactoryTest, HandsOutDevicesWithoutALogStream) {
    KV400DfuDevicesFactory quiet(nullptr);
    manager_.SetPresent({kFirst});
    const auto devices = quiet.GetDevices(0);
    manager_.SetPresent({});
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_EQ(devices[0]->Update(L""), 2);
    EXPECT_EQ(log_.str(), "");
}

TEST_F(KV400DfuDevicesFactoryTest, HandsOutDevicesOfTheFamilysName) {
    manager_.SetPresent({kFirst});
    const auto devices = factory_.GetDevices(0);
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_EQ(devices[0]->GetName(), L"KV400 DFU " + kFirst);
}

}  // namespace
