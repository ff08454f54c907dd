#include "monitor/CUninstallMonitor.h"

#include <gtest/gtest.h>

#include "tests/monitor/MonitorStage.h"
#include "tests/monitor/SensorCameraInstances.h"
#include "tests/support/Patience.h"
#include "tests/support/RegistryCalls.h"
#include "tests/support/Text.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using test_support::kPatience;
using test_support::kWatchTime;
using test_support::RegistryCalls;
using Lines = std::vector<std::string>;

constexpr HRESULT kFileNotFound = static_cast<HRESULT>(0x80070002);
constexpr HRESULT kAccessDenied = static_cast<HRESULT>(0x80070005);
constexpr HRESULT kNoCamera = static_cast<HRESULT>(0x80630501);

const std::wstring kFamily = L"Morrow KV400 Cameras";
const Lines kBothCommands{"sc delete VeyraCameraDFU", "sc stop VeyraCameraDFU"};
const Lines kScanFunctions{"RegOpenKeyExW", "RegQueryInfoKeyW", "RegEnumKeyExW", "RegGetValueW",
                           "RegCloseKey"};

class CUninstallMonitorScan : public testing::Test {
  protected:
    static HRESULT Scan() {
        return CUninstallMonitor([] {}).Scan();
    }
    // Two cameras that are not of the family.
    void AddOtherCameras() {
        instances_.AddInstance(L"##?#USB#1", L"Somebody's camera");
        instances_.AddInstance(L"##?#USB#2", L"Somebody else's camera");
    }

    SensorCameraInstances instances_;
};

TEST_F(CUninstallMonitorScan, FindsNoCameraWithoutTheClassKey) {
    EXPECT_EQ(Scan(), kFileNotFound);
}

TEST_F(CUninstallMonitorScan, HasAStatusOfItsOwnForAClassKeyWithoutInstances) {
    instances_.AddClassKey();
    EXPECT_EQ(Scan(), kNoCamera);
}

// The size that the system's own read asks for is enough for that read: not everywhere so without a
// terminator.
bool ReadsWhatItAskedFor(const std::wstring& instance) {
    const std::wstring key = SensorCameraInstances::ParametersKey(instance);
    const auto read = [&key](void* data, DWORD& size) {
        return RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"FSSensorGroupName", RRF_RT_REG_SZ, nullptr,
                            data, &size);
    };
    DWORD size = 0;
    EXPECT_EQ(read(nullptr, size), ERROR_SUCCESS);
    std::string data(size, '\0');
    return read(data.data(), size) == ERROR_SUCCESS;
}

constexpr const char* kRefuses = "this system's RegGetValueW refuses the size that it asked for";

// What the registry holds as the group name of the only instance.
struct GroupName {
    const char* name;
    std::string data;
    HRESULT expected;
};

class CUninstallMonitorGroupName : public CUninstallMonitorScan,
                                   public testing::WithParamInterface<GroupName> {};

TEST_P(CUninstallMonitorGroupName, TellsWhetherTheInstanceIsOfTheFamily) {
    instances_.AddInstanceWithData(L"##?#USB#1", REG_SZ, GetParam().data);
    if (!ReadsWhatItAskedFor(L"##?#USB#1")) {
        GTEST_SKIP() << kRefuses;
    }
    EXPECT_EQ(Scan(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, CUninstallMonitorGroupName,
    testing::Values(
        GroupName{"Family", test_support::TerminatedBytes(kFamily), S_OK},
        GroupName{"FamilyInsideALongerText",
                  test_support::TerminatedBytes(L"Two Morrow KV400 Cameras on a wall"), S_OK},
        GroupName{"FamilyBehindALongText", test_support::TerminatedBytes(std::wstring(10000, L'x') + kFamily),
                  S_OK},
        GroupName{"FamilyWithoutTerminator", test_support::Bytes(kFamily), S_OK},
        GroupName{"OtherFamily", test_support::TerminatedBytes(L"Morrow KV300 Cameras"), kNoCamera},
        GroupName{"OneCharacterShort", test_support::TerminatedBytes(L"Morrow KV400 Camera"), kNoCamera},
        GroupName{"OtherCase", test_support::TerminatedBytes(L"morrow kv400 cameras"), kNoCamera},
        GroupName{"Empty", test_support::TerminatedBytes(L""), kNoCamera}),
    [](const auto& groupName) { return groupName.param.name; });

TEST_F(CUninstallMonitorScan, ReadsAGroupNameOfAnOddNumberOfBytes) {
    instances_.AddInstanceWithData(L"##?#USB#1", REG_SZ, std::string("x\0y", 3));
    if (!ReadsWhatItAskedFor(L"##?#USB#1")) {
        GTEST_SKIP() << kRefuses;
    }
    EXPECT_EQ(Scan(), kNoCamera);
}

TEST_F(CUninstallMonitorScan, FindsTheFamilyBehindOtherInstances) {
    AddOtherCameras();
    instances_.AddInstance(L"##?#USB#3", kFamily);
    RegistryCalls calls(kScanFunctions);
    EXPECT_EQ(Scan(), 0);
    EXPECT_EQ(calls.LinesOf("RegEnumKeyExW").size(), 3u);
}

TEST_F(CUninstallMonitorScan, LooksNoFurtherThanTheFirstMatch) {
    instances_.AddInstance(L"##?#USB#1", kFamily);
    instances_.AddBareInstance(L"##?#USB#2");
    RegistryCalls calls(kScanFunctions);
    EXPECT_EQ(Scan(), 0);
    EXPECT_EQ(calls.LinesOf("RegEnumKeyExW").size(), 1u);
}

TEST_F(CUninstallMonitorScan, EndsAtAnInstanceWithoutParametersAlthoughALaterOneMatches) {
    instances_.AddBareInstance(L"##?#USB#1");
    instances_.AddInstance(L"##?#USB#2", kFamily);
    RegistryCalls calls(kScanFunctions);
    EXPECT_EQ(Scan(), kFileNotFound);
    EXPECT_EQ(calls.LinesOf("RegEnumKeyExW").size(), 1u);
}

TEST_F(CUninstallMonitorScan, EndsAtAnInstanceWithoutGroupNameAlthoughALaterOneMatches) {
    instances_.AddUnnamedInstance(L"##?#USB#1");
    instances_.AddInstance(L"##?#USB#2", kFamily);
    RegistryCalls calls(kScanFunctions);
    EXPECT_EQ(Scan(), kFileNotFound);
    EXPECT_EQ(calls.LinesOf("RegEnumKeyExW").size(), 1u);
    EXPECT_EQ(calls.LinesOf("RegGetValueW").size(), 1u);
}

TEST_F(CUninstallMonitorScan, EndsAtAGroupNameThatIsNoText) {
    instances_.AddInstanceWithData(L"##?#USB#1", REG_DWORD, std::string(4, '\0'));
    instances_.AddInstance(L"##?#USB#2", kFamily);
    EXPECT_EQ(Scan(), static_cast<HRESULT>(0x8007065E));  // ERROR_UNSUPPORTED_TYPE
}

TEST_F(CUninstallMonitorScan, FailsWhenTheGroupNameGrowsBetweenItsTwoReads) {
    instances_.AddInstance(L"##?#USB#1", L"short");
    RegistryCalls calls(kScanFunctions);
    calls.Before("RegGetValueW", 2,
                 [this] { instances_.AddInstance(L"##?#USB#1", std::wstring(500, L'x')); });
    EXPECT_EQ(Scan(), static_cast<HRESULT>(0x800700EA));  // ERROR_MORE_DATA
}

TEST_F(CUninstallMonitorScan, OpensTheClassAndTheParametersForReadingAndTheMatchForNotification) {
    instances_.AddInstance(L"##?#USB#1", kFamily);
    RegistryCalls calls(kScanFunctions);
    EXPECT_EQ(Scan(), 0);
    EXPECT_EQ(calls.LinesOf("RegOpenKeyExW"),
              (Lines{"RegOpenKeyExW(HKEY_LOCAL_MACHINE, SYSTEM\\CurrentControlSet\\Control\\DeviceClasses\\"
                     "{24e552d7-6523-47f7-a647-d3465bf1f5ca}, 0, 0x20019)",
                     "RegOpenKeyExW(key 1, ##?#USB#1\\#GLOBAL\\Device Parameters, 0, 0x20019)",
                     "RegOpenKeyExW(key 1, ##?#USB#1\\#GLOBAL\\Device Parameters, 0, 0x10)"}));
}

TEST_F(CUninstallMonitorScan, AsksForTheNumberOfInstancesOnce) {
    AddOtherCameras();
    RegistryCalls calls(kScanFunctions);
    EXPECT_EQ(Scan(), kNoCamera);
    EXPECT_EQ(calls.LinesOf("RegQueryInfoKeyW"),
              Lines{"RegQueryInfoKeyW(key 1, class name of 260 characters, null)"});
}

TEST_F(CUninstallMonitorScan, EnumeratesEveryIndexIntoANameOf255Characters) {
    AddOtherCameras();
    RegistryCalls calls(kScanFunctions);
    EXPECT_EQ(Scan(), kNoCamera);
    EXPECT_EQ(calls.LinesOf("RegEnumKeyExW"), (Lines{"RegEnumKeyExW(key 1, 0, 255 characters, null)",
                                                     "RegEnumKeyExW(key 1, 1, 255 characters, null)"}));
}

// The second time for 20 characters and the terminator.
TEST_F(CUninstallMonitorScan, ReadsTheGroupNameFirstForItsSizeThenWhole) {
    instances_.AddInstance(L"##?#USB#1", kFamily);
    RegistryCalls calls(kScanFunctions);
    EXPECT_EQ(Scan(), 0);
    EXPECT_EQ(calls.LinesOf("RegGetValueW"),
              (Lines{"RegGetValueW(key 2, null, FSSensorGroupName, 0x2, no data)",
                     "RegGetValueW(key 2, null, FSSensorGroupName, 0x2, 42 bytes)"}));
}

TEST_F(CUninstallMonitorScan, LeavesEveryKeyOpen) {
    instances_.AddInstance(L"##?#USB#1", L"Somebody's camera");
    instances_.AddInstance(L"##?#USB#2", kFamily);
    RegistryCalls calls(kScanFunctions);
    EXPECT_EQ(Scan(), 0);
    EXPECT_EQ(calls.LinesOf("RegOpenKeyExW").size(), 4u);
    EXPECT_EQ(calls.LinesOf("RegCloseKey"), Lines{});
}

TEST_F(CUninstallMonitorScan, LeavesEveryKeyOpenWhenItFails) {
    instances_.AddUnnamedInstance(L"##?#USB#1");
    RegistryCalls calls(kScanFunctions);
    EXPECT_EQ(Scan(), kFileNotFound);
    EXPECT_EQ(calls.LinesOf("RegOpenKeyExW").size(), 2u);
    EXPECT_EQ(calls.LinesOf("RegCloseKey"), Lines{});
}

struct FailedCall {
    const char* name;
    const char* function;
    int call;
};

class CUninstallMonitorScanError : public CUninstallMonitorScan,
                                   public testing::WithParamInterface<FailedCall> {};

TEST_P(CUninstallMonitorScanError, EndsTheScanWithItsCode) {
    const auto& [name, function, call] = GetParam();
    instances_.AddInstance(L"##?#USB#1", kFamily);
    RegistryCalls calls(kScanFunctions);
    calls.Fail(function, call, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Scan(), kAccessDenied);
    EXPECT_EQ(calls.LinesOf(function).size(), static_cast<std::size_t>(call));
    EXPECT_EQ(calls.Lines().back(), calls.LinesOf(function).back()) << "nothing is asked behind it";
}

INSTANTIATE_TEST_SUITE_P(Calls, CUninstallMonitorScanError,
                         testing::Values(FailedCall{"OfTheClassKey", "RegOpenKeyExW", 1},
                                         FailedCall{"OfTheCount", "RegQueryInfoKeyW", 1},
                                         FailedCall{"OfTheParameters", "RegOpenKeyExW", 2},
                                         FailedCall{"OfTheFirstRead", "RegGetValueW", 1},
                                         FailedCall{"OfTheSecondRead", "RegGetValueW", 2},
                                         FailedCall{"OfTheMatchForNotification", "RegOpenKeyExW", 3}),
                         [](const auto& failed) { return failed.param.name; });

// No registry call returns a negative code; should one do so, it costs one instance and not the scan.
TEST_F(CUninstallMonitorScan, SkipsAnInstanceWhoseEnumerationIsNegative) {
    instances_.AddBareInstance(L"##?#USB#1");
    instances_.AddInstance(L"##?#USB#2", kFamily);
    RegistryCalls calls(kScanFunctions);
    calls.Fail("RegEnumKeyExW", 1, -1);
    EXPECT_EQ(Scan(), 0);
    const Lines opens = calls.LinesOf("RegOpenKeyExW");
    ASSERT_EQ(opens.size(), 3u);
    EXPECT_EQ(opens[1], "RegOpenKeyExW(key 1, ##?#USB#2\\#GLOBAL\\Device Parameters, 0, 0x20019)");
}

// A positive code, which every registry error is, is not looked at: the empty name has no parameters.
TEST_F(CUninstallMonitorScan, DoesNotLookAtAnOrdinaryErrorOfTheEnumeration) {
    instances_.AddInstance(L"##?#USB#1", kFamily);
    RegistryCalls calls(kScanFunctions);
    calls.Fail("RegEnumKeyExW", 1, ERROR_NO_MORE_ITEMS);
    EXPECT_NE(Scan(), 0);
    const Lines opens = calls.LinesOf("RegOpenKeyExW");
    ASSERT_EQ(opens.size(), 2u);
    EXPECT_EQ(opens[1], "RegOpenKeyExW(key 1, \\#GLOBAL\\Device Parameters, 0, 0x20019)");
}

TEST_F(CUninstallMonitorScan, SurvivesANameThatDoesNotFit) {
    instances_.AddInstance(std::wstring(255, L'n'), kFamily);
    EXPECT_LT(Scan(), 0);
}

class CUninstallMonitorCheck : public testing::Test {
  protected:
    ~CUninstallMonitorCheck() override {
        // The monitor's threads use the stage until the monitor is gone.
        monitor_.reset();
    }

    void PlugCamera() { instances_.AddInstance(L"##?#USB#1", kFamily); }
    void RemoveDriver() { instances_.Clear(); }
    // A camera is there, and a watch can be armed; its waits end like this.
    void LetWatch(std::function<DWORD()> wait) {
        PlugCamera();
        stage_.LetArmingSucceed();
        stage_.whileWaiting = std::move(wait);
    }

    // Checks, and waits for all that the monitor does beside it.
    void CheckAndEnd() {
        monitor_->Check();
        monitor_.reset();
    }
    void ExpectServiceRemoved() const {
        EXPECT_EQ(stopRequests_, 1);
        EXPECT_EQ(stage_.CommandLines(), kBothCommands);
    }
    void ExpectServiceKept() const {
        EXPECT_EQ(stopRequests_, 0);
        EXPECT_TRUE(stage_.Commands().empty());
    }

    SensorCameraInstances instances_;
    MonitorStage stage_;
    std::atomic<int> stopRequests_{0};
    std::unique_ptr<CUninstallMonitor> monitor_ =
        std::make_unique<CUninstallMonitor>([this] { ++stopRequests_; });
};

TEST_F(CUninstallMonitorCheck, SleepsASecondFirst) {
    PlugCamera();
    // A camera that goes away during the sleep is gone for the scan.
    stage_.whileSleeping = [this] { RemoveDriver(); };
    monitor_->Check();
    EXPECT_EQ(stage_.Sleeps(), std::vector<DWORD>{1000});
    EXPECT_EQ(stopRequests_, 1);
}

TEST_F(CUninstallMonitorCheck, KeepsTheServiceWhileACameraIsPresent) {
    PlugCamera();
    CheckAndEnd();
    ExpectServiceKept();
}

TEST_F(CUninstallMonitorCheck, StopsAndDeletesTheServiceWithoutTheClassKey) {
    CheckAndEnd();
    ExpectServiceRemoved();
}

TEST_F(CUninstallMonitorCheck, StopsAndDeletesTheServiceWithoutInstances) {
    instances_.AddClassKey();
    CheckAndEnd();
    ExpectServiceRemoved();
}

TEST_F(CUninstallMonitorCheck, TakesEveryRegistryErrorForTheAbsenceOfCameras) {
    instances_.AddBareInstance(L"##?#USB#0");
    PlugCamera();
    CheckAndEnd();
    ExpectServiceRemoved();
}

TEST_F(CUninstallMonitorCheck, DoesNotWatchWhenItDeletesTheService) {
    CheckAndEnd();
    EXPECT_TRUE(stage_.EventCreations().empty());
    EXPECT_TRUE(stage_.Armings().empty());
}

TEST_F(CUninstallMonitorCheck, DoesNotSleepWhileAWatchIsRunning) {
    PlugCamera();
    monitor_->Check();
    monitor_->Check();
    EXPECT_EQ(stage_.Sleeps(), std::vector<DWORD>{1000});
}

TEST_F(CUninstallMonitorCheck, SleepsAgainAfterAnArrival) {
    PlugCamera();
    monitor_->Check();
    monitor_->Stop();
    monitor_->Check();
    EXPECT_EQ(stage_.Sleeps(), (std::vector<DWORD>{1000, 1000}));
}

TEST_F(CUninstallMonitorCheck, SleepsAgainAfterAFailedScan) {
    PlugCamera();
    monitor_->Check();
    RemoveDriver();
    monitor_->Check();
    monitor_->Check();
    EXPECT_EQ(stage_.Sleeps(), (std::vector<DWORD>{1000, 1000}));
}

TEST_F(CUninstallMonitorCheck, HoldsItsLockWhileItSleeps) {
    PlugCamera();
    std::future<void> arrival;
    stage_.whileSleeping = [this, &arrival] {
        arrival = std::async(std::launch::async, [this] { monitor_->Stop(); });
        EXPECT_EQ(arrival.wait_for(kWatchTime), std::future_status::timeout);
    };
    monitor_->Check();
    ASSERT_EQ(arrival.wait_for(kPatience), std::future_status::ready);
    // The arrival came after the check, and so it ended the watch.
    stage_.whileSleeping = nullptr;
    monitor_->Check();
    EXPECT_EQ(stage_.Sleeps().size(), 2u);
}

// Two threads whose arrivals never end, and 200 checks among them.
TEST_F(CUninstallMonitorCheck, KeepsEveryArrivalWaitingUntilItIsOver) {
    constexpr std::size_t kChecks = 200;
    PlugCamera();
    std::atomic<bool> isOver{false};
    std::atomic<int> arrivals{0};
    int arrivalsInOneSleep = 0;
    stage_.whileSleeping = [&] {
        const int before = arrivals;
        for (int pause = 0; pause < 10; ++pause) {
            SwitchToThread();
        }
        arrivalsInOneSleep = std::max(arrivalsInOneSleep, arrivals - before);
    };
    const auto arrive = [&] {
        while (!isOver) {
            monitor_->Stop();
            ++arrivals;
            SwitchToThread();
        }
    };
    std::thread first(arrive);
    std::thread second(arrive);
    for (std::size_t check = 0; check < kChecks; ++check) {
        monitor_->Stop();
        monitor_->Check();
    }
    isOver = true;
    first.join();
    second.join();
    EXPECT_LE(arrivalsInOneSleep, 2) << "each thread may still have counted the arrival before";
    EXPECT_EQ(stage_.Sleeps(), std::vector<DWORD>(kChecks, 1000));
    monitor_.reset();
    EXPECT_EQ(stage_.EventCreations().size(), kChecks) << "each check began a watch";
    ExpectServiceKept();
}

TEST_F(CUninstallMonitorCheck, AsksTheServiceToStopBeforeItRunsTheCommands) {
    std::atomic<int> requestsSeen{0};
    stage_.whileRunning = [this, &requestsSeen](const std::string&) { requestsSeen += stopRequests_; };
    CheckAndEnd();
    EXPECT_EQ(requestsSeen, 2);
}

TEST_F(CUninstallMonitorCheck, RunsTheTwoCommandsAtTheSameTimeOnThreadsOfTheirOwn) {
    std::promise<void> deleteStarted;
    auto started = deleteStarted.get_future();
    std::atomic<bool> together{false};
    stage_.whileRunning = [&](const std::string& line) {
        if (line == "sc delete VeyraCameraDFU") {
            deleteStarted.set_value();
        } else {
            together = started.wait_for(kPatience) == std::future_status::ready;
        }
    };
    CheckAndEnd();
    EXPECT_TRUE(together);
    const auto commands = stage_.Commands();
    ASSERT_EQ(commands.size(), 2u);
    EXPECT_NE(commands[0].thread, commands[1].thread);
    EXPECT_NE(commands[0].thread, GetCurrentThreadId());
    EXPECT_NE(commands[1].thread, GetCurrentThreadId());
}

TEST_F(CUninstallMonitorCheck, DoesNotWaitForTheCommandsOfItsFirstRemoval) {
    std::promise<void> release;
    auto released = release.get_future().share();
    stage_.whileRunning = [released](const std::string&) { released.wait(); };
    auto check = std::async(std::launch::async, [this] { monitor_->Check(); });
    EXPECT_EQ(check.wait_for(kPatience), std::future_status::ready);
    release.set_value();
}

TEST_F(CUninstallMonitorCheck, WaitsForTheEarlierCommandsWhenItRunsThemAgain) {
    std::promise<void> release;
    auto released = release.get_future().share();
    std::promise<void> firstRound;
    std::promise<void> secondRound;
    std::atomic<int> stopCommands{0};
    stage_.whileRunning = [&](const std::string& line) {
        if (line != "sc stop VeyraCameraDFU") {
            return;
        }
        if (++stopCommands == 1) {
            firstRound.set_value();
            released.wait();
        } else {
            secondRound.set_value();
        }
    };
    monitor_->Check();
    EXPECT_EQ(firstRound.get_future().wait_for(kPatience), std::future_status::ready);
    auto check = std::async(std::launch::async, [this] { monitor_->Check(); });
    EXPECT_EQ(secondRound.get_future().wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(check.wait_for(kWatchTime), std::future_status::timeout);
    release.set_value();
    EXPECT_EQ(check.wait_for(kPatience), std::future_status::ready);
    monitor_.reset();
    EXPECT_EQ(stage_.Commands().size(), 4u);
}

TEST_F(CUninstallMonitorCheck, IsOverOnlyWhenItsCommandsAre) {
    std::promise<void> release;
    auto released = release.get_future().share();
    stage_.whileRunning = [released](const std::string&) { released.wait(); };
    monitor_->Check();
    auto destruction = std::async(std::launch::async, [this] { monitor_.reset(); });
    EXPECT_EQ(destruction.wait_for(kWatchTime), std::future_status::timeout);
    release.set_value();
    EXPECT_EQ(destruction.wait_for(kPatience), std::future_status::ready);
}

using CUninstallMonitorWatch = CUninstallMonitorCheck;

TEST_F(CUninstallMonitorWatch, ArmsTheNotificationOnAKeyThatNobodyEverOpened) {
    PlugCamera();
    CheckAndEnd();

    const auto events = stage_.EventCreations();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].attributes, nullptr);
    EXPECT_EQ(events[0].manualReset, TRUE);
    EXPECT_EQ(events[0].initiallySet, FALSE);
    EXPECT_FALSE(events[0].hasName);

    const auto armings = stage_.Armings();
    ASSERT_EQ(armings.size(), 1u);
    EXPECT_EQ(armings[0].key, nullptr);
    EXPECT_EQ(armings[0].subtree, TRUE);
    EXPECT_EQ(armings[0].filter, 1u);
    EXPECT_EQ(armings[0].event, events[0].event);
    EXPECT_EQ(armings[0].asynchronous, TRUE);
    EXPECT_NE(armings[0].thread, GetCurrentThreadId());
}

TEST_F(CUninstallMonitorWatch, EndsAtOnceWithItsEventOpenWhenItCannotBeArmed) {
    PlugCamera();
    CheckAndEnd();
    EXPECT_EQ(stage_.Armings().size(), 1u);
    EXPECT_TRUE(stage_.Waits().empty());
    EXPECT_TRUE(stage_.Closes().empty());
    EXPECT_EQ(stopRequests_, 0);
}

TEST_F(CUninstallMonitorWatch, EndsSilentlyWithoutAnEvent) {
    PlugCamera();
    stage_.FailEventCreation();
    CheckAndEnd();
    EXPECT_EQ(stage_.EventCreations().size(), 1u);
    EXPECT_TRUE(stage_.Armings().empty());
    EXPECT_TRUE(stage_.Commands().empty());
}

TEST_F(CUninstallMonitorWatch, CountsAsRunningAlthoughItEnded) {
    PlugCamera();
    stage_.FailEventCreation();
    monitor_->Check();
    monitor_->Check();
    EXPECT_EQ(stage_.Sleeps(), std::vector<DWORD>{1000});
}

TEST_F(CUninstallMonitorWatch, IsStartedByEveryCheckThatFindsACamera) {
    PlugCamera();
    monitor_->Check();
    CheckAndEnd();
    EXPECT_EQ(stage_.EventCreations().size(), 2u);
}

TEST_F(CUninstallMonitorWatch, StopsAndDeletesTheServiceWhenTheKeyChanges) {
    int waits = 0;
    LetWatch([&waits]() -> DWORD { return ++waits < 3 ? WAIT_TIMEOUT : WAIT_OBJECT_0; });
    CheckAndEnd();
    EXPECT_EQ(stage_.Waits(), (std::vector<DWORD>{100, 100, 100}));
    EXPECT_EQ(stage_.Closes(), (Lines{"empty key", "event"}));
    ExpectServiceRemoved();
}

TEST_F(CUninstallMonitorWatch, ClosesTheKeyAndTheEventBeforeItRunsTheCommands) {
    LetWatch([]() -> DWORD { return WAIT_OBJECT_0; });
    std::atomic<std::size_t> closesSeen{0};
    stage_.whileRunning = [this, &closesSeen](const std::string&) { closesSeen += stage_.Closes().size(); };
    CheckAndEnd();
    EXPECT_EQ(closesSeen, 4u);
}

// The arrival inside the wait would never return if the watch held the lock.
TEST_F(CUninstallMonitorWatch, WaitsWithoutTheLockAndEndsWithAnArrival) {
    LetWatch([&monitor = *monitor_]() -> DWORD {
        monitor.Stop();
        return WAIT_TIMEOUT;
    });
    CheckAndEnd();
    EXPECT_EQ(stage_.Waits(), std::vector<DWORD>{100});
    EXPECT_EQ(stage_.Closes(), (Lines{"empty key", "event"}));
    ExpectServiceKept();
}

TEST_F(CUninstallMonitorWatch, KeepsTheServiceWhenACameraArrivesTogetherWithTheChange) {
    LetWatch([&monitor = *monitor_]() -> DWORD {
        monitor.Stop();
        return WAIT_OBJECT_0;
    });
    CheckAndEnd();
    EXPECT_EQ(stage_.Closes(), (Lines{"empty key", "event"}));
    ExpectServiceKept();
}

TEST_F(CUninstallMonitorWatch, WaitsOnAfterAWaitThatFails) {
    int waits = 0;
    LetWatch([&waits]() -> DWORD { return ++waits == 1 ? WAIT_FAILED : WAIT_OBJECT_0; });
    CheckAndEnd();
    EXPECT_EQ(stage_.Waits().size(), 2u);
    EXPECT_EQ(stopRequests_, 1);
}

TEST_F(CUninstallMonitorWatch, IsWaitedForWhenTheMonitorGoes) {
    std::promise<void> release;
    auto released = release.get_future().share();
    LetWatch([released]() -> DWORD {
        released.wait();
        return WAIT_OBJECT_0;
    });
    monitor_->Check();
    auto destruction = std::async(std::launch::async, [this] { monitor_.reset(); });
    EXPECT_EQ(destruction.wait_for(kWatchTime), std::future_status::timeout);
    release.set_value();
    EXPECT_EQ(destruction.wait_for(kPatience), std::future_status::ready);
    EXPECT_EQ(stage_.Commands().size(), 2u);
}

TEST_F(CUninstallMonitorWatch, EndsWithoutCommandsOfItsOwnWhenALaterCheckDeletesTheService) {
    LetWatch([this, &monitor = *monitor_]() -> DWORD {
        RemoveDriver();
        monitor.Check();
        return WAIT_TIMEOUT;
    });
    CheckAndEnd();
    EXPECT_EQ(stopRequests_, 1);
    EXPECT_EQ(stage_.Commands().size(), 2u);
    EXPECT_EQ(stage_.Closes(), (Lines{"empty key", "event"}));
}

}  // namespace
