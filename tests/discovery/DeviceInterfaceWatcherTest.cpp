#include "discovery/DeviceInterfaceWatcher.h"

#include "tests/discovery/EventJournal.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeConfigurationManager.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <cwctype>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using test_support::FakeClock;
using test_support::FakeConfigurationManager;
using Calls = std::vector<std::string>;
using Links = std::vector<std::wstring>;

const std::wstring kClass = L"#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
const std::wstring kFirst = L"\\\\?\\usb#vid_2f1a&pid_7e01#1" + kClass;
const std::wstring kSecond = L"\\\\?\\usb#vid_2f1a&pid_7e02#2" + kClass;
const std::wstring kOther = L"\\\\?\\usb#vid_2f1a&pid_7e03#3" + kClass;
const std::wstring kComposite = L"\\\\?\\usb#vid_2f1a&pid_7e01&mi_02#6&2a0b&0&0002" + kClass;

const std::string kSizeQuery =
    "CM_Get_Device_Interface_List_SizeW({A5DCBF10-6530-11D2-901F-00C04FB951ED}, no device, flags 0)";
const std::string kRegistration =
    "CM_Register_Notification(416 bytes, flags 0, type 0, {A5DCBF10-6530-11D2-901F-00C04FB951ED})";

constexpr std::size_t kLinkOffset = offsetof(CM_NOTIFY_EVENT_DATA, u.DeviceInterface.SymbolicLink);

std::string ListQuery(std::size_t characters) {
    return "CM_Get_Device_Interface_ListW({A5DCBF10-6530-11D2-901F-00C04FB951ED}, no device, " +
           std::to_string(characters) + " characters, flags 0)";
}

std::wstring UpperCase(std::wstring text) {
    for (wchar_t& character : text) {
        character = static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(character)));
    }
    return text;
}

Links LinksOf(const DeviceInterfaceWatcher& watcher) {
    Links links;
    for (const DeviceEntry& device : watcher.Devices()) {
        links.push_back(device.symbolicLink);
    }
    return links;
}

// A watcher of both products, whose events have a name that no other test and no other program has.
class DeviceInterfaceWatcherTest : public testing::Test {
  protected:
    DeviceInterfaceWatcherTest()
        : name_("watcher " + std::to_string(GetCurrentProcessId()) + " " +
                testing::UnitTest::GetInstance()->current_test_info()->name()) {}

    [[nodiscard]] std::wstring Name() const { return {name_.begin(), name_.end()}; }

    DeviceInterfaceWatcher& Watcher() {
        if (!watcher_) {
            watcher_.emplace(Name(), L"vid_2f1a", L"pid_7e01");
            watcher_->AddFilter(L"vid_2f1a", L"pid_7e02");
        }
        return *watcher_;
    }

    // With these present from now on.
    void RefreshWith(const Links& links) {
        manager_.SetPresent(links);
        Watcher().Refresh();
    }

    [[nodiscard]] bool IsSignalled() {
        return WaitForSingleObject(Watcher().ArrivalEvent(), 0) == WAIT_OBJECT_0;
    }

    std::string name_;
    FakeClock clock_;
    FakeConfigurationManager manager_;
    EventJournal events_;
    std::optional<DeviceInterfaceWatcher> watcher_;
};

// ---- Construction and destruction

TEST_F(DeviceInterfaceWatcherTest, CreatesBothEventsAlikeBeforeItRegisters) {
    events_.OnCall([this](const std::string&) { EXPECT_EQ(manager_.Calls(), Calls{}); });
    const DeviceInterfaceWatcher watcher(Name(), L"vid_2f1a", L"pid_7e01");
    events_.OnCall({});
    const std::string creation = "CreateEventW(no security, manual reset, not signalled, " + name_ + ")";
    EXPECT_EQ(events_.Calls(), (Calls{creation, creation}));
    EXPECT_EQ(watcher.ArrivalEvent(), events_.Handle(0));
    EXPECT_NE(events_.Handle(0), events_.Handle(1));
}

TEST_F(DeviceInterfaceWatcherTest, RegistersForTheUsbDeviceInterfaceClassWithItselfAsContext) {
    const DeviceInterfaceWatcher watcher(Name(), L"vid_2f1a", L"pid_7e01");
    EXPECT_EQ(manager_.Calls(), (Calls{kRegistration}));
    ASSERT_EQ(manager_.Registrations().size(), 1U);
    const auto registration = manager_.Registrations().front();
    EXPECT_EQ(registration.context, &watcher);
    EXPECT_NE(registration.callback, nullptr);

    CM_NOTIFY_FILTER expected{};
    expected.cbSize = 416;
    expected.u.DeviceInterface.ClassGuid = {
        0xA5DCBF10, 0x6530, 0x11D2, {0x90, 0x1F, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xED}};
    ASSERT_EQ(sizeof expected, 416U);
    EXPECT_EQ(std::memcmp(&registration.filter, &expected, sizeof expected), 0) << "the rest of it is zero";
}

TEST_F(DeviceInterfaceWatcherTest, AsksForNoListBeforeTheFirstRefresh) {
    manager_.SetPresent({kFirst});
    EXPECT_EQ(LinksOf(Watcher()), Links{});
    EXPECT_FALSE(IsSignalled());
}

TEST_F(DeviceInterfaceWatcherTest, DoesNotReportARegistrationThatFails) {
    manager_.RefuseRegistrations(CR_FAILURE);
    RefreshWith({kFirst});
    EXPECT_EQ(LinksOf(Watcher()), (Links{kFirst}));
    watcher_.reset();
    EXPECT_EQ(manager_.ActiveRegistrations(), 0U);
}

TEST_F(DeviceInterfaceWatcherTest, EndsNoRegistrationThatWasRefused) {
    manager_.RefuseRegistrations(CR_FAILURE);
    int ended = 0;
    manager_.BeforeEachUnregistration([&ended] { ++ended; });
    Watcher();
    watcher_.reset();
    EXPECT_EQ(ended, 0);
}

TEST_F(DeviceInterfaceWatcherTest, ResetsAndClosesTheArrivalEventBeforeItUnregisters) {
    Watcher();
    events_.ForgetCalls();
    manager_.ForgetCalls();
    events_.OnCall([this](const std::string&) { EXPECT_EQ(manager_.ActiveRegistrations(), 1U); });
    watcher_.reset();
    EXPECT_EQ(events_.Calls(), (Calls{"ResetEvent(0)", "CloseHandle(0)"}));
    EXPECT_EQ(manager_.Calls(), (Calls{"CM_Unregister_Notification(registration 0)"}));
    EXPECT_EQ(manager_.ActiveRegistrations(), 0U);
}

TEST_F(DeviceInterfaceWatcherTest, LeavesTheSecondEventHandleOpenAndTheEventReset) {
    RefreshWith({kFirst});
    ASSERT_TRUE(IsSignalled());
    watcher_.reset();
    EXPECT_FALSE(events_.IsOpen(0));
    ASSERT_TRUE(events_.IsOpen(1));
    EXPECT_EQ(WaitForSingleObject(events_.Handle(1), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST_F(DeviceInterfaceWatcherTest, SharesOneEventWithEveryWatcherOfItsName) {
    DeviceInterfaceWatcher another(Name(), L"vid_2f1a", L"pid_7e03");
    Watcher();
    manager_.Plug(kOther);
    EXPECT_EQ(LinksOf(Watcher()), Links{});
    EXPECT_TRUE(IsSignalled()) << "the other watcher's device has signalled it";
}

TEST_F(DeviceInterfaceWatcherTest, DoesNotShareTheEventOfAnotherName) {
    DeviceInterfaceWatcher another(Name() + L" too", L"vid_2f1a", L"pid_7e03");
    Watcher();
    manager_.Plug(kOther);
    EXPECT_FALSE(IsSignalled());
}

TEST_F(DeviceInterfaceWatcherTest, KeepsItsListWithoutEvents) {
    events_.RefuseEvents();
    RefreshWith({kFirst});
    EXPECT_EQ(Watcher().ArrivalEvent(), nullptr);
    EXPECT_EQ(LinksOf(Watcher()), (Links{kFirst}));
    manager_.Unplug(kFirst);
    EXPECT_EQ(LinksOf(Watcher()), Links{});
}

// A wait that fails tells no more than one that times out.
TEST_F(DeviceInterfaceWatcherTest, WaitForDeviceFindsNothingWithoutEvents) {
    events_.RefuseEvents();
    manager_.SetPresent({kFirst});
    EXPECT_EQ(Watcher().WaitForDevice(100, kFirst), 2U);
    EXPECT_EQ(LinksOf(Watcher()), (Links{kFirst}));
}

// ---- Filters

TEST_F(DeviceInterfaceWatcherTest, FoldsTheTextsOfItsFilters) {
    DeviceInterfaceWatcher watcher(Name(), L"VID_2F1A", L"PID_7E01");
    manager_.SetPresent({kFirst, kSecond});
    watcher.Refresh();
    EXPECT_EQ(LinksOf(watcher), (Links{kFirst}));
    watcher.AddFilter(L"Vid_2F1a", L"Pid_7E02");
    watcher.Refresh();
    EXPECT_EQ(LinksOf(watcher), (Links{kFirst, kSecond}));
}

// ---- Refresh

TEST_F(DeviceInterfaceWatcherTest, RefreshListsTheMatchingDevicesInOrderFoldedToLowerCase) {
    RefreshWith({kSecond, kOther, UpperCase(kFirst), kComposite});
    EXPECT_EQ(LinksOf(Watcher()), (Links{kSecond, kFirst, kComposite}));
    EXPECT_TRUE(IsSignalled());
}

TEST_F(DeviceInterfaceWatcherTest, RefreshTakesTheInstancePartAndTheKindOutOfTheFoldedLink) {
    RefreshWith({UpperCase(kComposite), kFirst});
    const std::vector<DeviceEntry> devices = Watcher().Devices();
    ASSERT_EQ(devices.size(), 2U);
    EXPECT_EQ(devices[0].symbolicLink, kComposite);
    EXPECT_EQ(devices[0].instancePart, L"6&2a0b&0");
    EXPECT_EQ(devices[0].interfaceKind, InterfaceKind::Interface02);
    EXPECT_EQ(devices[1].instancePart, L"");
    EXPECT_EQ(devices[1].interfaceKind, InterfaceKind::Other);
}

TEST_F(DeviceInterfaceWatcherTest, RefreshAsksForThePresentInterfacesOfTheClass) {
    Watcher();
    manager_.SetPresent({kFirst});
    manager_.ForgetCalls();
    Watcher().Refresh();
    EXPECT_EQ(manager_.Calls(), (Calls{kSizeQuery, ListQuery(kFirst.size() + 2)}));
}

TEST_F(DeviceInterfaceWatcherTest, RefreshResetsTheEventBeforeItAsksAndSignalsOncePerDevice) {
    RefreshWith({kFirst, kOther, kSecond});
    events_.ForgetCalls();
    manager_.BeforeEachListing([this] { EXPECT_EQ(events_.Calls(), (Calls{"ResetEvent(0)"})); });
    Watcher().Refresh();
    EXPECT_EQ(events_.Calls(), (Calls{"ResetEvent(0)", "SetEvent(0)", "SetEvent(0)"}));
}

TEST_F(DeviceInterfaceWatcherTest, RefreshEmptiesTheListAndResetsTheEventWithNoDevicePresent) {
    RefreshWith({kFirst});
    ASSERT_TRUE(IsSignalled());
    manager_.SetPresent({});
    manager_.ForgetCalls();
    Watcher().Refresh();
    EXPECT_EQ(manager_.Calls(), (Calls{kSizeQuery})) << "a size of 1 is an empty list";
    EXPECT_EQ(LinksOf(Watcher()), Links{});
    EXPECT_FALSE(IsSignalled());
}

TEST_F(DeviceInterfaceWatcherTest, RefreshStopsAtASizeOfZero) {
    Watcher();
    manager_.AnswerSize(0);
    manager_.ForgetCalls();
    Watcher().Refresh();
    EXPECT_EQ(manager_.Calls(), (Calls{kSizeQuery}));
}

TEST_F(DeviceInterfaceWatcherTest, RefreshAsksForTheListFromASizeOfTwo) {
    Watcher();
    manager_.AnswerSize(2);
    manager_.ForgetCalls();
    Watcher().Refresh();
    EXPECT_EQ(manager_.Calls(), (Calls{kSizeQuery, ListQuery(2)}));
    EXPECT_EQ(LinksOf(Watcher()), Links{});
}

TEST_F(DeviceInterfaceWatcherTest, RefreshDoesNotSignalForOtherDevices) {
    RefreshWith({kOther});
    EXPECT_EQ(LinksOf(Watcher()), Links{});
    EXPECT_FALSE(IsSignalled());
}

TEST_F(DeviceInterfaceWatcherTest, RefreshDoesNotListADeviceTwice) {
    RefreshWith({kFirst});
    Watcher().Refresh();
    EXPECT_EQ(LinksOf(Watcher()), (Links{kFirst}));
}

TEST_F(DeviceInterfaceWatcherTest, RefreshDoesNotExamineTheReturnCodes) {
    manager_.SetPresent({kFirst});
    manager_.AnswerListQueriesWith(CR_FAILURE);
    Watcher().Refresh();
    EXPECT_EQ(LinksOf(Watcher()), (Links{kFirst}));
}

TEST_F(DeviceInterfaceWatcherTest, RefreshTakesAListThatGrewSinceItsSizeWasAskedForAsEmpty) {
    manager_.SetPresent({kFirst, kSecond});
    manager_.AnswerSize(static_cast<ULONG>(kFirst.size() + 2));
    Watcher().Refresh();
    EXPECT_EQ(LinksOf(Watcher()), Links{});
}

TEST_F(DeviceInterfaceWatcherTest, RefreshTakesAListThatShrankSinceItsSizeWasAskedFor) {
    manager_.SetPresent({kFirst});
    manager_.AnswerSize(1000);
    Watcher().Refresh();
    EXPECT_EQ(LinksOf(Watcher()), (Links{kFirst}));
}

TEST_F(DeviceInterfaceWatcherTest, RefreshTakesAListWithoutItsLastTerminators) {
    manager_.AnswerList({kFirst.begin(), kFirst.end()});
    Watcher().Refresh();
    EXPECT_EQ(LinksOf(Watcher()), (Links{kFirst}));
}

TEST_F(DeviceInterfaceWatcherTest, RefreshEndsAtTheEmptyLink) {
    std::vector<wchar_t> list(kFirst.begin(), kFirst.end());
    list.insert(list.end(), 2, L'\0');
    list.insert(list.end(), kSecond.begin(), kSecond.end());
    manager_.AnswerList(list);
    Watcher().Refresh();
    EXPECT_EQ(LinksOf(Watcher()), (Links{kFirst}));
}

TEST_F(DeviceInterfaceWatcherTest, RefreshTakesALinkOf32767Characters) {
    const std::wstring start = L"\\\\?\\usb#vid_2f1a&pid_7e01&mi_00#";
    const std::wstring link = start + std::wstring(32767 - start.size(), L'#');
    RefreshWith({link});
    EXPECT_EQ(LinksOf(Watcher()), (Links{link}));
}

TEST_F(DeviceInterfaceWatcherTest, DevicesAreACopy) {
    RefreshWith({kFirst});
    const std::vector<DeviceEntry> devices = Watcher().Devices();
    RefreshWith({});
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_EQ(devices[0].symbolicLink, kFirst);
}

// ---- Notifications

TEST_F(DeviceInterfaceWatcherTest, AnArrivalIsListedAndSignalled) {
    Watcher();
    events_.ForgetCalls();
    EXPECT_EQ(manager_.Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, UpperCase(kComposite)), 0U);
    const std::vector<DeviceEntry> devices = Watcher().Devices();
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_EQ(devices[0].symbolicLink, kComposite);
    EXPECT_EQ(devices[0].instancePart, L"6&2a0b&0");
    EXPECT_EQ(devices[0].interfaceKind, InterfaceKind::Interface02);
    EXPECT_EQ(events_.Calls(), (Calls{"SetEvent(0)"}));
    EXPECT_TRUE(IsSignalled());
}

TEST_F(DeviceInterfaceWatcherTest, AnArrivalGoesToTheEndOfTheList) {
    RefreshWith({kSecond});
    manager_.Plug(kFirst);
    EXPECT_EQ(LinksOf(Watcher()), (Links{kSecond, kFirst}));
}

TEST_F(DeviceInterfaceWatcherTest, AnArrivalOfAnotherProductIsIgnored) {
    Watcher();
    EXPECT_EQ(manager_.Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, kOther), 0U);
    EXPECT_EQ(LinksOf(Watcher()), Links{});
    EXPECT_FALSE(IsSignalled());
}

TEST_F(DeviceInterfaceWatcherTest, ARemovalErasesTheEntryWithTheLinkAndSignalsTheSecondEvent) {
    RefreshWith({kFirst, kSecond, kComposite});
    events_.ForgetCalls();
    EXPECT_EQ(manager_.Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL, UpperCase(kSecond)), 0U);
    EXPECT_EQ(LinksOf(Watcher()), (Links{kFirst, kComposite}));
    EXPECT_EQ(events_.Calls(), (Calls{"SetEvent(1)"}));
}

// Both handles are of one event.
TEST_F(DeviceInterfaceWatcherTest, ARemovalSignalsTheArrivalEventToo) {
    RefreshWith({kFirst});
    ResetEvent(Watcher().ArrivalEvent());
    manager_.Unplug(kFirst);
    EXPECT_TRUE(IsSignalled());
}

TEST_F(DeviceInterfaceWatcherTest, ARemovalOfALinkThatIsNotListedLeavesTheListUnchanged) {
    RefreshWith({kFirst});
    events_.ForgetCalls();
    EXPECT_EQ(manager_.Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL, kSecond), 0U);
    EXPECT_EQ(LinksOf(Watcher()), (Links{kFirst}));
    EXPECT_EQ(events_.Calls(), (Calls{"SetEvent(1)"}));
}

TEST_F(DeviceInterfaceWatcherTest, ARemovalWithAnEmptyListLeavesItEmpty) {
    Watcher();
    EXPECT_EQ(manager_.Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL, kFirst), 0U);
    EXPECT_EQ(LinksOf(Watcher()), Links{});
}

TEST_F(DeviceInterfaceWatcherTest, ARemovalOfAnotherProductIsIgnored) {
    RefreshWith({kFirst});
    events_.ForgetCalls();
    EXPECT_EQ(manager_.Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL, kOther), 0U);
    EXPECT_EQ(LinksOf(Watcher()), (Links{kFirst}));
    EXPECT_EQ(events_.Calls(), Calls{});
}

TEST_F(DeviceInterfaceWatcherTest, EventsOfOtherFilterTypesAreIgnored) {
    RefreshWith({kFirst});
    events_.ForgetCalls();
    for (const auto type : {CM_NOTIFY_FILTER_TYPE_DEVICEHANDLE, CM_NOTIFY_FILTER_TYPE_DEVICEINSTANCE}) {
        EXPECT_EQ(manager_.Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, kSecond, type), 0U);
        EXPECT_EQ(manager_.Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL, kFirst, type), 0U);
    }
    EXPECT_EQ(LinksOf(Watcher()), (Links{kFirst}));
    EXPECT_EQ(events_.Calls(), Calls{});
}

TEST_F(DeviceInterfaceWatcherTest, OtherActionsAreIgnored) {
    RefreshWith({kFirst});
    events_.ForgetCalls();
    for (const auto action :
         {CM_NOTIFY_ACTION_DEVICEQUERYREMOVE, CM_NOTIFY_ACTION_DEVICEQUERYREMOVEFAILED,
          CM_NOTIFY_ACTION_DEVICEREMOVEPENDING, CM_NOTIFY_ACTION_DEVICEREMOVECOMPLETE,
          CM_NOTIFY_ACTION_DEVICECUSTOMEVENT, CM_NOTIFY_ACTION_DEVICEINSTANCEENUMERATED,
          CM_NOTIFY_ACTION_DEVICEINSTANCESTARTED, CM_NOTIFY_ACTION_DEVICEINSTANCEREMOVED}) {
        EXPECT_EQ(manager_.Fire(action, kFirst), 0U);
        EXPECT_EQ(manager_.Fire(action, kSecond), 0U);
    }
    EXPECT_EQ(LinksOf(Watcher()), (Links{kFirst}));
    EXPECT_EQ(events_.Calls(), Calls{});
}

TEST_F(DeviceInterfaceWatcherTest, AnEventWithoutARecordIsIgnored) {
    Watcher();
    EXPECT_EQ(manager_.FireRecord(CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, nullptr, 0), 0U);
    EXPECT_EQ(manager_.FireRecord(CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL, nullptr, 1000), 0U);
    EXPECT_EQ(LinksOf(Watcher()), Links{});
}

TEST_F(DeviceInterfaceWatcherTest, NothingBehindTheEndOfARecordIsRead) {
    Watcher();
    const std::wstring behind = kFirst + L"behind";
    std::vector<wchar_t> storage(kLinkOffset / sizeof(wchar_t) + behind.size() + 16);
    auto* const record = reinterpret_cast<CM_NOTIFY_EVENT_DATA*>(storage.data());
    std::memcpy(reinterpret_cast<char*>(record) + kLinkOffset, behind.c_str(),
                behind.size() * sizeof(wchar_t));
    const auto size = static_cast<DWORD>(kLinkOffset + kFirst.size() * sizeof(wchar_t));
    for (const DWORD shorter : {DWORD{0}, DWORD{4}, static_cast<DWORD>(kLinkOffset), size / 2}) {
        EXPECT_EQ(manager_.FireRecord(CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, record, shorter), 0U);
    }
    EXPECT_EQ(manager_.FireRecord(CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, record, size), 0U);
    EXPECT_EQ(LinksOf(Watcher()).front().substr(0, 10), L"\\\\?\\usb#vi");
    EXPECT_EQ(LinksOf(Watcher()).back(), kFirst);
}

// ---- WaitForDevice

TEST_F(DeviceInterfaceWatcherTest, WaitForDeviceFindsADeviceThatIsPresent) {
    manager_.SetPresent({kSecond, kFirst});
    Watcher();
    manager_.ForgetCalls();
    EXPECT_EQ(Watcher().WaitForDevice(10000, kFirst), 0U);
    EXPECT_EQ(clock_.Waits(), (std::vector<DWORD>{1000}));
    EXPECT_EQ(clock_.Calls().front().object, events_.Handle(0));
    EXPECT_EQ(clock_.Sleeps(), std::vector<DWORD>{});
    EXPECT_EQ(manager_.Calls().size(), 2U) << "one refresh";
}

struct Period {
    DWORD timeout;
    DWORD period;

    friend void PrintTo(const Period& each, std::ostream* out) { *out << each.timeout << " ms"; }
};

class DeviceInterfaceWatcherPeriod : public DeviceInterfaceWatcherTest,
                                     public testing::WithParamInterface<Period> {};

TEST_P(DeviceInterfaceWatcherPeriod, IsATenthOfTheTimeoutAnd10MillisecondsBelow110) {
    EXPECT_EQ(Watcher().WaitForDevice(GetParam().timeout, kFirst), 2U);
    EXPECT_EQ(clock_.Waits(), std::vector<DWORD>(10, GetParam().period));
    EXPECT_EQ(clock_.Sleeps(), std::vector<DWORD>{}) << "a wait that timed out goes straight on";
}

INSTANTIATE_TEST_SUITE_P(Timeouts, DeviceInterfaceWatcherPeriod,
                         testing::Values(Period{0, 10}, Period{1, 10}, Period{100, 10}, Period{109, 10},
                                         Period{110, 11}, Period{119, 11}, Period{120, 12},
                                         Period{10000, 1000}, Period{0xFFFFFFFF, 429496729}));

TEST_F(DeviceInterfaceWatcherTest, WaitForDeviceRefreshesInEachOfItsTenAttempts) {
    Watcher();
    manager_.ForgetCalls();
    EXPECT_EQ(Watcher().WaitForDevice(10000, kFirst), 2U);
    EXPECT_EQ(manager_.Calls(), Calls(10, kSizeQuery));
    EXPECT_EQ(clock_.Elapsed(), 10000U);
}

TEST_F(DeviceInterfaceWatcherTest, WaitForDeviceSleepsAPeriodWhenOnlyAnotherDeviceIsThere) {
    manager_.SetPresent({kSecond});
    EXPECT_EQ(Watcher().WaitForDevice(500, kFirst), 2U);
    EXPECT_EQ(clock_.Waits(), std::vector<DWORD>(10, 50));
    EXPECT_EQ(clock_.Sleeps(), std::vector<DWORD>(10, 50));
    EXPECT_EQ(clock_.Elapsed(), 500U) << "the waits were satisfied at once";
}

TEST_F(DeviceInterfaceWatcherTest, WaitForDeviceFindsADeviceThatIsListedLater) {
    manager_.BeforeEachListing([this, count = 0]() mutable {
        if (++count == 4) {
            manager_.SetPresent({kFirst});
        }
    });
    EXPECT_EQ(Watcher().WaitForDevice(10000, kFirst), 0U);
    EXPECT_EQ(clock_.Waits(), std::vector<DWORD>(4, 1000));
    EXPECT_EQ(clock_.Elapsed(), 3000U);
}

TEST_F(DeviceInterfaceWatcherTest, WaitForDeviceFindsADeviceInItsLastAttempt) {
    manager_.BeforeEachListing([this, count = 0]() mutable {
        if (++count == 10) {
            manager_.SetPresent({kFirst});
        }
    });
    EXPECT_EQ(Watcher().WaitForDevice(10000, kFirst), 0U);
    EXPECT_EQ(clock_.Elapsed(), 9000U);
}

TEST_F(DeviceInterfaceWatcherTest, WaitForDeviceFindsADeviceWhoseArrivalEndsTheWait) {
    Watcher();
    clock_.After(2300, [this] { manager_.Plug(kFirst); });
    EXPECT_EQ(Watcher().WaitForDevice(10000, kFirst), 0U);
    EXPECT_EQ(clock_.Waits(), (std::vector<DWORD>{1000, 1000, 1000}));
    EXPECT_EQ(clock_.Elapsed(), 2300U);
}

TEST_F(DeviceInterfaceWatcherTest, WaitForDeviceGoesOnAfterARemovalHasEndedTheWait) {
    Watcher();
    clock_.After(500, [this] { manager_.Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL, kFirst); });
    EXPECT_EQ(Watcher().WaitForDevice(10000, kFirst), 2U);
    EXPECT_EQ(clock_.Waits(), std::vector<DWORD>(10, 1000));
    EXPECT_EQ(clock_.Sleeps(), (std::vector<DWORD>{1000}));
    EXPECT_EQ(clock_.Elapsed(), 10500U);
}

TEST_F(DeviceInterfaceWatcherTest, WaitForDeviceComparesWholeLinksExactly) {
    manager_.SetPresent({kFirst});
    EXPECT_EQ(Watcher().WaitForDevice(100, UpperCase(kFirst)), 2U) << "the link must be folded already";
    EXPECT_EQ(Watcher().WaitForDevice(100, kFirst.substr(0, kFirst.size() - 1)), 2U);
    EXPECT_EQ(Watcher().WaitForDevice(100, kFirst + L"x"), 2U);
    EXPECT_EQ(Watcher().WaitForDevice(100, kFirst.substr(1)), 2U);
    EXPECT_EQ(Watcher().WaitForDevice(100, L""), 2U);
    EXPECT_EQ(Watcher().WaitForDevice(100, kFirst), 0U);
}

TEST_F(DeviceInterfaceWatcherTest, WaitForDeviceDoesNotFindADeviceThatIsOnlyStillInTheList) {
    RefreshWith({kFirst});
    manager_.SetPresent({});
    EXPECT_EQ(Watcher().WaitForDevice(100, kFirst), 2U);
}

// ---- Threads

// What two threads of the configuration manager tell about one device, again and again until its end.
class Notifications {
  public:
    Notifications(FakeConfigurationManager& manager, std::wstring link)
        : manager_(manager), link_(std::move(link)) {}
    ~Notifications() { End(); }

    Notifications(const Notifications&) = delete;
    Notifications& operator=(const Notifications&) = delete;

    // Each thread's last word is a removal.
    void End() {
        isOver_ = true;
        for (std::thread* const thread : {&first_, &second_}) {
            if (thread->joinable()) {
                thread->join();
            }
        }
    }

  private:
    void Notify() {
        while (!isOver_) {
            manager_.Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, link_);
            manager_.Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL, link_);
        }
    }

    FakeConfigurationManager& manager_;
    std::wstring link_;
    std::atomic<bool> isOver_{false};
    std::thread first_{[this] { Notify(); }};
    std::thread second_{[this] { Notify(); }};
};

// Wherever the callback's threads are, the list and the events stay whole.
TEST_F(DeviceInterfaceWatcherTest, TakesNotificationsOfOtherThreadsWhileItIsUsed) {
    Watcher();
    manager_.SetPresent({kSecond});
    Notifications notifications(manager_, kFirst);
    for (int count = 0; count < 300; ++count) {
        Watcher().Refresh();
        Watcher().AddFilter(L"vid_0000", L"pid_0000");
        for (const DeviceEntry& device : Watcher().Devices()) {
            ASSERT_TRUE(device.symbolicLink == kFirst || device.symbolicLink == kSecond);
        }
        ASSERT_EQ(LinksOf(Watcher()).front(), kSecond) << "refresh " << count;
    }
    notifications.End();
    EXPECT_EQ(LinksOf(Watcher()), (Links{kSecond}));
    EXPECT_TRUE(IsSignalled());
}

TEST_F(DeviceInterfaceWatcherTest, MayBeDestroyedWhileNotificationsComeIn) {
    Notifications notifications(manager_, kFirst);
    for (int count = 0; count < 200; ++count) {
        Watcher().Refresh();
        watcher_.reset();
    }
    notifications.End();
    EXPECT_EQ(manager_.ActiveRegistrations(), 0U);
}

// The event is closed by then: its handle may already be another object's.
TEST_F(DeviceInterfaceWatcherTest, AnArrivalBetweenTheClosedEventAndTheEndOfTheRegistrationSignalsNothing) {
    Watcher();
    events_.ForgetCalls();
    manager_.BeforeEachUnregistration(
        [this] { EXPECT_EQ(manager_.Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, kFirst), 0U); });
    watcher_.reset();
    EXPECT_EQ(events_.Calls(), (Calls{"ResetEvent(0)", "CloseHandle(0)"}));
    EXPECT_EQ(WaitForSingleObject(events_.Handle(1), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

}  // namespace
