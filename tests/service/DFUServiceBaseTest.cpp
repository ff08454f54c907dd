#include "service/DFUServiceBase.h"

#include "diagnostics/TraceProvider.h"
#include "tests/service/FakeServiceHost.h"
#include "tests/support/FakeClock.h"
#include "tests/support/ImportRedirect.h"
#include "tests/support/TraceRecorder.h"
#include "win32/Win32Error.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using test_support::kServiceBaseGroup;
using Lines = std::vector<std::string>;

constexpr GUID kSensorCamera{0x24E552D7, 0x6523, 0x47F7, {0xA6, 0x47, 0xD3, 0x46, 0x5B, 0xF1, 0xF5, 0xCA}};
constexpr GUID kVideoCamera{0xE5323777, 0xF976, 0x4F5B, {0x9B, 0x55, 0xB9, 0x46, 0x99, 0xC4, 0x6E, 0x44}};
constexpr GUID kUsbDevice{0xA5DCBF10, 0x6530, 0x11D2, {0x90, 0x1F, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xED}};
constexpr GUID kSomeClass{0x884B96C3, 0x56EF, 0x11D1, {0xBC, 0x8C, 0x00, 0xA0, 0xC9, 0x14, 0x05, 0xDD}};

constexpr const char* kSensorCameraText = "debug \"{24E552D7-6523-47F7-A647-D3465BF1F5CA}\"";
constexpr const char* kVideoCameraText = "debug \"{E5323777-F976-4F5B-9B55-B94699C46E44}\"";
constexpr const char* kUsbDeviceText = "debug \"{A5DCBF10-6530-11D2-901F-00C04FB951ED}\"";
constexpr const char* kEventText = "debug \"SERVICE_CONTROL_DEVICEEVENT\"";
constexpr const char* kFormat = "StringFromCLSID";
constexpr const char* kFree = "CoTaskMemFree(class text)";
constexpr const char* kScan =
    "monitor scans "
    "SYSTEM\\CurrentControlSet\\Control\\DeviceClasses\\{24e552d7-6523-47f7-a647-d3465bf1f5ca}";

// A report, as the host shows it.
std::string Status(DWORD state, DWORD exitCode, const char* checkPoint, const char* handle = "handle") {
    return std::string("status of ") + handle + ": type 16, state " + std::to_string(state) +
           ", accepts 5, exit " + std::to_string(exitCode) + ", specific 0, check-point " + checkPoint +
           ", hint 0";
}

// Records its operations; each first does what the test sets.
class RecordingService : public DFUServiceBase {
  public:
    explicit RecordingService(FakeServiceHost& host)
        : DFUServiceBase(L"VeyraCameraDfuService", [&host] { host.Record("stop requested"); }), host_(host) {}
    ~RecordingService() override { host_.Record("destroyed"); }

    std::function<void()> onOperation;
    HRESULT passResult = S_OK;
    DWORD startArgc = 0;
    wchar_t** startArgv = nullptr;
    const DEV_BROADCAST_DEVICEINTERFACE_W* broadcast = nullptr;

    void OnStart(DWORD argc, wchar_t** argv) override {
        startArgc = argc;
        startArgv = argv;
        Operation("OnStart");
    }
    void OnStop() override { Operation("OnStop"); }
    void OnPause() override { Operation("OnPause"); }
    void OnContinue() override { Operation("OnContinue"); }
    void OnShutdown() override { Operation("OnShutdown"); }
    HRESULT OnUsbDeviceArrival() override {
        Operation("OnUsbDeviceArrival");
        return passResult;
    }
    HRESULT OnCameraArrival(const DEV_BROADCAST_DEVICEINTERFACE_W& record) override {
        broadcast = &record;
        Operation("OnCameraArrival");
        return passResult;
    }

  private:
    void Operation(const char* name) {
        host_.Record(name);
        if (onOperation) {
            onOperation();
        }
    }

    FakeServiceHost& host_;
};

// Has only what a concrete service must have.
class PlainService : public DFUServiceBase {
  public:
    PlainService() : DFUServiceBase(L"Plain", [] {}) {}

    HRESULT OnUsbDeviceArrival() override { return S_OK; }
    HRESULT OnCameraArrival(const DEV_BROADCAST_DEVICEINTERFACE_W&) override { return S_OK; }
};

void RaiseCode() {
    throw win32::Win32Error(1450);
}

void RaiseText() {
    throw std::runtime_error("broken");
}

void RaiseNumber() {
    throw 5;
}

class DFUServiceBaseTest : public testing::Test {
  protected:
    DFUServiceBaseTest() {
        TraceProvider::Register();
        LearnCheckPoint();
        DFUServiceBase::SetInstance(&service_);
        host_.Forget();
    }
    ~DFUServiceBaseTest() override { DFUServiceBase::SetInstance(nullptr); }

    // Starts the service through its entry, and forgets how it came up.
    void StartService() {
        DFUServiceBase::ServiceMain(0, nullptr);
        LearnCheckPoint();
        service_.ReportStatus(SERVICE_RUNNING, NO_ERROR);
        host_.Forget();
    }

    DWORD Control(DWORD control, DWORD eventType = 0, void* eventData = nullptr) {
        return DFUServiceBase::ServiceCtrlHandler(control, eventType, eventData, &service_);
    }
    DWORD DeviceEvent(DWORD eventType, const GUID& interfaceClass) {
        DEV_BROADCAST_DEVICEINTERFACE_W broadcast{};
        broadcast.dbcc_size = sizeof broadcast;
        broadcast.dbcc_devicetype = 5;
        broadcast.dbcc_classguid = interfaceClass;
        return Control(11, eventType, &broadcast);
    }

    // The monitor's sleeps: the library, when it starts a thread, yields with sleeps of 0 ms.
    [[nodiscard]] std::vector<DWORD> MonitorSleeps() const {
        std::vector<DWORD> sleeps = clock_.Sleeps();
        std::erase(sleeps, 0U);
        return sleeps;
    }

    test_support::FakeClock clock_;
    test_support::TraceRecorder traces_;
    FakeServiceHost host_;
    RecordingService service_{host_};

  private:
    // Everything in a process shares the numbering: finds out how far it is.
    void LearnCheckPoint() {
        service_.ReportStatus(SERVICE_PAUSED, NO_ERROR);
        host_.SetCheckPointBase(host_.LastStatus().dwCheckPoint);
    }
};

// A field of the frame, by its place.
template <typename Field>
Field ReadAt(const DFUServiceBase& service, std::size_t offset) {
    Field field{};
    std::memcpy(&field, reinterpret_cast<const char*>(&service) + offset, sizeof field);
    return field;
}

TEST_F(DFUServiceBaseTest, KeepsItsFieldsInOrder) {
    const PlainService service;
    EXPECT_EQ(ReadAt<const wchar_t*>(service, 8), service.Name());
    const std::array<DWORD, 7> initialStatus{0x10, 2, 5, 0, 0, 0, 0};
    EXPECT_EQ((ReadAt<std::array<DWORD, 7>>(service, 16)), initialStatus);
    EXPECT_EQ(ReadAt<void*>(service, 48), nullptr);
    EXPECT_EQ(ReadAt<void*>(service, 56), nullptr);
    EXPECT_EQ(sizeof(DFUServiceBase), 64 + sizeof(CUninstallMonitor));
}

TEST_F(DFUServiceBaseTest, KeepsTheHandlesOfItsRegistrations) {
    DFUServiceBase::ServiceMain(0, nullptr);
    EXPECT_NE(ReadAt<void*>(service_, 48), nullptr);
    EXPECT_NE(ReadAt<void*>(service_, 56), nullptr);
    EXPECT_NE(ReadAt<void*>(service_, 48), ReadAt<void*>(service_, 56));
}

// The slots of the operation table, behind the two of the destructor.
TEST_F(DFUServiceBaseTest, KeepsItsOperationsInOrder) {
    using Operation = void (*)(DFUServiceBase*, const void*, const void*);
    const auto* const slots = ReadAt<const Operation*>(service_, 0);
    const DEV_BROADCAST_DEVICEINTERFACE_W broadcast{};
    for (std::size_t slot = 2; slot <= 8; ++slot) {
        slots[slot](&service_, &broadcast, nullptr);
    }
    EXPECT_EQ(host_.Lines(), (Lines{"OnStart", "OnStop", "OnPause", "OnContinue", "OnShutdown",
                                    "OnUsbDeviceArrival", "OnCameraArrival"}));
}

TEST_F(DFUServiceBaseTest, IsDestroyedThroughItsBase) {
    std::unique_ptr<DFUServiceBase> service = std::make_unique<RecordingService>(host_);
    host_.Forget();
    service.reset();
    EXPECT_EQ(host_.Lines(), Lines{"destroyed"});
}

TEST_F(DFUServiceBaseTest, KnowsItsName) {
    EXPECT_STREQ(service_.Name(), L"VeyraCameraDfuService");
}

// The one counter of the process can be seen at its start in a new process only.
TEST(DFUServiceBaseDeathTest, CountsCheckPointsFromOneInEachProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto firstCheckPoint = [] {
        FakeServiceHost host;
        PlainService service;
        service.ReportStatus(SERVICE_STOP_PENDING, NO_ERROR);
        return static_cast<int>(host.LastStatus().dwCheckPoint);
    };
    EXPECT_EXIT(std::_Exit(firstCheckPoint()), testing::ExitedWithCode(1), "");
}

// Registration.

TEST_F(DFUServiceBaseTest, RegistersItsHandlerAndAllInterfaceClassesAndThenStarts) {
    std::wstring argument = L"VeyraCameraDfuService";
    std::array<wchar_t*, 2> arguments{argument.data(), nullptr};
    DFUServiceBase::ServiceMain(1, arguments.data());
    EXPECT_EQ(
        host_.Lines(),
        (Lines{"RegisterServiceCtrlHandlerExW(VeyraCameraDfuService)",
               "RegisterDeviceNotificationW(status handle, size 32, type 5, reserved 0, class zero, flags 5)",
               Status(2, 0, "#1"), "OnStart", Status(4, 0, "0")}));
    EXPECT_EQ(host_.handler, &DFUServiceBase::ServiceCtrlHandler);
    EXPECT_EQ(host_.handlerContext, static_cast<DFUServiceBase*>(&service_));
    EXPECT_EQ(service_.startArgc, 1U);
    EXPECT_EQ(service_.startArgv, arguments.data());
}

TEST_F(DFUServiceBaseTest, RaisesTheErrorWhenItsHandlerCannotBeRegistered) {
    host_.registerHandlerError = 1060;
    try {
        DFUServiceBase::ServiceMain(0, nullptr);
        FAIL() << "raised nothing";
    } catch (const win32::Win32Error& error) {
        EXPECT_EQ(error.Code(), 1060U);
    }
    EXPECT_EQ(host_.Lines(), Lines{"RegisterServiceCtrlHandlerExW(VeyraCameraDfuService)"});
}

TEST_F(DFUServiceBaseTest, StartsWithoutDeviceNotifications) {
    host_.registerNotificationError = 87;
    DFUServiceBase::ServiceMain(0, nullptr);
    const Lines lines = host_.Lines();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[4], Status(4, 0, "0"));
}

TEST_F(DFUServiceBaseTest, NeverUnregistersItsDeviceNotifications) {
    EXPECT_THROW(test_support::ImportRedirect("UnregisterDeviceNotification", RaiseCode), std::runtime_error);
}

// Transitions.

TEST_F(DFUServiceBaseTest, ReportsAStart) {
    service_.Start(0, nullptr);
    EXPECT_EQ(host_.Lines(),
              (Lines{Status(2, 0, "#1", "no handle"), "OnStart", Status(4, 0, "0", "no handle")}));
}

TEST_F(DFUServiceBaseTest, GoesOnWithTheNumberingFromOneOperationToTheNext) {
    DFUServiceBase::ServiceMain(0, nullptr);
    host_.Forget();
    service_.Pause();
    service_.Continue();
    service_.Stop();
    EXPECT_EQ(host_.Lines(),
              (Lines{Status(6, 0, "#2"), "OnPause", Status(7, 0, "#3"), Status(5, 0, "#4"), "OnContinue",
                     Status(4, 0, "0"), Status(3, 0, "#5"), "OnStop", Status(1, 0, "0")}));
}

TEST_F(DFUServiceBaseTest, SharesTheNumberingWithOtherFramesOfTheProcess) {
    PlainService other;
    service_.ReportStatus(SERVICE_STOP_PENDING, NO_ERROR);
    other.ReportStatus(SERVICE_STOP_PENDING, NO_ERROR);
    EXPECT_EQ(host_.Lines(), (Lines{Status(3, 0, "#1", "no handle"), Status(3, 0, "#2", "no handle")}));
}

TEST_F(DFUServiceBaseTest, NumbersEveryReportButThoseOfRunningAndStopped) {
    for (const DWORD state : {1U, 2U, 3U, 4U, 5U, 6U, 7U}) {
        service_.ReportStatus(state, state + 100);
    }
    EXPECT_EQ(host_.Lines(), (Lines{Status(1, 101, "0", "no handle"), Status(2, 102, "#1", "no handle"),
                                    Status(3, 103, "#2", "no handle"), Status(4, 104, "0", "no handle"),
                                    Status(5, 105, "#3", "no handle"), Status(6, 106, "#4", "no handle"),
                                    Status(7, 107, "#5", "no handle")}));
}

TEST_F(DFUServiceBaseTest, DoesNothingByItself) {
    PlainService plain;
    plain.Start(0, nullptr);
    plain.Pause();
    plain.Continue();
    plain.Stop();
    plain.Shutdown();
    EXPECT_EQ(host_.Lines(), (Lines{Status(2, 0, "#1", "no handle"), Status(4, 0, "0", "no handle"),
                                    Status(6, 0, "#2", "no handle"), Status(7, 0, "#3", "no handle"),
                                    Status(5, 0, "#4", "no handle"), Status(4, 0, "0", "no handle"),
                                    Status(3, 0, "#5", "no handle"), Status(1, 0, "0", "no handle"),
                                    Status(1, 0, "0", "no handle")}));
}

// The transitions of a service that runs: what is reported, and, when they fail, traced and logged.

struct Transition {
    const char* name;
    DWORD control;
    void (DFUServiceBase::*run)();
    Lines lines;
    Lines failedLines;         // for an error code
    USHORT trace;              // the message that carries the code
    const char* eventLogText;  // for any other exception
};

class ServiceTransition : public DFUServiceBaseTest, public testing::WithParamInterface<Transition> {
  protected:
    ServiceTransition() { StartService(); }

    void Run() { (service_.*GetParam().run)(); }

    // The lines of the failed transition with the event-log record behind the operation.
    [[nodiscard]] static Lines LinesWithRecord() {
        Lines lines = GetParam().failedLines;
        const Lines record{
            "RegisterEventSourceW(null, VeyraCameraDfuService)",
            std::string("ReportEventW(log, type 1, category 0, id 0, no user, 0 bytes, no data, "
                        "\"VeyraCameraDfuService\", \"") +
                GetParam().eventLogText + "\")",
            "DeregisterEventSource(log)"};
        const auto operation =
            std::find_if(lines.begin(), lines.end(), [](const std::string& line) { return line[0] == 'O'; });
        lines.insert(operation + 1, record.begin(), record.end());
        return lines;
    }
};

TEST_P(ServiceTransition, ReportsTheStatesAroundItsOperation) {
    Run();
    EXPECT_EQ(host_.Lines(), GetParam().lines);
}

TEST_P(ServiceTransition, RunsForItsControlWhichReturnsZero) {
    EXPECT_EQ(Control(GetParam().control), 0U);
    EXPECT_EQ(host_.Lines(), GetParam().lines);
}

TEST_P(ServiceTransition, HasAControlThatReturnsZeroWhenItsOperationFails) {
    service_.onOperation = RaiseCode;
    EXPECT_EQ(Control(GetParam().control), 0U);
    service_.onOperation = RaiseNumber;
    EXPECT_EQ(Control(GetParam().control), 0U);
}

TEST_P(ServiceTransition, TracesAnErrorCodeAndReportsTheStateItIsBackIn) {
    traces_.EnableSession(2);
    service_.onOperation = RaiseCode;
    Run();
    EXPECT_EQ(host_.Lines(), GetParam().failedLines);
    const auto messages = traces_.Messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_TRUE(messages[0].group == kServiceBaseGroup);
    EXPECT_EQ(messages[0].number, GetParam().trace);
    EXPECT_EQ(messages[0].Code(), 1450U);
}

TEST_P(ServiceTransition, TracesNoErrorCodeToASessionBelowErrors) {
    traces_.EnableSession(1);
    service_.onOperation = RaiseCode;
    Run();
    EXPECT_TRUE(traces_.Messages().empty());
}

TEST_P(ServiceTransition, LogsAnyOtherExceptionAndReportsTheStateItIsBackIn) {
    for (const auto raise : {RaiseText, RaiseNumber}) {
        StartService();
        traces_.EnableSession(255);
        service_.onOperation = raise;
        Run();
        service_.onOperation = nullptr;
        EXPECT_EQ(host_.Lines(), LinesWithRecord());
        EXPECT_TRUE(traces_.Messages().empty());
    }
}

TEST_P(ServiceTransition, ReportsTheSameWhenThereIsNoEventLog) {
    host_.registerEventSourceError = 1722;
    service_.onOperation = RaiseText;
    Run();
    Lines expected = LinesWithRecord();
    std::erase_if(expected, [](const std::string& line) {
        return line.starts_with("ReportEventW") || line.starts_with("DeregisterEventSource");
    });
    EXPECT_EQ(host_.Lines(), expected);
}

INSTANTIATE_TEST_SUITE_P(Table, ServiceTransition,
                         testing::Values(Transition{"Stop",
                                                    1,
                                                    &DFUServiceBase::Stop,
                                                    {Status(3, 0, "#1"), "OnStop", Status(1, 0, "0")},
                                                    {Status(3, 0, "#1"), "OnStop", Status(4, 0, "0")},
                                                    14,
                                                    "Service failed to stop."},
                                         Transition{"Pause",
                                                    2,
                                                    &DFUServiceBase::Pause,
                                                    {Status(6, 0, "#1"), "OnPause", Status(7, 0, "#2")},
                                                    {Status(6, 0, "#1"), "OnPause", Status(4, 0, "0")},
                                                    15,
                                                    "Service failed to pause."},
                                         Transition{"Continue",
                                                    3,
                                                    &DFUServiceBase::Continue,
                                                    {Status(5, 0, "#1"), "OnContinue", Status(4, 0, "0")},
                                                    {Status(5, 0, "#1"), "OnContinue", Status(7, 0, "#2")},
                                                    16,
                                                    "Service failed to resume."},
                                         Transition{"Shutdown",
                                                    5,
                                                    &DFUServiceBase::Shutdown,
                                                    {"OnShutdown", Status(1, 0, "0")},
                                                    {"OnShutdown"},
                                                    17,
                                                    "Service failed to shut down."}),
                         [](const auto& transition) { return transition.param.name; });

TEST_F(DFUServiceBaseTest, GoesBackToThePausedStateWhenItCannotStop) {
    StartService();
    service_.Pause();
    host_.Forget();
    service_.onOperation = RaiseCode;
    service_.Stop();
    EXPECT_EQ(host_.Lines(), (Lines{Status(3, 0, "#3"), "OnStop", Status(7, 0, "#4")}));
}

// A frame that was never started is still in its initial state.
TEST_F(DFUServiceBaseTest, GoesBackToTheStartingStateWhenItCannotStop) {
    RecordingService fresh(host_);
    host_.Forget();
    fresh.onOperation = RaiseText;
    fresh.Stop();
    const Lines lines = host_.Lines();
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_EQ(lines.back(), Status(2, 0, "#2", "no handle"));
}

TEST_F(DFUServiceBaseTest, ReportsTheErrorCodeWithWhichItFailsToStart) {
    traces_.EnableSession(4);
    service_.onOperation = RaiseCode;
    service_.Start(0, nullptr);
    EXPECT_EQ(host_.Lines(),
              (Lines{Status(2, 0, "#1", "no handle"), "OnStart", Status(1, 1450, "0", "no handle")}));
    const auto messages = traces_.Messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_TRUE(messages[0].group == kServiceBaseGroup);
    EXPECT_EQ(messages[0].number, 10U);
    EXPECT_TRUE(messages[0].arguments.empty());
}

TEST_F(DFUServiceBaseTest, TracesAStartThatFailedWithACodeFromLevelFourOn) {
    traces_.EnableSession(3);
    service_.onOperation = RaiseCode;
    service_.Start(0, nullptr);
    EXPECT_TRUE(traces_.Messages().empty());
}

TEST_F(DFUServiceBaseTest, ReportsNoErrorCodeWhenAnythingElseFailsItsStart) {
    traces_.EnableSession(2);
    for (const auto raise : {RaiseText, RaiseNumber}) {
        traces_.Forget();
        host_.Forget();
        service_.onOperation = raise;
        service_.Start(0, nullptr);
        EXPECT_EQ(host_.Lines().back(), Status(1, 0, "0", "no handle"));
        EXPECT_EQ(host_.Lines().size(), 3U);
        const auto messages = traces_.Messages();
        ASSERT_EQ(messages.size(), 1U);
        EXPECT_TRUE(messages[0].group == kServiceBaseGroup);
        EXPECT_EQ(messages[0].number, 11U);
        EXPECT_TRUE(messages[0].arguments.empty());
    }
}

TEST_F(DFUServiceBaseTest, TracesAStartThatFailedOtherwiseFromLevelTwoOn) {
    traces_.EnableSession(1);
    service_.onOperation = RaiseText;
    service_.Start(0, nullptr);
    EXPECT_TRUE(traces_.Messages().empty());
}

TEST_F(DFUServiceBaseTest, ForgetsTheExitCodeOfAFailedStartOnTheNext) {
    service_.onOperation = RaiseCode;
    service_.Start(0, nullptr);
    service_.onOperation = nullptr;
    host_.Forget();
    service_.Start(0, nullptr);
    EXPECT_EQ(host_.Lines(),
              (Lines{Status(2, 0, "#2", "no handle"), "OnStart", Status(4, 0, "0", "no handle")}));
}

// Controls.

TEST_F(DFUServiceBaseTest, AnswersAnInterrogationWithoutAReport) {
    StartService();
    EXPECT_EQ(Control(SERVICE_CONTROL_INTERROGATE), 0U);
    EXPECT_EQ(host_.Lines(), Lines{});
}

TEST_F(DFUServiceBaseTest, IgnoresEveryOtherControl) {
    StartService();
    DEV_BROADCAST_DEVICEINTERFACE_W broadcast{};
    broadcast.dbcc_classguid = kUsbDevice;
    for (const DWORD control :
         {0U, 4U, 6U, 7U, 8U, 9U, 10U, 12U, 13U, 14U, 15U, 16U, 32U, 128U, 255U, 0xFFFFFFFFU}) {
        EXPECT_EQ(Control(control, 0x8000, &broadcast), 0U) << control;
    }
    EXPECT_EQ(host_.Lines(), Lines{});
}

// Device events.

struct Arrival {
    const char* name;
    GUID interfaceClass;
    const char* classText;
    const char* operation;
    USHORT trace;
    Lines traceArguments;
};

const std::vector<Arrival> kArrivals{
    {"SensorCamera", kSensorCamera, kSensorCameraText, "OnCameraArrival", 12, {}},
    {"VideoCamera", kVideoCamera, kVideoCameraText, "OnCameraArrival", 12, {}},
    {"UsbDevice", kUsbDevice, kUsbDeviceText, "OnUsbDeviceArrival", 13, {"Ge", std::string("{\0", 2)}}};

std::string NameOfArrival(const testing::TestParamInfo<Arrival>& arrival) {
    return arrival.param.name;
}

class DeviceArrival : public DFUServiceBaseTest, public testing::WithParamInterface<Arrival> {};

TEST_P(DeviceArrival, IsTracedAndHandedOn) {
    traces_.EnableSession(4);
    EXPECT_EQ(DeviceEvent(0x8000, GetParam().interfaceClass), 0U);
    EXPECT_EQ(host_.Lines(), (Lines{kEventText, kFormat, GetParam().classText, GetParam().operation, kFree}));
    EXPECT_EQ(traces_.Numbers(kServiceBaseGroup), std::vector<USHORT>{GetParam().trace});
    EXPECT_EQ(traces_.Messages().at(0).arguments, GetParam().traceArguments);
}

TEST_P(DeviceArrival, IsNotTracedBelowLevelFour) {
    traces_.EnableSession(3);
    DeviceEvent(0x8000, GetParam().interfaceClass);
    EXPECT_TRUE(traces_.Messages().empty());
}

INSTANTIATE_TEST_SUITE_P(Classes, DeviceArrival, testing::ValuesIn(kArrivals), NameOfArrival);

TEST_F(DFUServiceBaseTest, HandsTheCameraItsWholeRecord) {
    DEV_BROADCAST_DEVICEINTERFACE_W broadcast{};
    broadcast.dbcc_classguid = kVideoCamera;
    Control(11, 0x8000, &broadcast);
    EXPECT_EQ(service_.broadcast, &broadcast);
}

TEST_F(DFUServiceBaseTest, ReadsTheClassWhateverTheDeviceTypeOfTheRecord) {
    DEV_BROADCAST_DEVICEINTERFACE_W broadcast{};
    broadcast.dbcc_devicetype = 3;
    broadcast.dbcc_classguid = kUsbDevice;
    Control(11, 0x8000, &broadcast);
    EXPECT_EQ(host_.Lines(), (Lines{kEventText, kFormat, kUsbDeviceText, "OnUsbDeviceArrival", kFree}));
}

TEST_F(DFUServiceBaseTest, OnlyFormatsTheClassOfAnyOtherArrival) {
    traces_.EnableSession(255);
    GUID almostUsb = kUsbDevice;
    almostUsb.Data4[7] = 0xEC;
    for (const GUID& interfaceClass : {kSomeClass, GUID{}, almostUsb}) {
        host_.Forget();
        EXPECT_EQ(DeviceEvent(0x8000, interfaceClass), 0U);
        EXPECT_EQ(host_.Lines(), (Lines{kEventText, kFormat, kFree}));
    }
    EXPECT_TRUE(traces_.Messages().empty());
    EXPECT_TRUE(MonitorSleeps().empty());
}

TEST_F(DFUServiceBaseTest, IgnoresEveryOtherEventType) {
    traces_.EnableSession(255);
    for (const DWORD type : {0U, 7U, 0x18U, 0x8001U, 0x8002U, 0x8003U, 0x8005U, 0x8006U, 0xFFFFU, 0x18000U}) {
        for (const GUID& interfaceClass : {kSensorCamera, kVideoCamera, kUsbDevice}) {
            host_.Forget();
            EXPECT_EQ(DeviceEvent(type, interfaceClass), 0U);
            EXPECT_EQ(host_.Lines(), (Lines{kEventText, kFormat, kFree})) << type;
        }
    }
    EXPECT_TRUE(traces_.Messages().empty());
    EXPECT_TRUE(MonitorSleeps().empty());
}

TEST_F(DFUServiceBaseTest, SurvivesAnEventWithoutARecord) {
    for (const DWORD type : {0x8000U, 0x8004U, 0U}) {
        EXPECT_EQ(Control(11, type, nullptr), 0U);
    }
    EXPECT_EQ(service_.broadcast, nullptr);
}

TEST_F(DFUServiceBaseTest, GoesOnWhenThereIsNoMemoryForTheClassText) {
    traces_.EnableSession(4);
    host_.classTextFails = true;
    EXPECT_EQ(DeviceEvent(0x8000, kUsbDevice), 0U);
    EXPECT_EQ(DeviceEvent(0x8000, kVideoCamera), 0U);
    const Lines lines = host_.Lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "OnUsbDeviceArrival"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "OnCameraArrival"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), kFree), 0);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "debug \"\""), 2) << "an empty text, never a null";
    EXPECT_EQ(traces_.Messages().at(0).arguments, (Lines{"Ge", std::string("NULL\0", 5)}));
}

TEST_F(DFUServiceBaseTest, IgnoresTheResultOfAPass) {
    StartService();
    service_.passResult = E_FAIL;
    EXPECT_EQ(DeviceEvent(0x8000, kUsbDevice), 0U);
    EXPECT_EQ(DeviceEvent(0x8000, kSensorCamera), 0U);
    EXPECT_EQ(host_.Lines(), (Lines{kEventText, kFormat, kUsbDeviceText, "OnUsbDeviceArrival", kFree,
                                    kEventText, kFormat, kSensorCameraText, "OnCameraArrival", kFree}));
}

TEST_F(DFUServiceBaseTest, LetsNoExceptionOutOfAPass) {
    StartService();
    for (const auto raise : {RaiseCode, RaiseText, RaiseNumber}) {
        service_.onOperation = raise;
        host_.Forget();
        EXPECT_EQ(DeviceEvent(0x8000, kUsbDevice), 0U);
        EXPECT_EQ(DeviceEvent(0x8000, kSensorCamera), 0U);
        EXPECT_EQ(host_.Lines(), (Lines{kEventText, kFormat, kUsbDeviceText, "OnUsbDeviceArrival", kFree,
                                        kEventText, kFormat, kSensorCameraText, "OnCameraArrival", kFree}));
    }
}

// Removals, and what the uninstall monitor is told. A monitor that is not watching sleeps a second before it
// scans, one that is watching scans at once: that is how the tests see which of the two it is.

TEST_F(DFUServiceBaseTest, HasTheMonitorCheckWhenACameraIsRemoved) {
    for (const GUID& interfaceClass : {kSensorCamera, kVideoCamera}) {
        host_.Forget();
        EXPECT_EQ(DeviceEvent(0x8004, interfaceClass), 0U);
        EXPECT_EQ(host_.Lines(), (Lines{kEventText, kFormat, kScan, "stop requested", kFree}));
    }
    EXPECT_EQ(MonitorSleeps(), (std::vector<DWORD>{1000, 1000}));
}

TEST_F(DFUServiceBaseTest, HasTheMonitorRemoveTheServiceWhenNoCameraIsLeft) {
    {
        RecordingService service(host_);
        DEV_BROADCAST_DEVICEINTERFACE_W broadcast{};
        broadcast.dbcc_classguid = kVideoCamera;
        DFUServiceBase::ServiceCtrlHandler(11, 0x8004, &broadcast, &service);
    }
    EXPECT_EQ(host_.Commands(), (Lines{"sc delete VeyraCameraDFU", "sc stop VeyraCameraDFU"}));
}

TEST_F(DFUServiceBaseTest, IgnoresTheRemovalOfAnythingElse) {
    for (const GUID& interfaceClass : {kUsbDevice, kSomeClass}) {
        host_.Forget();
        EXPECT_EQ(DeviceEvent(0x8004, interfaceClass), 0U);
        EXPECT_EQ(host_.Lines(), (Lines{kEventText, kFormat, kFree}));
    }
    EXPECT_TRUE(MonitorSleeps().empty());
}

TEST_F(DFUServiceBaseTest, KeepsTheMonitorWatchingBetweenTwoRemovals) {
    host_.hasCamera = true;
    DeviceEvent(0x8004, kSensorCamera);
    DeviceEvent(0x8000, kSomeClass);
    DeviceEvent(0x8004, kSensorCamera);
    EXPECT_EQ(MonitorSleeps(), std::vector<DWORD>{1000});
}

class ArrivalWhileWatching : public DFUServiceBaseTest, public testing::WithParamInterface<Arrival> {
  protected:
    // Whether the monitor is watching at this moment.
    bool IsWatching() {
        const std::size_t sleepsBefore = MonitorSleeps().size();
        host_.onDebugText = nullptr;
        DeviceEvent(0x8004, kSensorCamera);
        return MonitorSleeps().size() == sleepsBefore;
    }

    // Makes the monitor watch and delivers the arrival.
    void Arrive() {
        host_.hasCamera = true;
        DeviceEvent(0x8004, kSensorCamera);
        DeviceEvent(0x8000, GetParam().interfaceClass);
    }
};

TEST_P(ArrivalWhileWatching, StopsTheMonitor) {
    Arrive();
    EXPECT_FALSE(IsWatching());
}

TEST_P(ArrivalWhileWatching, StopsTheMonitorBeforeThePass) {
    bool wasWatching = true;
    service_.onOperation = [&] { wasWatching = IsWatching(); };
    Arrive();
    EXPECT_FALSE(wasWatching);
}

// A camera's class is shown after the monitor was told, a USB device's before.
TEST_P(ArrivalWhileWatching, TellsTheMonitorAndShowsTheClassInTheOrderOfItsKind) {
    bool wasWatching = false;
    host_.hasCamera = true;
    DeviceEvent(0x8004, kSensorCamera);
    host_.onDebugText = [&](const std::wstring& text) {
        if (text.starts_with(L"{")) {
            wasWatching = IsWatching();
        }
    };
    DeviceEvent(0x8000, GetParam().interfaceClass);
    EXPECT_EQ(wasWatching, GetParam().interfaceClass == kUsbDevice);
}

std::function<void(USHORT)> onTrace;

ULONG __cdecl OnTraceMessage(TRACEHANDLE, ULONG, const GUID*, USHORT number, ...) {
    onTrace(number);
    return ERROR_SUCCESS;
}

TEST_P(ArrivalWhileWatching, TracesTheArrivalBeforeItTellsTheMonitor) {
    traces_.EnableSession(4);
    const test_support::ImportRedirect redirect("TraceMessage", OnTraceMessage);
    bool wasWatching = false;
    onTrace = [&](USHORT) {
        wasWatching = IsWatching();
        host_.Record("traced");
    };
    host_.hasCamera = true;
    DeviceEvent(0x8004, kSensorCamera);
    host_.Forget();
    DeviceEvent(0x8000, GetParam().interfaceClass);
    EXPECT_TRUE(wasWatching);
    const Lines lines = host_.Lines();
    const auto traced = std::find(lines.begin(), lines.end(), "traced");
    const auto shown = std::find_if(lines.begin(), lines.end(),
                                    [](const std::string& line) { return line.starts_with("debug \"{"); });
    EXPECT_LT(traced, shown);
}

INSTANTIATE_TEST_SUITE_P(Classes, ArrivalWhileWatching, testing::ValuesIn(kArrivals), NameOfArrival);

// The event log.

TEST_F(DFUServiceBaseTest, WritesAnEventLogRecordWithItsNameAndTheMessage) {
    service_.WriteEventLogEntry(L"KV400CameraService::OnStart Enter", EVENTLOG_INFORMATION_TYPE);
    EXPECT_EQ(host_.Lines(), (Lines{"RegisterEventSourceW(null, VeyraCameraDfuService)",
                                    "ReportEventW(log, type 4, category 0, id 0, no user, 0 bytes, no data, "
                                    "\"VeyraCameraDfuService\", \"KV400CameraService::OnStart Enter\")",
                                    "DeregisterEventSource(log)"}));
}

TEST_F(DFUServiceBaseTest, WritesNothingWithoutAnEventLog) {
    host_.registerEventSourceError = 1722;
    service_.WriteEventLogEntry(L"message", EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(host_.Lines(), Lines{"RegisterEventSourceW(null, VeyraCameraDfuService)"});
}

}  // namespace
