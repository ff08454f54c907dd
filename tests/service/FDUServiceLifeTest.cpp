#include "service/FDUService.h"

#include "tests/service/FDUServiceStage.h"
#include "win32/Win32Error.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <future>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Strings = std::vector<std::string>;
using test_support::kUpdateServiceGroup;

const std::wstring kSecondProductLink =
    L"\\\\?\\usb#vid_2f1a&pid_7e02#serial#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";

// From its construction to its destruction, without the passes.
class FDUServiceLife : public FDUServiceStage {
  protected:
    // The code of the error-code exception that the operation raises.
    static std::optional<DWORD> CodeRaisedBy(const std::function<void()>& operation) {
        try {
            operation();
        } catch (const win32::Win32Error& error) {
            return error.Code();
        }
        return std::nullopt;
    }

    // The functions called for COM and the toast controller.
    [[nodiscard]] Strings Calls() const { return calls_; }
    void MakeAnew() {
        EndService();
        Service();
    }
    // A service that sets itself up and will not ask anybody, though it stays in COM.
    void ExpectToRunWithoutAPrompt() {
        Service();
        EXPECT_EQ(com_.uninitialisations, 0);
        EXPECT_EQ(TraceNumbers(), std::vector<USHORT>{10});
        EXPECT_EQ(toast_.References(), 0u);
        EXPECT_EQ(toast_.Sink(), nullptr);
    }
};

TEST_F(FDUServiceLife, BeginsInThisOrder) {
    Service();
    EXPECT_EQ(Calls(), (Strings{"CreateEventW", "CoInitializeEx", "CoIncrementMTAUsage",
                                "CoInitializeSecurity", "RegSetKeyValueW", "CoCreateInstance", "OleRun"}));
    EXPECT_EQ(TraceNumbers(), std::vector<USHORT>{10});
}

TEST_F(FDUServiceLife, HasTheNameUnderWhichItIsInstalled) {
    EXPECT_STREQ(Service().Name(), L"VeyraCameraDfuService");
}

TEST_F(FDUServiceLife, RegistersTheTraceProviderOnce) {
    Service();
    EXPECT_EQ(traces_.Registrations().size(), 1u);
}

TEST_F(FDUServiceLife, RegistersTheTraceProviderBeforeItTracesAnything) {
    Service();  // from here on a session takes messages
    EndService();
    traces_.Forget();
    Service();
    EXPECT_EQ(traces_.Registrations().back().messagesBefore, 0u);
    EXPECT_FALSE(traces_.Messages().empty());
}

TEST_F(FDUServiceLife, TracesItsConstructionAsInformation) {
    ExpectTracedFrom(4, {10}, [this] { MakeAnew(); });
    EXPECT_TRUE(traces_.Find(kUpdateServiceGroup, 10).at(0).arguments.empty());
}

TEST_F(FDUServiceLife, TracesTheScopesOfItsConstruction) {
    Service();
    EXPECT_EQ(Scopes(), (Strings{"> FDUService::FDUService", "> FDUService::CCheckToastCntrl",
                                 "< FDUService::CCheckToastCntrl", "< FDUService::FDUService"}));
}

TEST_F(FDUServiceLife, TracesNoScopesBelowTheirLevel) {
    traces_.EnableSession(7);
    Service().OnStart(0, nullptr);
    EndService();
    EXPECT_TRUE(Scopes().empty());
}

TEST_F(FDUServiceLife, WatchesUsbDevicesWithOneRegistration) {
    Service();
    EXPECT_EQ(devices_.ActiveRegistrations(), 1u);
}

TEST_F(FDUServiceLife, WatchesBothProductsInDfuMode) {
    devices_.SetPresent({kSecondProductLink});
    bus_.Add(kSecondProductLink);
    Service().OnUsbDeviceArrival();
    EXPECT_FALSE(bus_.Calls().empty());
    EXPECT_NE(bus_.Calls().at(0).find("pid_7e02"), std::string::npos);
}

TEST_F(FDUServiceLife, SharesTheEventsOfTheWatchersCalledDfu) {
    Service();
    const HANDLE event = OpenEventW(SYNCHRONIZE, FALSE, L"dfu");
    EXPECT_NE(event, nullptr);
    CloseHandle(event);
}

TEST_F(FDUServiceLife, RaisesTheErrorOfItsEventBeforeItTouchesCom) {
    life_.createEventError = ERROR_NO_SYSTEM_RESOURCES;
    EXPECT_EQ(CodeRaisedBy([this] { Service(); }), 1450u);
    EXPECT_EQ(Calls(), Strings{"CreateEventW"});
    EXPECT_EQ(TraceNumbers(), std::vector<USHORT>{10});
}

TEST_F(FDUServiceLife, InitialisesTheMultithreadedApartment) {
    Service();
    ASSERT_EQ(com_.initialisations.size(), 1u);
    EXPECT_EQ(com_.initialisations[0].reserved, nullptr);
    EXPECT_EQ(com_.initialisations[0].concurrency, 0u);
}

TEST_F(FDUServiceLife, GoesOnWhenComWasInitialisedOtherwise) {
    com_.initialisationResult = RPC_E_CHANGED_MODE;
    Service();
    EXPECT_NE(toast_.Sink(), nullptr);
}

TEST_F(FDUServiceLife, KeepsNoApartmentThatItHasNotEntered) {
    com_.initialisationResult = RPC_E_CHANGED_MODE;
    Service();
    EXPECT_EQ(Calls(), (Strings{"CreateEventW", "CoInitializeEx", "CoInitializeSecurity", "RegSetKeyValueW",
                                "CoCreateInstance", "OleRun"}));
}

TEST_F(FDUServiceLife, LeavesTheChoiceOfAuthenticationToTheSystem) {
    Service();
    ASSERT_EQ(com_.securities.size(), 1u);
    EXPECT_EQ(com_.securities[0].descriptor, nullptr);
    EXPECT_EQ(com_.securities[0].serviceCount, -1);
    EXPECT_EQ(com_.securities[0].services, nullptr);
    EXPECT_EQ(com_.securities[0].reserved1, nullptr);
    EXPECT_EQ(com_.securities[0].authenticationLevel, 0u);
    EXPECT_EQ(com_.securities[0].impersonationLevel, 3u);
    EXPECT_EQ(com_.securities[0].authenticationList, nullptr);
    EXPECT_EQ(com_.securities[0].capabilities, 0u);
    EXPECT_EQ(com_.securities[0].reserved3, nullptr);
}

TEST_F(FDUServiceLife, StopsSettingUpThePromptWhenComRefusesItsSecurity) {
    com_.securityResult = RPC_E_TOO_LATE;
    Service();
    EXPECT_EQ(Calls(), (Strings{"CreateEventW", "CoInitializeEx", "CoIncrementMTAUsage",
                                "CoInitializeSecurity", "CoUninitialize"}));
    const auto messages = traces_.Find(kUpdateServiceGroup, 11);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].Code(), 0x80010119u);
    EXPECT_EQ(TraceNumbers(), (std::vector<USHORT>{10, 11}));
}

TEST_F(FDUServiceLife, LeavesComBeforeItTracesTheRefusal) {
    com_.securityResult = E_FAIL;
    std::vector<USHORT> tracedBefore;
    com_.report = [this, &tracedBefore](const std::string& function) {
        if (function == "CoUninitialize") {
            tracedBefore = TraceNumbers();
        }
    };
    Service();
    EXPECT_EQ(tracedBefore, std::vector<USHORT>{10});
}

TEST_F(FDUServiceLife, TracesTheRefusalOfSecurityAsAnError) {
    com_.securityResult = E_FAIL;
    ExpectTracedFrom(2, {11}, [this] { MakeAnew(); });
}

TEST_F(FDUServiceLife, StopsSettingUpThePromptWhenTheControllerCannotBeRegistered) {
    FailToastController(ERROR_ACCESS_DENIED);
    Service();
    EXPECT_EQ(Calls(), (Strings{"CreateEventW", "CoInitializeEx", "CoIncrementMTAUsage",
                                "CoInitializeSecurity", "RegSetKeyValueW", "CoUninitialize"}));
    const auto messages = traces_.Find(kUpdateServiceGroup, 12);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].Code(), 0x80070005u);
    EXPECT_EQ(TraceNumbers(), (std::vector<USHORT>{10, 12}));
}

TEST_F(FDUServiceLife, TracesAControllerThatCannotBeRegisteredAsAnError) {
    FailToastController(ERROR_ACCESS_DENIED);
    ExpectTracedFrom(2, {12}, [this] { MakeAnew(); });
}

TEST_F(FDUServiceLife, RunsWithoutAPromptWhenTheControllerCannotBeActivated) {
    activation_.creationResult = static_cast<HRESULT>(0x80040154);  // REGDB_E_CLASSNOTREG
    ExpectToRunWithoutAPrompt();
}

TEST_F(FDUServiceLife, RunsWithoutAPromptWhenTheControllerDoesNotRun) {
    activation_.runResult = E_FAIL;
    ExpectToRunWithoutAPrompt();
}

TEST_F(FDUServiceLife, RunsWithoutAPromptWhenTheControllerHasNotItsInterface) {
    toast_.interfaceResult = E_NOINTERFACE;
    ExpectToRunWithoutAPrompt();
}

TEST_F(FDUServiceLife, HoldsTheControllerOnceAndConnectsItsSink) {
    Service();
    EXPECT_EQ(toast_.References(), 1u);
    EXPECT_NE(toast_.Sink(), nullptr);
    EXPECT_EQ(com_.uninitialisations, 0);
}

TEST_F(FDUServiceLife, RunsOnWithARefusedConnection) {
    toast_.adviseResult = E_FAIL;
    Service();
    EXPECT_EQ(toast_.Sink(), nullptr);
    EXPECT_EQ(com_.uninitialisations, 0);
}

TEST_F(FDUServiceLife, RaisesAControllerWithoutEventsAsAComError) {
    toast_.containerResult = E_NOINTERFACE;
    std::optional<HRESULT> raised;
    try {
        Service();
    } catch (const _com_error& error) {
        raised = error.Error();
    }
    EXPECT_EQ(raised, static_cast<HRESULT>(0x80004003));
    EXPECT_EQ(toast_.References(), 0u);
    EXPECT_EQ(devices_.ActiveRegistrations(), 0u);
}

TEST_F(FDUServiceLife, DoesNothingWithAnAnswerBeforeTheFirstPrompt) {
    Service();
    EXPECT_EQ(toast_.FireUserRespond(1), S_OK);
    EXPECT_TRUE(cameras_.Journal().Lines().empty());
}

TEST_F(FDUServiceLife, WritesItsStartToTheEventLogBeforeItQueuesItsWorkItem) {
    Service();
    calls_.clear();
    Service().OnStart(0, nullptr);
    EXPECT_EQ(Calls(), (Strings{"ReportEventW", "QueueUserWorkItem"}));
    ASSERT_EQ(life_.eventLog.size(), 1u);
    const FakeServiceLife::EventLogEntry& entry = life_.eventLog[0];
    EXPECT_EQ(entry.source, L"VeyraCameraDfuService");
    EXPECT_FALSE(entry.hasServer);
    EXPECT_EQ(entry.type, 4u);
    EXPECT_EQ(entry.category, 0u);
    EXPECT_EQ(entry.id, 0u);
    EXPECT_EQ(entry.user, nullptr);
    EXPECT_EQ(entry.dataSize, 0u);
    EXPECT_EQ(entry.data, nullptr);
    EXPECT_EQ(entry.strings,
              (std::vector<std::wstring>{L"VeyraCameraDfuService", L"KV400CameraService::OnStart Enter"}));
    EXPECT_EQ(life_.closedEventSources, 1);
}

TEST_F(FDUServiceLife, QueuesOneLongWorkItemAndStartsNoPass) {
    Service();
    devices_.ForgetCalls();
    Service().OnStart(0, nullptr);
    ASSERT_EQ(life_.workItems.size(), 1u);
    EXPECT_EQ(life_.workItems[0].flags, 0x10u);
    EXPECT_TRUE(cameras_.Journal().Lines().empty());
    EXPECT_TRUE(devices_.Calls().empty());
    EXPECT_TRUE(bus_.Calls().empty());
    Service().OnStop();
}

TEST_F(FDUServiceLife, IgnoresTheArgumentsOfItsStart) {
    wchar_t argument[] = L"-anything";
    wchar_t* arguments[] = {argument};
    Service().OnStart(1, arguments);
    EXPECT_EQ(life_.workItems.size(), 1u);
    Service().OnStop();
}

TEST_F(FDUServiceLife, TracesTheScopeOfItsStart) {
    MadeService().OnStart(0, nullptr);
    EXPECT_EQ(Scopes(), (Strings{"> FDUService::OnStart", "< FDUService::OnStart"}));
    Service().OnStop();
}

TEST_F(FDUServiceLife, RaisesTheErrorOfAWorkItemThatCannotBeQueued) {
    life_.queueError = ERROR_NOT_ENOUGH_QUOTA;
    EXPECT_EQ(CodeRaisedBy([this] { Service().OnStart(0, nullptr); }), 1816u);
    EXPECT_EQ(life_.eventLog.size(), 1u);
}

TEST_F(FDUServiceLife, SleepsASecondAtATimeUntilItIsStopped) {
    Service().OnStart(0, nullptr);
    clock_.After(2500, [this] {
        life_.waitError = ERROR_INVALID_HANDLE;  // only the flag is set here; the item is running already
        try {
            Service().OnStop();
        } catch (const win32::Win32Error&) {
        }
    });
    clock_.After(10000, [] { throw std::logic_error("the work item does not look at the stop flag"); });
    life_.RunWorkItem();
    EXPECT_EQ(clock_.Sleeps(), (std::vector<DWORD>{1000, 1000, 1000}));
}

TEST_F(FDUServiceLife, SetsItsFlagThenWaitsForTheWorkItemThenLeavesCom) {
    Service().OnStart(0, nullptr);
    // The item ends at once because the flag is set before the wait begins.
    clock_.After(10000, [] { throw std::logic_error("the flag is not set"); });
    calls_.clear();
    traces_.Forget();
    std::vector<USHORT> tracedBeforeTheWait;
    life_.report = [&](const std::string& function) {
        calls_.push_back(function);
        tracedBeforeTheWait = TraceNumbers();
    };
    Service().OnStop();
    EXPECT_EQ(Calls(), (Strings{"WaitForSingleObject", "CoUninitialize"}));
    EXPECT_EQ(tracedBeforeTheWait, std::vector<USHORT>{24});
    EXPECT_TRUE(clock_.Sleeps().empty());
    ASSERT_EQ(life_.waits.size(), 1u);
    EXPECT_EQ(life_.waits[0].object, life_.unnamedEvents.at(0));
    EXPECT_EQ(life_.waits[0].milliseconds, 0xFFFFFFFFu);
}

TEST_F(FDUServiceLife, TracesItsStopAsInformation) {
    Service();
    ExpectTracedFrom(4, {24}, [this] {
        Service().OnStart(0, nullptr);
        Service().OnStop();
    });
    EXPECT_TRUE(traces_.Find(kUpdateServiceGroup, 24).at(0).arguments.empty());
}

TEST_F(FDUServiceLife, RaisesTheErrorOfAWaitThatFailsAndStaysInCom) {
    Service().OnStart(0, nullptr);
    life_.waitError = ERROR_INVALID_HANDLE;
    EXPECT_EQ(CodeRaisedBy([this] { Service().OnStop(); }), 6u);
    EXPECT_EQ(com_.uninitialisations, 0);
    life_.RunWorkItem();
}

TEST_F(FDUServiceLife, LeavesComOnceMoreAtItsStopWhenItHadNoPrompt) {
    com_.securityResult = E_FAIL;
    Service().OnStart(0, nullptr);
    Service().OnStop();
    EXPECT_EQ(com_.uninitialisations, 2);
}

TEST_F(FDUServiceLife, TracesTheScopeOfItsEnd) {
    MadeService();
    EndService();
    EXPECT_EQ(Scopes(), (Strings{"> FDUService::~FDUService", "< FDUService::~FDUService"}));
}

TEST_F(FDUServiceLife, LetsGoOfEverythingAtItsEnd) {
    Service();
    ASSERT_EQ(life_.unnamedEvents.size(), 1u);
    EndService();
    EXPECT_EQ(life_.closedUnnamedEvents, life_.unnamedEvents);
    EXPECT_EQ(devices_.ActiveRegistrations(), 0u);
    EXPECT_EQ(toast_.References(), 0u);
    EXPECT_EQ(toast_.ConnectionPointReferences(), 0u);
    EXPECT_EQ(toast_.Happenings(),
              (Strings{"advised", "unadvised 4711", "connection point released", "server released"}));
}

// The toast controller hangs when the connection to it is ended, until the test lets go of it.
class FDUServiceEnd : public FDUServiceLife {
  protected:
    FDUServiceEnd() {
        life_.letsThreadsRunOn = true;
        toast_.whileUnadvised = [this] {
            isUnadvised_.set_value();
            unadvise_.get_future().wait();
        };
    }

    // By the fake clock, which stands still until the call that hangs has begun.
    void EndServiceInFakeTime() {
        clock_.After(1, [this] { isUnadvised_.get_future().wait(); });
        endsFrom_ = clock_.Elapsed();
        service_.reset();
    }
    // Of the time that the end takes.
    [[nodiscard]] ULONGLONG Passed() const { return clock_.Elapsed() - endsFrom_; }
    // Lets go of the controller at last.
    void ExpectAWholeEndAfterTwoSeconds() {
        EXPECT_EQ(clock_.Waits().back(), 2000u);
        EXPECT_EQ(Passed(), 2000u);
        EXPECT_EQ(Scopes(), (Strings{"> FDUService::~FDUService", "< FDUService::~FDUService"}));
        EXPECT_EQ(life_.closedUnnamedEvents, life_.unnamedEvents);
        EXPECT_EQ(devices_.ActiveRegistrations(), 0u);
        // What is given up has its own shares of the controller.
        EXPECT_EQ(toast_.Happenings(), (Strings{"advised", "unadvised 4711"}));
        unadvise_.set_value();
        life_.AwaitThreads();
        EXPECT_EQ(toast_.Happenings(),
                  (Strings{"advised", "unadvised 4711", "server released", "connection point released"}));
    }

  private:
    ULONGLONG endsFrom_ = 0;
    std::promise<void> isUnadvised_;
    std::promise<void> unadvise_;
};

TEST_F(FDUServiceEnd, GivesAControllerThatHangsTwoSeconds) {
    MadeService();
    EndServiceInFakeTime();
    ExpectAWholeEndAfterTwoSeconds();
}

TEST_F(FDUServiceEnd, GivesAControllerThatHangsTwoSecondsAfterItsStop) {
    Service().OnStart(0, nullptr);
    Service().OnStop();
    traces_.Forget();
    EndServiceInFakeTime();
    ExpectAWholeEndAfterTwoSeconds();
}

TEST_F(FDUServiceLife, EndsWithoutHavingStarted) {
    Service();
    EndService();
    EXPECT_EQ(com_.uninitialisations, 0);
    EXPECT_TRUE(life_.waits.empty());
}

}  // namespace
