#include "service/KeepAlive.h"

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"
#include "tests/support/Patience.h"
#include "win32/Win32Error.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

// Listens to the calls with which a KeepAlive is made, run and ended. They reach Windows, or fail with the
// error that is set; a queued work item is kept for the test to run; a sleep takes no time.
class KeepAliveCalls : public test_support::OnlyOne<KeepAliveCalls> {
  public:
    struct Event {
        bool hasSecurity;
        BOOL manualReset;
        BOOL initialState;
        bool hasName;
        HANDLE handle;
    };
    struct Item {
        LPTHREAD_START_ROUTINE function;
        void* context;
        ULONG flags;
    };
    struct Wait {
        HANDLE object;
        DWORD milliseconds;
    };

    KeepAliveCalls()
        : createEvent_("CreateEventW", OnCreateEvent),
          queueWorkItem_("QueueUserWorkItem", OnQueueWorkItem),
          waitForSingleObject_("WaitForSingleObject", OnWait),
          closeHandle_("CloseHandle", OnCloseHandle),
          sleep_("Sleep", OnSleep) {}

    DWORD createEventError = ERROR_SUCCESS;
    DWORD queueError = ERROR_SUCCESS;
    DWORD waitError = ERROR_SUCCESS;
    bool queueForReal = false;
    std::function<void()> onSleep;

    std::vector<Event> events;
    std::vector<Item> items;
    std::vector<Wait> waits;
    std::vector<HANDLE> closed;
    std::vector<DWORD> sleeps;

    // Whether the event is signalled, without the redirected wait.
    [[nodiscard]] bool IsSignalled(HANDLE event) const {
        return waitForSingleObject_.Original<decltype(::WaitForSingleObject)>()(event, 0) == WAIT_OBJECT_0;
    }

  private:
    static HANDLE WINAPI OnCreateEvent(SECURITY_ATTRIBUTES* security, BOOL manualReset, BOOL initialState,
                                       const wchar_t* name) {
        HANDLE handle = nullptr;
        if (current_->createEventError == ERROR_SUCCESS) {
            handle = current_->createEvent_.Original<decltype(::CreateEventW)>()(security, manualReset,
                                                                                 initialState, name);
        }
        current_->events.push_back({security != nullptr, manualReset, initialState, name != nullptr, handle});
        SetLastError(current_->createEventError);
        return handle;
    }

    static BOOL WINAPI OnQueueWorkItem(LPTHREAD_START_ROUTINE function, void* context, ULONG flags) {
        current_->items.push_back({function, context, flags});
        if (current_->queueError != ERROR_SUCCESS) {
            SetLastError(current_->queueError);
            return FALSE;
        }
        return current_->queueForReal ? current_->queueWorkItem_.Original<decltype(::QueueUserWorkItem)>()(
                                            function, context, flags)
                                      : TRUE;
    }

    // The thread library waits and closes handles too, also on a thread of an earlier test that ends only
    // now.
    [[nodiscard]] bool IsOwnThread() const { return GetCurrentThreadId() == ownThread_; }

    static DWORD WINAPI OnWait(HANDLE object, DWORD milliseconds) {
        if (current_->IsOwnThread()) {
            current_->waits.push_back({object, milliseconds});
        }
        if (current_->waitError != ERROR_SUCCESS) {
            SetLastError(current_->waitError);
            return WAIT_FAILED;
        }
        // What would wait for ever fails its test instead.
        const DWORD limit =
            current_->IsOwnThread() ? std::min(milliseconds, test_support::kPatienceMs) : milliseconds;
        return current_->waitForSingleObject_.Original<decltype(::WaitForSingleObject)>()(object, limit);
    }

    static BOOL WINAPI OnCloseHandle(HANDLE handle) {
        if (current_->IsOwnThread()) {
            current_->closed.push_back(handle);
        }
        return current_->closeHandle_.Original<decltype(::CloseHandle)>()(handle);
    }

    static void WINAPI OnSleep(DWORD milliseconds) {
        if (milliseconds == 0) {
            SwitchToThread();  // the thread library yields in this way
            return;
        }
        current_->sleeps.push_back(milliseconds);
        if (current_->IsOwnThread() && current_->sleeps.size() > kMostSleeps) {
            throw std::runtime_error("the work item does not end");
        }
        if (current_->onSleep) {
            current_->onSleep();
        }
    }

    static constexpr std::size_t kMostSleeps = 1000;

    DWORD ownThread_ = GetCurrentThreadId();
    test_support::ImportRedirect createEvent_;
    test_support::ImportRedirect queueWorkItem_;
    test_support::ImportRedirect waitForSingleObject_;
    test_support::ImportRedirect closeHandle_;
    test_support::ImportRedirect sleep_;
};

// Two threads that keep the processors busy, so that a test's own threads are interrupted at changing places.
class BackgroundLoad {
  public:
    BackgroundLoad() = default;
    ~BackgroundLoad() {
        isOver_ = true;
        first_.join();
        second_.join();
    }

    BackgroundLoad(const BackgroundLoad&) = delete;
    BackgroundLoad& operator=(const BackgroundLoad&) = delete;

  private:
    void Work() {
        while (!isOver_) {
            for (int step = 0; step < 1000; ++step) {
                ++steps_;
            }
            SwitchToThread();
        }
    }

    std::atomic<bool> isOver_{false};
    std::atomic<unsigned> steps_{0};
    std::thread first_{[this] { Work(); }};
    std::thread second_{[this] { Work(); }};
};

class KeepAliveTest : public testing::Test {
  protected:
    // The code of the error-code exception that `action` raises; -1 when it raises none.
    static long long CodeRaisedBy(const std::function<void()>& action) {
        try {
            action();
        } catch (const win32::Win32Error& error) {
            return error.Code();
        }
        return -1;
    }

    static void YieldUntil(const std::function<bool()>& condition) {
        const ULONGLONG start = GetTickCount64();
        while (!condition()) {
            ASSERT_LT(GetTickCount64() - start, test_support::kPatienceMs);
            SwitchToThread();
        }
    }

    // Runs the queued work item on this thread.
    DWORD RunItem() {
        const auto item = calls_.items.at(0);
        return item.function(item.context);
    }

    KeepAliveCalls calls_;
};

TEST_F(KeepAliveTest, MakesAnUnnamedManualResetEventThatIsNotSignalled) {
    const KeepAlive keepAlive;
    ASSERT_EQ(calls_.events.size(), 1U);
    const auto& event = calls_.events[0];
    EXPECT_FALSE(event.hasSecurity);
    EXPECT_EQ(event.manualReset, TRUE);
    EXPECT_EQ(event.initialState, FALSE);
    EXPECT_FALSE(event.hasName);
}

TEST_F(KeepAliveTest, RaisesTheErrorWhenItsEventCannotBeMade) {
    calls_.createEventError = 1450;
    EXPECT_EQ(CodeRaisedBy([] { const KeepAlive keepAlive; }), 1450);
    EXPECT_TRUE(calls_.closed.empty());
}

TEST_F(KeepAliveTest, ClosesItsEventOnce) {
    { const KeepAlive keepAlive; }
    EXPECT_EQ(calls_.closed, std::vector<HANDLE>{calls_.events.at(0).handle});
}

TEST_F(KeepAliveTest, QueuesOneLongWorkItem) {
    const auto keepAlive = std::make_shared<KeepAlive>();
    KeepAlive::Start(keepAlive);
    ASSERT_EQ(calls_.items.size(), 1U);
    EXPECT_EQ(calls_.items[0].flags, 0x10U);
    ASSERT_EQ(keepAlive.use_count(), 2) << "the item has a share of its own";
    EXPECT_TRUE(calls_.sleeps.empty());  // nothing of it runs on the caller's thread
    keepAlive->RequestStop();
    RunItem();
}

TEST_F(KeepAliveTest, RaisesTheErrorWhenTheWorkItemCannotBeQueued) {
    const auto keepAlive = std::make_shared<KeepAlive>();
    calls_.queueError = 1816;
    EXPECT_EQ(CodeRaisedBy([&] { KeepAlive::Start(keepAlive); }), 1816);
    EXPECT_EQ(keepAlive.use_count(), 1);
}

TEST_F(KeepAliveTest, LooksAtTheStopFlagOnceASecond) {
    const auto keepAlive = std::make_shared<KeepAlive>();
    const HANDLE event = calls_.events.at(0).handle;
    KeepAlive::Start(keepAlive);
    bool signalledEarly = false;
    calls_.onSleep = [&] {
        signalledEarly = signalledEarly || calls_.IsSignalled(event);
        if (calls_.sleeps.size() == 3) {
            keepAlive->RequestStop();
        }
    };
    EXPECT_EQ(RunItem(), 0U);
    EXPECT_EQ(calls_.sleeps, (std::vector<DWORD>{1000, 1000, 1000}));
    EXPECT_FALSE(signalledEarly);
    EXPECT_TRUE(calls_.IsSignalled(event));
}

TEST_F(KeepAliveTest, EndsWithoutASleepWhenStopWasRequestedBefore) {
    const auto keepAlive = std::make_shared<KeepAlive>();
    keepAlive->RequestStop();
    KeepAlive::Start(keepAlive);
    EXPECT_EQ(RunItem(), 0U);
    EXPECT_TRUE(calls_.sleeps.empty());
    EXPECT_TRUE(calls_.IsSignalled(calls_.events.at(0).handle));
}

TEST_F(KeepAliveTest, IsNotFinishedByTheRequestAlone) {
    KeepAlive keepAlive;
    keepAlive.RequestStop();
    EXPECT_FALSE(calls_.IsSignalled(calls_.events.at(0).handle));
}

TEST_F(KeepAliveTest, WaitsForTheWorkItemWithoutATimeOut) {
    const auto keepAlive = std::make_shared<KeepAlive>();
    keepAlive->RequestStop();
    KeepAlive::Start(keepAlive);
    RunItem();
    keepAlive->WaitUntilFinished();
    ASSERT_EQ(calls_.waits.size(), 1U);
    EXPECT_EQ(calls_.waits[0].object, calls_.events.at(0).handle);
    EXPECT_EQ(calls_.waits[0].milliseconds, 0xFFFFFFFFU);
}

TEST_F(KeepAliveTest, StaysFinished) {
    const auto keepAlive = std::make_shared<KeepAlive>();
    keepAlive->RequestStop();
    KeepAlive::Start(keepAlive);
    RunItem();
    keepAlive->WaitUntilFinished();
    EXPECT_TRUE(calls_.IsSignalled(calls_.events.at(0).handle));
}

TEST_F(KeepAliveTest, RaisesTheErrorWhenTheWaitFails) {
    const KeepAlive keepAlive;
    calls_.waitError = 6;
    EXPECT_EQ(CodeRaisedBy([&] { keepAlive.WaitUntilFinished(); }), 6);
}

// The service may be gone before the work item's last second is over.
TEST_F(KeepAliveTest, LivesAsLongAsItsWorkItem) {
    auto keepAlive = std::make_shared<KeepAlive>();
    const HANDLE event = calls_.events.at(0).handle;
    const std::weak_ptr<KeepAlive> watched = keepAlive;
    KeepAlive::Start(keepAlive);
    bool closedEarly = false;
    calls_.onSleep = [&] {
        keepAlive->RequestStop();
        keepAlive.reset();
        closedEarly = watched.expired() || !calls_.closed.empty();
    };
    RunItem();
    EXPECT_FALSE(closedEarly);
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(calls_.closed, std::vector<HANDLE>{event});
}

// Here the item runs in the real thread pool, and only its sleep takes no time.
TEST_F(KeepAliveTest, EndsInTheThreadPoolWhenAnotherThreadRequestsTheStop) {
    calls_.queueForReal = true;
    std::atomic<bool> hasSlept = false;
    calls_.onSleep = [&] { hasSlept = true; };
    const auto keepAlive = std::make_shared<KeepAlive>();
    KeepAlive::Start(keepAlive);
    YieldUntil([&] { return hasSlept.load(); });
    keepAlive->RequestStop();
    keepAlive->WaitUntilFinished();
    YieldUntil([&] { return keepAlive.use_count() == 1; });  // the item has let go
}

// Wherever the item is when the stop comes: not begun, about to look, or asleep.
TEST_F(KeepAliveTest, EndsAtEveryStopWhereverTheItemIs) {
    constexpr int kStops = 500;
    calls_.queueForReal = true;
    calls_.onSleep = [] { SwitchToThread(); };
    const BackgroundLoad load;
    for (int stop = 0; stop < kStops; ++stop) {
        const auto keepAlive = std::make_shared<KeepAlive>();
        KeepAlive::Start(keepAlive);
        for (int pause = 0; pause < stop % 4; ++pause) {
            SwitchToThread();
        }
        keepAlive->RequestStop();
        keepAlive->WaitUntilFinished();
        ASSERT_TRUE(calls_.IsSignalled(calls_.events.back().handle)) << "stop " << stop;
        ASSERT_NO_FATAL_FAILURE(YieldUntil([&] { return keepAlive.use_count() == 1; })) << "stop " << stop;
    }
    EXPECT_EQ(calls_.items.size(), static_cast<std::size_t>(kStops));
}

}  // namespace
