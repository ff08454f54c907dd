#include <gtest/gtest.h>

#include <windows.h>
#include <cfgmgr32.h>
#include <dbt.h>

#include <atomic>
#include <future>
#include <string>
#include <vector>

#include "lab/rig/bus/InterfaceClasses.h"
#include "lab/rig/service/InterfaceWatchers.h"
#include "tests/lab/rig/RecordedEvents.h"

using namespace lab::rig;

namespace {

class InterfaceWatchersTest : public ::testing::Test {
  protected:
    static CM_NOTIFY_FILTER Filter(const GUID& interfaceClass) {
        CM_NOTIFY_FILTER filter{};
        filter.cbSize = sizeof filter;
        filter.FilterType = CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE;
        filter.u.DeviceInterface.ClassGuid = interfaceClass;
        return filter;
    }

    // Registers a callback for a class.
    void Watch(const GUID& interfaceClass, PCM_NOTIFY_CALLBACK callback, void* context) {
        const auto filter = Filter(interfaceClass);
        ASSERT_EQ(watchers_.Register(&filter, context, callback, &handle_), DWORD{CR_SUCCESS});
    }

    struct Call {
        HCMNOTIFICATION handle;
        CM_NOTIFY_ACTION action;
        CM_NOTIFY_FILTER_TYPE filterType;
        GUID interfaceClass;
        std::wstring link;
        DWORD size;
    };

    static DWORD CALLBACK Note(HCMNOTIFICATION handle, void* context, CM_NOTIFY_ACTION action,
                               CM_NOTIFY_EVENT_DATA* data, DWORD size) {
        static_cast<InterfaceWatchersTest*>(context)->calls_.push_back(
            {handle, action, data->FilterType, data->u.DeviceInterface.ClassGuid,
             data->u.DeviceInterface.SymbolicLink, size});
        return 5;
    }

    RecordedEvents events_;
    InterfaceWatchers watchers_{[this](const nlohmann::json& event) { events_.Add(event); }};
    std::vector<Call> calls_;
    HCMNOTIFICATION handle_ = nullptr;
};

}  // namespace

TEST_F(InterfaceWatchersTest, CallsBackWithTheRecordOfTheEvent) {
    ASSERT_NO_FATAL_FAILURE(Watch(kUsbDeviceClass, &Note, this));
    ASSERT_NE(handle_, nullptr);
    watchers_.Notify({DBT_DEVICEARRIVAL, kUsbDeviceClass, L"a link"});
    watchers_.Notify({DBT_DEVICEREMOVECOMPLETE, kUsbDeviceClass, L"another link"});
    ASSERT_EQ(calls_.size(), 2U);
    EXPECT_EQ(calls_[0].handle, handle_);
    EXPECT_EQ(calls_[0].action, CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL);
    EXPECT_EQ(calls_[0].filterType, CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE);
    EXPECT_TRUE(calls_[0].interfaceClass == kUsbDeviceClass);
    EXPECT_EQ(calls_[0].link, L"a link");
    EXPECT_EQ(calls_[0].size, 24 + 2 * 7U);
    EXPECT_EQ(calls_[1].action, CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL);
    EXPECT_EQ(
        events_.All(),
        (std::vector<nlohmann::json>{
            {{"event", "watch"},
             {"size", 416},
             {"flags", 0},
             {"filter_type", 0},
             {"class", "{A5DCBF10-6530-11D2-901F-00C04FB951ED}"},
             {"registered", true}},
            {{"event", "watch-callback"}, {"action", "arrival"}, {"link", "a link"}, {"result", 5}},
            {{"event", "watch-callback"}, {"action", "removal"}, {"link", "another link"}, {"result", 5}}}));
}

TEST_F(InterfaceWatchersTest, CallsBackOnlyWhoWatchesTheClass) {
    ASSERT_NO_FATAL_FAILURE(Watch(kSensorCameraClass, &Note, this));
    auto all = Filter(GUID{});
    all.Flags = 1;
    HCMNOTIFICATION second = nullptr;
    ASSERT_EQ(watchers_.Register(&all, this, &Note, &second), DWORD{CR_SUCCESS});
    watchers_.Notify({DBT_DEVICEARRIVAL, kUsbDeviceClass, L"link"});
    ASSERT_EQ(calls_.size(), 1U);
    EXPECT_EQ(calls_[0].handle, second);
}

TEST_F(InterfaceWatchersTest, AnEndedRegistrationIsNotCalledBackAndCannotEndTwice) {
    ASSERT_NO_FATAL_FAILURE(Watch(kUsbDeviceClass, &Note, this));
    EXPECT_EQ(watchers_.Unregister(handle_), DWORD{CR_SUCCESS});
    watchers_.Notify({DBT_DEVICEARRIVAL, kUsbDeviceClass, L"link"});
    EXPECT_TRUE(calls_.empty());
    EXPECT_EQ(events_.All().back().at("registered"), false);
    EXPECT_EQ(watchers_.Unregister(handle_), DWORD{CR_INVALID_DATA});
    EXPECT_EQ(watchers_.Unregister(nullptr), DWORD{CR_INVALID_DATA});
}

TEST_F(InterfaceWatchersTest, RefusesWhatTheConfigurationManagerRefuses) {
    auto filter = Filter(kUsbDeviceClass);
    EXPECT_EQ(watchers_.Register(nullptr, this, &Note, &handle_), DWORD{CR_INVALID_POINTER});
    EXPECT_EQ(watchers_.Register(&filter, this, nullptr, &handle_), DWORD{CR_INVALID_POINTER});
    EXPECT_EQ(watchers_.Register(&filter, this, &Note, nullptr), DWORD{CR_INVALID_POINTER});
    filter.cbSize = 32;
    EXPECT_EQ(watchers_.Register(&filter, this, &Note, &handle_), DWORD{CR_INVALID_DATA});
    filter = Filter(kUsbDeviceClass);
    filter.Flags = 8;
    EXPECT_EQ(watchers_.Register(&filter, this, &Note, &handle_), DWORD{CR_INVALID_FLAG});
    filter = Filter(kUsbDeviceClass);
    filter.FilterType = CM_NOTIFY_FILTER_TYPE_DEVICEHANDLE;
    EXPECT_EQ(watchers_.Register(&filter, this, &Note, &handle_), DWORD{CR_CALL_NOT_IMPLEMENTED});
    EXPECT_EQ(handle_, nullptr);
    EXPECT_TRUE(events_.All().empty());
}

namespace {

struct SlowCallback {
    std::promise<void> isIn;
    std::promise<void> mayLeave;
    std::atomic<bool> hasLeft{false};
};

DWORD CALLBACK StayInside(HCMNOTIFICATION, void* context, CM_NOTIFY_ACTION, CM_NOTIFY_EVENT_DATA*, DWORD) {
    auto& slow = *static_cast<SlowCallback*>(context);
    slow.isIn.set_value();
    slow.mayLeave.get_future().wait();
    slow.hasLeft = true;
    return ERROR_SUCCESS;
}

struct SelfEnding {
    InterfaceWatchers& watchers;
    CONFIGRET result = CR_FAILURE;
};

DWORD CALLBACK EndItself(HCMNOTIFICATION handle, void* context, CM_NOTIFY_ACTION, CM_NOTIFY_EVENT_DATA*,
                         DWORD) {
    auto& self = *static_cast<SelfEnding*>(context);
    self.result = self.watchers.Unregister(handle);
    return ERROR_SUCCESS;
}

}  // namespace

// The watcher's owner frees what the callback uses right after it unregistered.
TEST_F(InterfaceWatchersTest, UnregisterWaitsForTheCallbackThatRuns) {
    SlowCallback slow;
    ASSERT_NO_FATAL_FAILURE(Watch(kUsbDeviceClass, &StayInside, &slow));
    auto notify = std::async(std::launch::async, [this] {
        watchers_.Notify({DBT_DEVICEARRIVAL, kUsbDeviceClass, L"link"});
    });
    slow.isIn.get_future().wait();
    auto unregister = std::async(std::launch::async, [&] {
        watchers_.Unregister(handle_);
        return slow.hasLeft.load();
    });
    EXPECT_EQ(unregister.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    slow.mayLeave.set_value();
    EXPECT_TRUE(unregister.get());
    notify.wait();
}

TEST_F(InterfaceWatchersTest, ACallbackCanEndItsOwnRegistration) {
    SelfEnding self{watchers_};
    ASSERT_NO_FATAL_FAILURE(Watch(kUsbDeviceClass, &EndItself, &self));
    watchers_.Notify({DBT_DEVICEARRIVAL, kUsbDeviceClass, L"link"});
    EXPECT_EQ(self.result, DWORD{CR_SUCCESS});
}
