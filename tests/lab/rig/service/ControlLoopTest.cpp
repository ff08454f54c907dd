#include <gtest/gtest.h>

#include <windows.h>
#include <dbt.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "lab/rig/bus/InterfaceClasses.h"
#include "lab/rig/service/ControlLoop.h"
#include "tests/lab/rig/RecordedEvents.h"

using namespace lab::rig;

namespace {

struct Handled {
    DWORD control;
    DWORD type;
    DWORD thread;
    DWORD size;
    DWORD deviceType;
    std::wstring link;
};

// A service's handler that notes what it is handed, and can be held up.
class ControlLoopTest : public ::testing::Test {
  protected:
    ControlLoopTest() { loop_.SetHandler(&Handle, this); }

    ~ControlLoopTest() override {
        gate_.set_value();
        loop_.End();
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    void StartLoop() {
        thread_ = std::thread([this] { loop_.Run(); });
    }

    void RegisterForAllClasses() { loop_.SetNotification({}, DEVICE_NOTIFY_ALL_INTERFACE_CLASSES); }

    static DWORD WINAPI Handle(DWORD control, DWORD type, void* data, void* context) {
        auto& test = *static_cast<ControlLoopTest*>(context);
        Handled handled{control, type, GetCurrentThreadId(), 0, 0, {}};
        if (data != nullptr) {
            const auto* const record = static_cast<const DEV_BROADCAST_DEVICEINTERFACE_W*>(data);
            handled.size = record->dbcc_size;
            handled.deviceType = record->dbcc_devicetype;
            handled.link = record->dbcc_name;
        }
        test.handled_.push_back(handled);
        if (control == kHeldUp) {
            test.isHeldUp_.set_value();
            test.gateOpens_.wait();
        }
        return control + 1000;
    }

    static constexpr DWORD kHeldUp = 200;  // a control whose handling waits for the gate

    RecordedEvents events_;
    std::atomic<unsigned> idle_{0};
    ControlLoop loop_{[this](const nlohmann::json& event) { events_.Add(event); }, [this] { ++idle_; }};
    std::vector<Handled> handled_;  // the loop's thread's until the loop is over or idle
    std::promise<void> isHeldUp_;
    std::promise<void> gate_;
    std::shared_future<void> gateOpens_{gate_.get_future().share()};
    std::thread thread_;
};

}  // namespace

TEST_F(ControlLoopTest, HandsAControlOverOnTheRunningThreadAndGivesItsResult) {
    StartLoop();
    EXPECT_EQ(loop_.Deliver(SERVICE_CONTROL_STOP, 0, nullptr), 1001U);
    ASSERT_EQ(handled_.size(), 1U);
    EXPECT_NE(handled_[0].thread, GetCurrentThreadId());
    ASSERT_TRUE(events_.WaitFor("handled", 1));
    const auto events = events_.All();
    EXPECT_EQ(events[0],
              (nlohmann::json{{"event", "control"}, {"control", 1}, {"thread", handled_[0].thread}}));
    EXPECT_EQ(events[1].at("control"), 1);
    EXPECT_EQ(events[1].at("result"), 1001);
}

TEST_F(ControlLoopTest, HandsADeviceEventOverAsARecordWithItsLink) {
    RegisterForAllClasses();
    StartLoop();
    const std::wstring link =
        LR"(\\?\USB#VID_2F1A&PID_7E01#KV4000001#{a5dcbf10-6530-11d2-901f-00c04fb951ed})";
    loop_.Queue({DBT_DEVICEARRIVAL, kUsbDeviceClass, link});
    ASSERT_TRUE(events_.WaitFor("handled", 1));
    ASSERT_EQ(handled_.size(), 1U);
    EXPECT_EQ(handled_[0].control, DWORD{SERVICE_CONTROL_DEVICEEVENT});
    EXPECT_EQ(handled_[0].type, DWORD{DBT_DEVICEARRIVAL});
    EXPECT_EQ(handled_[0].deviceType, DWORD{DBT_DEVTYP_DEVICEINTERFACE});
    EXPECT_EQ(handled_[0].size, 28 + 2 * (link.size() + 1));
    EXPECT_EQ(handled_[0].link, link);
    EXPECT_EQ(events_.All()[0].at("class"), "{A5DCBF10-6530-11D2-901F-00C04FB951ED}");
}

TEST_F(ControlLoopTest, KnowsTheArrivalThatIsHandled) {
    RegisterForAllClasses();
    std::vector<std::wstring> handled;
    struct Context {
        ControlLoop& loop;
        std::vector<std::wstring>& handled;
    } context{loop_, handled};
    loop_.SetHandler(
        [](DWORD, DWORD, void*, void* given) -> DWORD {
            const auto& [loop, links] = *static_cast<Context*>(given);
            links.push_back(loop.HandledArrival());
            return 0;
        },
        &context);
    loop_.Queue({DBT_DEVICEARRIVAL, kUsbDeviceClass, L"arrives"});
    loop_.Queue({DBT_DEVICEREMOVECOMPLETE, kUsbDeviceClass, L"leaves"});
    loop_.QueueControl(SERVICE_CONTROL_INTERROGATE);
    StartLoop();
    ASSERT_TRUE(events_.WaitFor("handled", 3));
    EXPECT_EQ(handled, (std::vector<std::wstring>{L"arrives", L"", L""}));
}

TEST_F(ControlLoopTest, ARecordIsNeverSmallerThanTheStructure) {
    RegisterForAllClasses();
    StartLoop();
    loop_.Queue({DBT_DEVICEARRIVAL, kUsbDeviceClass, L""});
    ASSERT_TRUE(events_.WaitFor("handled", 1));
    EXPECT_EQ(handled_[0].size, sizeof(DEV_BROADCAST_DEVICEINTERFACE_W));
}

TEST_F(ControlLoopTest, DropsDeviceEventsForWhichTheServiceDidNotRegister) {
    StartLoop();
    loop_.Queue({DBT_DEVICEARRIVAL, kUsbDeviceClass, L"before any registration"});
    DEV_BROADCAST_DEVICEINTERFACE_W filter{};
    filter.dbcc_classguid = kSensorCameraClass;
    loop_.SetNotification(filter, DEVICE_NOTIFY_SERVICE_HANDLE);
    loop_.Queue({DBT_DEVICEARRIVAL, kUsbDeviceClass, L"of another class"});
    loop_.Queue({DBT_DEVICEARRIVAL, kSensorCameraClass, L"of the class"});
    ASSERT_TRUE(events_.WaitFor("handled", 1));
    loop_.Deliver(SERVICE_CONTROL_INTERROGATE, 0, nullptr);
    ASSERT_EQ(handled_.size(), 2U);
    EXPECT_EQ(handled_[0].link, L"of the class");
}

TEST_F(ControlLoopTest, DoesWorkWithTheHandlerOnTheRunningThreadAndRecordsNothing) {
    StartLoop();
    std::promise<bool> isHandling;
    loop_.QueueWork([&](LPHANDLER_FUNCTION_EX handler, void* context) {
        handler(7, 0, nullptr, context);
        isHandling.set_value(loop_.IsHandlingHere());
    });
    EXPECT_TRUE(isHandling.get_future().get());
    loop_.Deliver(SERVICE_CONTROL_INTERROGATE, 0, nullptr);
    ASSERT_EQ(handled_.size(), 2U);
    EXPECT_EQ(handled_[0].control, 7U);
    EXPECT_EQ(handled_[0].thread, handled_[1].thread);
    ASSERT_TRUE(events_.WaitFor("handled", 1));
    EXPECT_EQ(events_.All().size(), 2U);
}

TEST_F(ControlLoopTest, AStopWaitsBehindARunningControl) {
    StartLoop();
    auto first = std::async(std::launch::async, [this] { return loop_.Deliver(kHeldUp, 0, nullptr); });
    isHeldUp_.get_future().wait();
    auto stop =
        std::async(std::launch::async, [this] { return loop_.Deliver(SERVICE_CONTROL_STOP, 0, nullptr); });
    EXPECT_EQ(stop.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    EXPECT_FALSE(loop_.IsIdle());
    EXPECT_EQ(events_.Named("control").size(), 1U);
    gate_.set_value();
    EXPECT_EQ(first.get(), kHeldUp + 1000);
    EXPECT_EQ(stop.get(), 1001U);
    gate_ = {};
}

// The real dispatcher's thread holds a lock while it waits; a status report must be made with that lock in
// hand.
TEST_F(ControlLoopTest, MakesACallOnTheThreadThatWaitsForAControl) {
    StartLoop();
    DWORD waitingThread = 0;
    auto held = std::async(std::launch::async, [&] {
        waitingThread = GetCurrentThreadId();
        return loop_.Deliver(kHeldUp, 0, nullptr);
    });
    isHeldUp_.get_future().wait();
    DWORD callingThread = 0;
    loop_.CallBesideDispatcher([&] {
        callingThread = GetCurrentThreadId();
        SetLastError(ERROR_INVALID_HANDLE);
    });
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(callingThread, waitingThread);
    gate_.set_value();
    EXPECT_EQ(held.get(), kHeldUp + 1000);
    gate_ = {};
}

TEST_F(ControlLoopTest, MakesACallHereWhenNobodyWaits) {
    DWORD callingThread = 0;
    loop_.CallBesideDispatcher([&] { callingThread = GetCurrentThreadId(); });
    EXPECT_EQ(callingThread, GetCurrentThreadId());
}

TEST_F(ControlLoopTest, EndDropsWhatIsQueued) {
    RegisterForAllClasses();
    loop_.Queue({DBT_DEVICEARRIVAL, kUsbDeviceClass, L"late"});
    EXPECT_FALSE(loop_.IsIdle());
    loop_.End();
    loop_.Run();
    EXPECT_TRUE(handled_.empty());
    EXPECT_TRUE(loop_.IsIdle());
    EXPECT_EQ(idle_, 1U);
    EXPECT_EQ(loop_.Deliver(SERVICE_CONTROL_STOP, 0, nullptr), DWORD{ERROR_SERVICE_NOT_ACTIVE});
    loop_.Queue({DBT_DEVICEARRIVAL, kUsbDeviceClass, L"too late"});
    EXPECT_TRUE(loop_.IsIdle());
}

TEST_F(ControlLoopTest, QueuesAControlWithoutWaitingForIt) {
    StartLoop();
    loop_.QueueControl(SERVICE_CONTROL_SHUTDOWN);
    ASSERT_TRUE(events_.WaitFor("handled", 1));
    EXPECT_EQ(handled_[0].control, DWORD{SERVICE_CONTROL_SHUTDOWN});
}

TEST(ControlLoopHandling, IsKnownToTheThreadThatHandlesAndToldBeforeAndAfter) {
    struct Seen {
        ControlLoop* loop = nullptr;
        std::vector<std::string> order;
    } seen;
    ControlLoop loop([](const nlohmann::json&) {}, [] {},
                     [&](bool isHandling) { seen.order.push_back(isHandling ? "begins" : "ends"); });
    seen.loop = &loop;
    loop.SetHandler(
        [](DWORD, DWORD, void*, void* context) -> DWORD {
            auto& test = *static_cast<Seen*>(context);
            test.order.push_back(test.loop->IsHandlingHere() ? "here" : "elsewhere");
            return 0;
        },
        &seen);
    std::thread thread([&] { loop.Run(); });
    EXPECT_EQ(loop.Deliver(SERVICE_CONTROL_INTERROGATE, 0, nullptr), 0U);
    EXPECT_FALSE(loop.IsHandlingHere());
    loop.End();
    thread.join();
    EXPECT_EQ(seen.order, (std::vector<std::string>{"begins", "here", "ends"}));
}

namespace {

// A loop whose clock is moved by its handler, as skipped waits move that of the laboratory.
class LateControlTest : public ::testing::Test {
  protected:
    LateControlTest() { loop_.SetHandler(&Handle, this); }

    static DWORD WINAPI Handle(DWORD, DWORD, void*, void* context) {
        auto& test = *static_cast<LateControlTest*>(context);
        test.onHandling_();
        return 0;
    }

    // Hands over what is queued, and ends the loop with it.
    void Run() {
        std::thread thread([this] { loop_.Run(); });
        EXPECT_TRUE(events_.WaitFor("handled", queued_));
        loop_.End();
        thread.join();
    }

    void Queue(DWORD control) {
        loop_.QueueControl(control);
        ++queued_;
    }

    RecordedEvents events_;
    std::atomic<std::uint64_t> nowMs_{1'000'000};
    ControlLoop loop_{[this](const nlohmann::json& event) { events_.Add(event); }, [] {}, [](bool) {},
                      [this] { return nowMs_.load(); }};
    std::function<void()> onHandling_;
    std::size_t queued_ = 0;
};

}  // namespace

TEST_F(LateControlTest, AHandlerThatTakesThirtySecondsIsInTime) {
    onHandling_ = [this] { nowMs_ += 30'000; };
    Queue(SERVICE_CONTROL_INTERROGATE);
    Run();
    EXPECT_TRUE(events_.Named("late-control").empty());
}

TEST_F(LateControlTest, ALongerOneIsTold) {
    onHandling_ = [this] { nowMs_ += 30'001; };
    Queue(SERVICE_CONTROL_INTERROGATE);
    Run();
    EXPECT_EQ(events_.All().back(),
              (nlohmann::json{{"event", "late-control"},
                              {"control", SERVICE_CONTROL_INTERROGATE},
                              {"ms", 30'001},
                              {"id", 7011},
                              {"text",
                               "A timeout (30000 milliseconds) was reached while waiting for a "
                               "transaction response from the service."},
                              {"refused", nlohmann::json::array({SERVICE_CONTROL_INTERROGATE})},
                              {"error", 1053}}));
}

// A control's sender waits 30 s for its turn. A device event is nobody's who could be told.
TEST_F(LateControlTest, TellsWhichControlsWaitedAsLong) {
    loop_.SetNotification({}, DEVICE_NOTIFY_ALL_INTERFACE_CLASSES);
    bool isFirst = true;
    onHandling_ = [&] {
        if (std::exchange(isFirst, false)) {
            loop_.Queue({DBT_DEVICEARRIVAL, kUsbDeviceClass, L"any"});
            loop_.QueueControl(SERVICE_CONTROL_PAUSE);
            nowMs_ += 1'000;
            loop_.QueueControl(SERVICE_CONTROL_CONTINUE);
            nowMs_ += 30'000;
        }
    };
    Queue(SERVICE_CONTROL_INTERROGATE);
    queued_ += 3;  // what the handler queues
    Run();
    const auto late = events_.Named("late-control");
    ASSERT_EQ(late.size(), 1U);
    EXPECT_EQ(late[0].at("refused"),
              nlohmann::json::array({SERVICE_CONTROL_INTERROGATE, SERVICE_CONTROL_PAUSE}));
}

TEST_F(LateControlTest, ARefusedControlIsToldOnce) {
    onHandling_ = [this] { nowMs_ += 31'000; };
    Queue(SERVICE_CONTROL_INTERROGATE);
    Queue(SERVICE_CONTROL_PAUSE);
    Queue(SERVICE_CONTROL_CONTINUE);
    Run();
    const auto late = events_.Named("late-control");
    ASSERT_EQ(late.size(), 3U);
    EXPECT_EQ(late[0].at("refused"),
              nlohmann::json::array(
                  {SERVICE_CONTROL_INTERROGATE, SERVICE_CONTROL_PAUSE, SERVICE_CONTROL_CONTINUE}));
    EXPECT_EQ(late[1].at("refused"), nlohmann::json::array());
}
