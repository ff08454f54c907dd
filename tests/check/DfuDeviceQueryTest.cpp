#include "check/DfuDeviceQuery.h"

#include "dfu/WinUsbDfuConnection.h"
#include "discovery/DeviceInterfaceWatcher.h"
#include "tests/support/FakeConfigurationManager.h"
#include "tests/support/FakeUsbBus.h"
#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using check::DfuDevicesState;
using check::QueryDfuDevices;
using test_support::FakeConfigurationManager;
using test_support::FakeUsbBus;
using test_support::FakeUsbDevice;
using test_support::ImportRedirect;

const std::wstring kLink = L"\\\\?\\usb#vid_2f1a&pid_7e01#kv4000001#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
const std::wstring kUpperLink =
    L"\\\\?\\USB#VID_2F1A&PID_7E02#KV4000001#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";

// The service, as the service control manager tells of it: its state, or that it is not there.
class FakeServiceState : public test_support::OnlyOne<FakeServiceState> {
  public:
    DWORD openError = ERROR_SUCCESS;
    DWORD state = SERVICE_STOPPED;

  private:
    static SC_HANDLE WINAPI Manager(const wchar_t*, const wchar_t*, DWORD) { return Handle(); }
    static SC_HANDLE WINAPI Open(SC_HANDLE, const wchar_t* name, DWORD) {
        EXPECT_STREQ(name, L"VeyraCameraDfuService");
        SetLastError(current_->openError);
        return current_->openError == ERROR_SUCCESS ? Handle() : nullptr;
    }
    static BOOL WINAPI Query(SC_HANDLE, SC_STATUS_TYPE, BYTE* block, DWORD, DWORD*) {
        reinterpret_cast<SERVICE_STATUS_PROCESS*>(block)->dwCurrentState = current_->state;
        return TRUE;
    }
    static BOOL WINAPI Close(SC_HANDLE) { return TRUE; }
    static SC_HANDLE Handle() { return reinterpret_cast<SC_HANDLE>(current_); }

    ImportRedirect manager_{"OpenSCManagerW", &Manager};
    ImportRedirect open_{"OpenServiceW", &Open};
    ImportRedirect query_{"QueryServiceStatusEx", &Query};
    ImportRedirect close_{"CloseServiceHandle", &Close};
};

class DfuDeviceQueryTest : public ::testing::Test {
  protected:
    DfuDevicesState QueryWith(const std::wstring& link) {
        configurationManager_.SetPresent({L"\\\\?\\usb#vid_1234&pid_7e01#1", link});
        return QueryDfuDevices();
    }
    [[nodiscard]] bool HasCalled(const std::string& function) const {
        const auto& calls = bus_.Calls();
        return std::any_of(calls.begin(), calls.end(),
                           [&function](const std::string& call) { return call.starts_with(function); });
    }

    FakeConfigurationManager configurationManager_;
    FakeUsbBus bus_;
    FakeServiceState service_;
};

class DfuDeviceQueryBesideTheService : public DfuDeviceQueryTest,
                                       public ::testing::WithParamInterface<DWORD> {};

}  // namespace

TEST_F(DfuDeviceQueryTest, FindsNoneAmongOthersDevices) {
    configurationManager_.SetPresent({L"\\\\?\\usb#vid_2f1a&pid_7e00#1"});
    EXPECT_TRUE(QueryDfuDevices().devices.empty());
    configurationManager_.SetPresent({});
    EXPECT_TRUE(QueryDfuDevices().devices.empty());
}

TEST_F(DfuDeviceQueryTest, OpensItWhileTheServiceIsStopped) {
    bus_.Add(kLink, 2048);
    const auto state = QueryWith(kLink);
    ASSERT_EQ(state.devices.size(), 1U);
    EXPECT_TRUE(state.devices.front().wasTried);
    EXPECT_TRUE(state.devices.front().opens);
    EXPECT_EQ(state.devices.front().transferSize, 2048);
    EXPECT_EQ(state.devices.front().failedStep, "");
}

TEST_F(DfuDeviceQueryTest, OpensItWhereThereIsNoService) {
    bus_.Add(kLink);
    service_.openError = ERROR_SERVICE_DOES_NOT_EXIST;
    EXPECT_TRUE(QueryWith(kLink).devices.front().opens);
}

TEST_F(DfuDeviceQueryTest, LeavesItAloneWhenTheServiceCannotBeAskedFor) {
    bus_.Add(kLink);
    service_.openError = ERROR_ACCESS_DENIED;
    EXPECT_FALSE(QueryWith(kLink).devices.front().wasTried);
    EXPECT_FALSE(HasCalled("CreateFileW"));
}

TEST_P(DfuDeviceQueryBesideTheService, IsLeftAlone) {
    bus_.Add(kLink);
    service_.state = GetParam();
    const auto state = QueryWith(kLink);
    ASSERT_EQ(state.devices.size(), 1U);
    EXPECT_FALSE(state.devices.front().wasTried);
    EXPECT_TRUE(bus_.Calls().empty());
}

INSTANTIATE_TEST_SUITE_P(EachState, DfuDeviceQueryBesideTheService,
                         ::testing::Values(SERVICE_START_PENDING, SERVICE_STOP_PENDING, SERVICE_RUNNING,
                                           SERVICE_CONTINUE_PENDING, SERVICE_PAUSE_PENDING, SERVICE_PAUSED));

TEST_F(DfuDeviceQueryTest, SelectsNoAlternateSettingAndSendsNoRequest) {
    bus_.Add(kLink);
    EXPECT_TRUE(QueryWith(kLink).devices.front().opens);
    EXPECT_FALSE(HasCalled("WinUsb_SetCurrentAlternateSetting"));
    EXPECT_FALSE(HasCalled("WinUsb_ControlTransfer"));
    EXPECT_TRUE(HasCalled("WinUsb_Free"));
    EXPECT_TRUE(configurationManager_.Registrations().empty());
}

TEST_F(DfuDeviceQueryTest, FoldsTheLinkAsTheServiceDoes) {
    bus_.Add(ToLowerCopy(kUpperLink));
    const auto state = QueryWith(kUpperLink);
    ASSERT_EQ(state.devices.size(), 1U);
    EXPECT_TRUE(state.devices.front().opens);
}

TEST_F(DfuDeviceQueryTest, TellsTheStepThatFails) {
    const auto failing = [this](const char* function, DWORD error) {
        bus_.Fail(function, error);
        const auto state = QueryWith(kLink);
        return state.devices.front().failedStep + " " + std::to_string(state.devices.front().error);
    };
    bus_.Add(kLink);
    EXPECT_EQ(failing("CreateFileW", ERROR_ACCESS_DENIED), "opening it 5");
    EXPECT_EQ(failing("WinUsb_Initialize", ERROR_INVALID_FUNCTION), "taking it with WinUSB 1");
    EXPECT_EQ(failing("WinUsb_GetDescriptor", ERROR_GEN_FAILURE), "reading its device descriptor 31");
    bus_.Remove(kLink);
    EXPECT_EQ(QueryWith(kLink).devices.front().failedStep, "opening it");
}

// Whoever opens for this program opens for the service: no step is left out but the setting.
TEST_F(DfuDeviceQueryTest, TakesTheStepsOfTheServicesConnection) {
    bus_.Add(kLink);
    EXPECT_TRUE(WinUsbDfuConnection(kLink).IsOpened());
    EXPECT_TRUE(HasCalled("WinUsb_SetCurrentAlternateSetting"));
    EXPECT_TRUE(QueryWith(kLink).devices.front().opens);
}

TEST_F(DfuDeviceQueryTest, TellsThatWindowsDoesNotList) {
    configurationManager_.AnswerListQueriesWith(CR_FAILURE);
    EXPECT_EQ(QueryDfuDevices().error, 0x13U);
    // The service's own watcher knows of no failure.
    DeviceInterfaceWatcher watcher(L"check test", L"vid_2f1a", L"pid_7e01");
    watcher.Refresh();
}
