#include "monitor/CUninstallMonitor.h"

#include <gtest/gtest.h>

#include "tests/monitor/MonitorStage.h"
#include "tests/monitor/RegistryCalls.h"
#include "tests/monitor/SensorCameraInstances.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

constexpr HRESULT kFileNotFound = static_cast<HRESULT>(0x80070002);
constexpr HRESULT kAccessDenied = static_cast<HRESULT>(0x80070005);
constexpr HRESULT kNoCamera = static_cast<HRESULT>(0x80630501);

const std::vector<std::string> kBothCommands{"sc delete VeyraCameraDFU", "sc stop VeyraCameraDFU"};

// How long a thing is watched that must not happen.
constexpr auto kPatience = 100ms;
// How long a thing may take that must happen.
constexpr auto kDeadline = 20s;

class CUninstallMonitorScan : public testing::Test {
  protected:
    static HRESULT Scan() {
        return CUninstallMonitor([] {}).Scan();
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

TEST_F(CUninstallMonitorScan, FindsTheFamilyByItsGroupName) {
    instances_.AddInstance(L"##?#USB#1", L"Morrow KV400 Cameras");
    EXPECT_EQ(Scan(), 0);
}

TEST_F(CUninstallMonitorScan, FindsTheFamilyInsideALongerText) {
    instances_.AddInstance(L"##?#USB#1", L"Two Morrow KV400 Cameras on a wall");
    EXPECT_EQ(Scan(), 0);
}

TEST_F(CUninstallMonitorScan, TakesAnotherFamilyForNoCamera) {
    instances_.AddInstance(L"##?#USB#1", L"Morrow KV300 Cameras");
    instances_.AddInstance(L"##?#USB#2", L"Morrow KV400 Camera");
    EXPECT_EQ(Scan(), kNoCamera);
}

TEST_F(CUninstallMonitorScan, ComparesTheCase) {
    instances_.AddInstance(L"##?#USB#1", L"morrow kv400 cameras");
    EXPECT_EQ(Scan(), kNoCamera);
}

TEST_F(CUninstallMonitorScan, TakesAnEmptyGroupNameForNoCamera) {
    instances_.AddInstance(L"##?#USB#1", L"");
    EXPECT_EQ(Scan(), kNoCamera);
}

TEST_F(CUninstallMonitorScan, FindsTheFamilyBehindOtherInstances) {
    instances_.AddInstance(L"##?#USB#1", L"Somebody's camera");
    instances_.AddInstance(L"##?#USB#2", L"Somebody else's camera");
    instances_.AddInstance(L"##?#USB#3", L"Morrow KV400 Cameras");
    RegistryCalls calls;
    EXPECT_EQ(Scan(), 0);
    EXPECT_EQ(calls.enumerations.size(), 3u);
}

TEST_F(CUninstallMonitorScan, LooksNoFurtherThanTheFirstMatch) {
    instances_.AddInstance(L"##?#USB#1", L"Morrow KV400 Cameras");
    instances_.AddBareInstance(L"##?#USB#2");
    RegistryCalls calls;
    EXPECT_EQ(Scan(), 0);
    EXPECT_EQ(calls.enumerations.size(), 1u);
}

TEST_F(CUninstallMonitorScan, EndsAtAnInstanceWithoutParametersAlthoughALaterOneMatches) {
    instances_.AddBareInstance(L"##?#USB#1");
    instances_.AddInstance(L"##?#USB#2", L"Morrow KV400 Cameras");
    RegistryCalls calls;
    EXPECT_EQ(Scan(), kFileNotFound);
    EXPECT_EQ(calls.enumerations.size(), 1u);
}

TEST_F(CUninstallMonitorScan, EndsAtAnInstanceWithoutGroupNameAlthoughALaterOneMatches) {
    instances_.AddUnnamedInstance(L"##?#USB#1");
    instances_.AddInstance(L"##?#USB#2", L"Morrow KV400 Cameras");
    RegistryCalls calls;
    EXPECT_EQ(Scan(), kFileNotFound);
    EXPECT_EQ(calls.enumerations.size(), 1u);
    EXPECT_EQ(calls.reads.size(), 1u);
}

TEST_F(CUninstallMonitorScan, EndsAtAGroupNameThatIsNoText) {
    instances_.AddInstanceWithData(L"##?#USB#1", REG_DWORD, std::string(4, '\0'));
    instances_.AddInstance(L"##?#USB#2", L"Morrow KV400 Cameras");
    EXPECT_EQ(Scan(), static_cast<HRESULT>(0x8007065E));  // ERROR_UNSUPPORTED_TYPE
}

TEST_F(CUninstallMonitorScan, ReadsAGroupNameWithoutTerminator) {
    const std::wstring name = L"Morrow KV400 Cameras";
    instances_.AddInstanceWithData(
        L"##?#USB#1", REG_SZ,
        std::string(reinterpret_cast<const char*>(name.data()), name.size() * sizeof(wchar_t)));
    EXPECT_EQ(Scan(), 0);
}

TEST_F(CUninstallMonitorScan, ReadsAGroupNameOfAnOddNumberOfBytes) {
    instances_.AddInstanceWithData(L"##?#USB#1", REG_SZ, std::string("x\0y", 3));
    EXPECT_EQ(Scan(), kNoCamera);
}

TEST_F(CUninstallMonitorScan, ReadsALongGroupName) {
    instances_.AddInstance(L"##?#USB#1", std::wstring(10000, L'x') + L"Morrow KV400 Cameras");
    EXPECT_EQ(Scan(), 0);
}

TEST_F(CUninstallMonitorScan, FailsWhenTheGroupNameGrowsBetweenItsTwoReads) {
    instances_.AddInstance(L"##?#USB#1", L"short");
    RegistryCalls calls;
    calls.BeforeRead(2, [this] { instances_.AddInstance(L"##?#USB#1", std::wstring(500, L'x')); });
    EXPECT_EQ(Scan(), static_cast<HRESULT>(0x800700EA));  // ERROR_MORE_DATA
}

TEST_F(CUninstallMonitorScan, OpensTheClassAndTheParametersForReadingAndTheMatchForNotification) {
    instances_.AddInstance(L"##?#USB#1", L"Morrow KV400 Cameras");
    RegistryCalls calls;
    ASSERT_EQ(Scan(), 0);

    ASSERT_EQ(calls.opens.size(), 3u);
    EXPECT_EQ(calls.opens[0].parent, HKEY_LOCAL_MACHINE);
    EXPECT_EQ(calls.opens[0].path,
              L"SYSTEM\\CurrentControlSet\\Control\\DeviceClasses\\{24e552d7-6523-47f7-a647-d3465bf1f5ca}");
    EXPECT_EQ(calls.opens[0].options, 0u);
    EXPECT_EQ(calls.opens[0].access, 0x20019u);

    EXPECT_EQ(calls.opens[1].parent, calls.opens[0].opened);
    EXPECT_EQ(calls.opens[1].path, L"##?#USB#1\\#GLOBAL\\Device Parameters");
    EXPECT_EQ(calls.opens[1].options, 0u);
    EXPECT_EQ(calls.opens[1].access, 0x20019u);

    EXPECT_EQ(calls.opens[2].parent, calls.opens[0].opened);
    EXPECT_EQ(calls.opens[2].path, L"##?#USB#1\\#GLOBAL\\Device Parameters");
    EXPECT_EQ(calls.opens[2].options, 0u);
    EXPECT_EQ(calls.opens[2].access, 0x10u);
}

TEST_F(CUninstallMonitorScan, AsksForTheNumberOfInstancesOnce) {
    instances_.AddInstance(L"##?#USB#1", L"Somebody's camera");
    instances_.AddInstance(L"##?#USB#2", L"Somebody else's camera");
    RegistryCalls calls;
    ASSERT_EQ(Scan(), kNoCamera);

    ASSERT_EQ(calls.counts.size(), 1u);
    EXPECT_EQ(calls.counts[0].key, calls.opens[0].opened);
    EXPECT_TRUE(calls.counts[0].hasClassName);
    EXPECT_EQ(calls.counts[0].classNameCapacity, 260u);
    EXPECT_EQ(calls.counts[0].reserved, nullptr);
}

TEST_F(CUninstallMonitorScan, EnumeratesEveryIndexIntoANameOf255Characters) {
    instances_.AddInstance(L"##?#USB#1", L"Somebody's camera");
    instances_.AddInstance(L"##?#USB#2", L"Somebody else's camera");
    RegistryCalls calls;
    ASSERT_EQ(Scan(), kNoCamera);

    ASSERT_EQ(calls.enumerations.size(), 2u);
    for (DWORD index = 0; index < 2; ++index) {
        EXPECT_EQ(calls.enumerations[index].key, calls.opens[0].opened);
        EXPECT_EQ(calls.enumerations[index].index, index);
        EXPECT_EQ(calls.enumerations[index].nameCapacity, 255u);
        EXPECT_EQ(calls.enumerations[index].reserved, nullptr);
    }
}

TEST_F(CUninstallMonitorScan, ReadsTheGroupNameFirstForItsSizeThenWhole) {
    instances_.AddInstance(L"##?#USB#1", L"Morrow KV400 Cameras");
    RegistryCalls calls;
    ASSERT_EQ(Scan(), 0);

    ASSERT_EQ(calls.reads.size(), 2u);
    for (const RegistryCalls::Read& read : calls.reads) {
        EXPECT_EQ(read.key, calls.opens[1].opened);
        EXPECT_EQ(read.subkey, std::nullopt);
        EXPECT_EQ(read.value, L"FSSensorGroupName");
        EXPECT_EQ(read.flags, 2u);
    }
    EXPECT_FALSE(calls.reads[0].hasBuffer);
    EXPECT_TRUE(calls.reads[1].hasBuffer);
    EXPECT_EQ(calls.reads[1].size, 42u);  // 20 characters and the terminator
}

TEST_F(CUninstallMonitorScan, LeavesEveryKeyOpen) {
    instances_.AddInstance(L"##?#USB#1", L"Somebody's camera");
    instances_.AddInstance(L"##?#USB#2", L"Morrow KV400 Cameras");
    RegistryCalls calls;
    ASSERT_EQ(Scan(), 0);
    EXPECT_EQ(calls.opens.size(), 4u);
    EXPECT_TRUE(calls.closes.empty());
}

TEST_F(CUninstallMonitorScan, LeavesEveryKeyOpenWhenItFails) {
    instances_.AddUnnamedInstance(L"##?#USB#1");
    RegistryCalls calls;
    ASSERT_EQ(Scan(), kFileNotFound);
    EXPECT_EQ(calls.opens.size(), 2u);
    EXPECT_TRUE(calls.closes.empty());
}

TEST_F(CUninstallMonitorScan, GivesTheErrorOfTheClassKeyAndAsksNothingMore) {
    RegistryCalls calls;
    calls.Fail("RegOpenKeyExW", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Scan(), kAccessDenied);
    EXPECT_TRUE(calls.counts.empty());
}

TEST_F(CUninstallMonitorScan, GivesTheErrorOfTheCountAndEnumeratesNothing) {
    instances_.AddInstance(L"##?#USB#1", L"Morrow KV400 Cameras");
    RegistryCalls calls;
    calls.Fail("RegQueryInfoKeyW", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Scan(), kAccessDenied);
    EXPECT_TRUE(calls.enumerations.empty());
}

// No registry call returns a negative code; should one do so, it costs one instance and not the scan.
TEST_F(CUninstallMonitorScan, SkipsAnInstanceWhoseEnumerationIsNegative) {
    instances_.AddBareInstance(L"##?#USB#1");
    instances_.AddInstance(L"##?#USB#2", L"Morrow KV400 Cameras");
    RegistryCalls calls;
    calls.Fail("RegEnumKeyExW", 1, -1);
    EXPECT_EQ(Scan(), 0);
    ASSERT_EQ(calls.opens.size(), 3u);
    EXPECT_EQ(calls.opens[1].path, L"##?#USB#2\\#GLOBAL\\Device Parameters");
}

// A positive code, which every registry error is, is not looked at: the empty name has no parameters.
TEST_F(CUninstallMonitorScan, DoesNotLookAtAnOrdinaryErrorOfTheEnumeration) {
    instances_.AddInstance(L"##?#USB#1", L"Morrow KV400 Cameras");
    RegistryCalls calls;
    calls.Fail("RegEnumKeyExW", 1, ERROR_NO_MORE_ITEMS);
    EXPECT_NE(Scan(), 0);
    ASSERT_EQ(calls.opens.size(), 2u);
    EXPECT_EQ(calls.opens[1].path, L"\\#GLOBAL\\Device Parameters");
}

TEST_F(CUninstallMonitorScan, SurvivesANameThatDoesNotFit) {
    instances_.AddInstance(std::wstring(255, L'n'), L"Morrow KV400 Cameras");
    EXPECT_LT(Scan(), 0);
}

TEST_F(CUninstallMonitorScan, GivesTheErrorOfTheParametersAndReadsNothing) {
    instances_.AddInstance(L"##?#USB#1", L"Morrow KV400 Cameras");
    RegistryCalls calls;
    calls.Fail("RegOpenKeyExW", 2, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Scan(), kAccessDenied);
    EXPECT_TRUE(calls.reads.empty());
}

TEST_F(CUninstallMonitorScan, GivesTheErrorOfTheFirstReadAndReadsNoFurther) {
    instances_.AddInstance(L"##?#USB#1", L"Morrow KV400 Cameras");
    RegistryCalls calls;
    calls.Fail("RegGetValueW", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Scan(), kAccessDenied);
    EXPECT_EQ(calls.reads.size(), 1u);
}

TEST_F(CUninstallMonitorScan, GivesTheErrorOfTheSecondRead) {
    instances_.AddInstance(L"##?#USB#1", L"Morrow KV400 Cameras");
    RegistryCalls calls;
    calls.Fail("RegGetValueW", 2, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Scan(), kAccessDenied);
    EXPECT_EQ(calls.opens.size(), 2u);
}

TEST_F(CUninstallMonitorScan, GivesTheErrorOfTheMatchThatCannotBeOpenedForNotification) {
    instances_.AddInstance(L"##?#USB#1", L"Morrow KV400 Cameras");
    RegistryCalls calls;
    calls.Fail("RegOpenKeyExW", 3, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Scan(), kAccessDenied);
}

class CUninstallMonitorCheck : public testing::Test {
  protected:
    ~CUninstallMonitorCheck() override {
        // The monitor's threads use the stage until the monitor is gone.
        monitor_.reset();
    }

    void PlugCamera() { instances_.AddInstance(L"##?#USB#1", L"Morrow KV400 Cameras"); }
    void RemoveDriver() { instances_.Clear(); }

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
    monitor_->Check();
    monitor_.reset();
    EXPECT_EQ(stopRequests_, 0);
    EXPECT_TRUE(stage_.Commands().empty());
}

TEST_F(CUninstallMonitorCheck, StopsAndDeletesTheServiceWithoutTheClassKey) {
    monitor_->Check();
    monitor_.reset();
    EXPECT_EQ(stopRequests_, 1);
    EXPECT_EQ(stage_.CommandLines(), kBothCommands);
}

TEST_F(CUninstallMonitorCheck, StopsAndDeletesTheServiceWithoutInstances) {
    instances_.AddClassKey();
    monitor_->Check();
    monitor_.reset();
    EXPECT_EQ(stopRequests_, 1);
    EXPECT_EQ(stage_.CommandLines(), kBothCommands);
}

TEST_F(CUninstallMonitorCheck, TakesEveryRegistryErrorForTheAbsenceOfCameras) {
    instances_.AddBareInstance(L"##?#USB#0");
    PlugCamera();
    monitor_->Check();
    monitor_.reset();
    EXPECT_EQ(stopRequests_, 1);
    EXPECT_EQ(stage_.CommandLines(), kBothCommands);
}

TEST_F(CUninstallMonitorCheck, DoesNotWatchWhenItDeletesTheService) {
    monitor_->Check();
    monitor_.reset();
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
        EXPECT_EQ(arrival.wait_for(kPatience), std::future_status::timeout);
    };
    monitor_->Check();
    ASSERT_EQ(arrival.wait_for(kDeadline), std::future_status::ready);
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
    EXPECT_EQ(stopRequests_, 0);
    EXPECT_TRUE(stage_.Commands().empty());
}

TEST_F(CUninstallMonitorCheck, AsksTheServiceToStopBeforeItRunsTheCommands) {
    std::atomic<int> requestsSeen{0};
    stage_.whileRunning = [this, &requestsSeen](const std::string&) { requestsSeen += stopRequests_; };
    monitor_->Check();
    monitor_.reset();
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
            together = started.wait_for(kDeadline) == std::future_status::ready;
        }
    };
    monitor_->Check();
    monitor_.reset();
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
    EXPECT_EQ(check.wait_for(kDeadline), std::future_status::ready);
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
    EXPECT_EQ(firstRound.get_future().wait_for(kDeadline), std::future_status::ready);
    auto check = std::async(std::launch::async, [this] { monitor_->Check(); });
    EXPECT_EQ(secondRound.get_future().wait_for(kDeadline), std::future_status::ready);
    EXPECT_EQ(check.wait_for(kPatience), std::future_status::timeout);
    release.set_value();
    EXPECT_EQ(check.wait_for(kDeadline), std::future_status::ready);
    monitor_.reset();
    EXPECT_EQ(stage_.Commands().size(), 4u);
}

TEST_F(CUninstallMonitorCheck, IsOverOnlyWhenItsCommandsAre) {
    std::promise<void> release;
    auto released = release.get_future().share();
    stage_.whileRunning = [released](const std::string&) { released.wait(); };
    monitor_->Check();
    auto destruction = std::async(std::launch::async, [this] { monitor_.reset(); });
    EXPECT_EQ(destruction.wait_for(kPatience), std::future_status::timeout);
    release.set_value();
    EXPECT_EQ(destruction.wait_for(kDeadline), std::future_status::ready);
}

using CUninstallMonitorWatch = CUninstallMonitorCheck;

TEST_F(CUninstallMonitorWatch, ArmsTheNotificationOnAKeyThatNobodyEverOpened) {
    PlugCamera();
    monitor_->Check();
    monitor_.reset();

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
    monitor_->Check();
    monitor_.reset();
    EXPECT_EQ(stage_.Armings().size(), 1u);
    EXPECT_TRUE(stage_.Waits().empty());
    EXPECT_TRUE(stage_.Closes().empty());
    EXPECT_EQ(stopRequests_, 0);
}

TEST_F(CUninstallMonitorWatch, EndsSilentlyWithoutAnEvent) {
    PlugCamera();
    stage_.FailEventCreation();
    monitor_->Check();
    monitor_.reset();
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
    monitor_->Check();
    monitor_.reset();
    EXPECT_EQ(stage_.EventCreations().size(), 2u);
}

TEST_F(CUninstallMonitorWatch, StopsAndDeletesTheServiceWhenTheKeyChanges) {
    PlugCamera();
    stage_.LetArmingSucceed();
    int waits = 0;
    stage_.whileWaiting = [&waits]() -> DWORD { return ++waits < 3 ? WAIT_TIMEOUT : WAIT_OBJECT_0; };
    monitor_->Check();
    monitor_.reset();
    EXPECT_EQ(stage_.Waits(), (std::vector<DWORD>{100, 100, 100}));
    EXPECT_EQ(stage_.Closes(), (std::vector<std::string>{"empty key", "event"}));
    EXPECT_EQ(stopRequests_, 1);
    EXPECT_EQ(stage_.CommandLines(), kBothCommands);
}

TEST_F(CUninstallMonitorWatch, ClosesTheKeyAndTheEventBeforeItRunsTheCommands) {
    PlugCamera();
    stage_.LetArmingSucceed();
    stage_.whileWaiting = []() -> DWORD { return WAIT_OBJECT_0; };
    std::atomic<std::size_t> closesSeen{0};
    stage_.whileRunning = [this, &closesSeen](const std::string&) { closesSeen += stage_.Closes().size(); };
    monitor_->Check();
    monitor_.reset();
    EXPECT_EQ(closesSeen, 4u);
}

// The arrival inside the wait would never return if the watch held the lock.
TEST_F(CUninstallMonitorWatch, WaitsWithoutTheLockAndEndsWithAnArrival) {
    PlugCamera();
    stage_.LetArmingSucceed();
    CUninstallMonitor& monitor = *monitor_;
    stage_.whileWaiting = [&monitor]() -> DWORD {
        monitor.Stop();
        return WAIT_TIMEOUT;
    };
    monitor_->Check();
    monitor_.reset();
    EXPECT_EQ(stage_.Waits(), std::vector<DWORD>{100});
    EXPECT_EQ(stage_.Closes(), (std::vector<std::string>{"empty key", "event"}));
    EXPECT_EQ(stopRequests_, 0);
    EXPECT_TRUE(stage_.Commands().empty());
}

TEST_F(CUninstallMonitorWatch, KeepsTheServiceWhenACameraArrivesTogetherWithTheChange) {
    PlugCamera();
    stage_.LetArmingSucceed();
    CUninstallMonitor& monitor = *monitor_;
    stage_.whileWaiting = [&monitor]() -> DWORD {
        monitor.Stop();
        return WAIT_OBJECT_0;
    };
    monitor_->Check();
    monitor_.reset();
    EXPECT_EQ(stage_.Closes(), (std::vector<std::string>{"empty key", "event"}));
    EXPECT_EQ(stopRequests_, 0);
    EXPECT_TRUE(stage_.Commands().empty());
}

TEST_F(CUninstallMonitorWatch, WaitsOnAfterAWaitThatFails) {
    PlugCamera();
    stage_.LetArmingSucceed();
    int waits = 0;
    stage_.whileWaiting = [&waits]() -> DWORD { return ++waits == 1 ? WAIT_FAILED : WAIT_OBJECT_0; };
    monitor_->Check();
    monitor_.reset();
    EXPECT_EQ(stage_.Waits().size(), 2u);
    EXPECT_EQ(stopRequests_, 1);
}

TEST_F(CUninstallMonitorWatch, IsWaitedForWhenTheMonitorGoes) {
    PlugCamera();
    stage_.LetArmingSucceed();
    std::promise<void> release;
    auto released = release.get_future().share();
    stage_.whileWaiting = [released]() -> DWORD {
        released.wait();
        return WAIT_OBJECT_0;
    };
    monitor_->Check();
    auto destruction = std::async(std::launch::async, [this] { monitor_.reset(); });
    EXPECT_EQ(destruction.wait_for(kPatience), std::future_status::timeout);
    release.set_value();
    EXPECT_EQ(destruction.wait_for(kDeadline), std::future_status::ready);
    EXPECT_EQ(stage_.Commands().size(), 2u);
}

TEST_F(CUninstallMonitorWatch, EndsWithoutCommandsOfItsOwnWhenALaterCheckDeletesTheService) {
    PlugCamera();
    stage_.LetArmingSucceed();
    CUninstallMonitor& monitor = *monitor_;
    stage_.whileWaiting = [this, &monitor]() -> DWORD {
        RemoveDriver();
        monitor.Check();
        return WAIT_TIMEOUT;
    };
    monitor_->Check();
    monitor_.reset();
    EXPECT_EQ(stopRequests_, 1);
    EXPECT_EQ(stage_.Commands().size(), 2u);
    EXPECT_EQ(stage_.Closes(), (std::vector<std::string>{"empty key", "event"}));
}

}  // namespace
