#include "tests/trace/Emissions.h"

#include "diagnostics/TraceProvider.h"
#include "diagnostics/TraceScope.h"
#include "tests/prompt/LaunchCalls.h"
#include "tests/service/FDUServiceStage.h"
#include "tests/service/FakeServiceHost.h"
#include "tests/support/GuidText.h"
#include "tests/support/TraceRecorder.h"
#include "win32/Win32Error.h"

#include <dbt.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>
#include <utility>

namespace {

using test_support::TracedMessage;
using test_support::TraceRecorder;

constexpr GUID kVideoCamera{0xE5323777, 0xF976, 0x4F5B, {0x9B, 0x55, 0xB9, 0x46, 0x99, 0xC4, 0x6E, 0x44}};
constexpr GUID kUsbDevice{0xA5DCBF10, 0x6530, 0x11D2, {0x90, 0x1F, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xED}};

const std::wstring kCameraLink =
    L"\\\\?\\usb#vid_2f1a&pid_0400&mi_00#7&1a2b3c&0&0000#{e5323777-f976-4f5b-9b55-b94699c46e44}\\global";
const std::wstring kDfuLink = L"\\\\?\\usb#vid_2f1a&pid_7e01#serial#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";

constexpr unsigned kHighestLevel = 8;  // of the program's messages and scopes
constexpr ULONG kAllFlags = 0xFFFFFFFF;
constexpr ULONG kFlag1 = 1;

struct Session {
    unsigned level;
    ULONG flags;
};
using Messages = std::vector<TracedMessage>;
// Makes the program send messages to a session, and gives them back.
using Drive = std::function<Messages(Session)>;

void Enable(TraceRecorder& traces, Session session) {
    traces.EnableSession(static_cast<UCHAR>(session.level), session.flags);
}

void RaiseCode() {
    throw win32::Win32Error(1450);
}

void RaiseText() {
    throw std::runtime_error("broken");
}

// A service that fails in everything it does, while `fail` is set.
class FailingService : public DFUServiceBase {
  public:
    explicit FailingService(void (*fail)()) : DFUServiceBase(L"Failing", [] {}), fail_(fail) {}

    void OnStart(DWORD, wchar_t**) override { Fail(); }
    void OnStop() override { Fail(); }
    void OnPause() override { Fail(); }
    void OnContinue() override { Fail(); }
    void OnShutdown() override { Fail(); }
    HRESULT OnUsbDeviceArrival() override { return S_OK; }
    HRESULT OnCameraArrival(const DEV_BROADCAST_DEVICEINTERFACE_W&) override { return S_OK; }

  private:
    void Fail() const {
        if (fail_ != nullptr) {
            fail_();
        }
    }

    void (*fail_)();
};

// The frame of a service, with what is around it.
Drive OfTheFrame(void (*fail)(), std::function<void(FailingService&, FakeServiceHost&)> act) {
    return [fail, act = std::move(act)](Session session) {
        TraceRecorder traces;
        FakeServiceHost host;
        TraceProvider::Register();
        Enable(traces, session);
        FailingService service(fail);
        act(service, host);
        return traces.Messages();
    };
}

void Arrive(DFUServiceBase& service, const GUID& interfaceClass) {
    DEV_BROADCAST_DEVICEINTERFACE_W broadcast{};
    broadcast.dbcc_size = sizeof broadcast;
    broadcast.dbcc_classguid = interfaceClass;
    DFUServiceBase::ServiceCtrlHandler(SERVICE_CONTROL_DEVICEEVENT, DBT_DEVICEARRIVAL, &broadcast, &service);
}

std::vector<Drive> DrivesOfTheFrame() {
    return {
        OfTheFrame(RaiseCode, [](auto& service, auto&) { service.Start(0, nullptr); }),
        OfTheFrame(RaiseText, [](auto& service, auto&) { service.Start(0, nullptr); }),
        OfTheFrame(RaiseCode, [](auto& service, auto&) { service.Stop(); }),
        OfTheFrame(RaiseCode, [](auto& service, auto&) { service.Pause(); }),
        OfTheFrame(RaiseCode, [](auto& service, auto&) { service.Continue(); }),
        OfTheFrame(RaiseCode, [](auto& service, auto&) { service.Shutdown(); }),
        OfTheFrame(nullptr, [](auto& service, auto&) { Arrive(service, kVideoCamera); }),
        OfTheFrame(nullptr, [](auto& service, auto&) { Arrive(service, kUsbDevice); }),
        OfTheFrame(nullptr,
                   [](auto& service, auto& host) {
                       host.classTextFails = true;
                       Arrive(service, kUsbDevice);
                   }),
    };
}

// The update service on its stage.
class DrivenService : public FDUServiceStage {
  public:
    explicit DrivenService(Session session) { Enable(traces_, session); }

    void TestBody() override {}

    void PlugCamera(std::uint8_t firstNumber) {
        cameras_.AddCamera(kCameraLink).Firmware().SetVersion(firstNumber, 0, 0, 0);
    }
    void PlugDfuDevice() {
        devices_.SetPresent({kDfuLink});
        bus_.Add(kDfuLink);
    }
    void ArriveCamera() {
        std::vector<std::byte> record(offsetof(DEV_BROADCAST_DEVICEINTERFACE_W, dbcc_name) +
                                      (kCameraLink.size() + 1) * sizeof(wchar_t));
        auto& broadcast = *reinterpret_cast<DEV_BROADCAST_DEVICEINTERFACE_W*>(record.data());
        broadcast.dbcc_size = static_cast<DWORD>(record.size());
        std::memcpy(broadcast.dbcc_name, kCameraLink.c_str(), (kCameraLink.size() + 1) * sizeof(wchar_t));
        Service().OnCameraArrival(broadcast);
    }

    using FDUServiceStage::bus_;
    using FDUServiceStage::com_;
    using FDUServiceStage::FailToastController;
    using FDUServiceStage::folders_;
    using FDUServiceStage::Service;
    using FDUServiceStage::service_;
    using FDUServiceStage::toast_;
    using FDUServiceStage::traces_;
};

Drive OfTheService(std::function<void(DrivenService&)> act) {
    return [act = std::move(act)](Session session) {
        DrivenService stage(session);
        act(stage);
        stage.service_.reset();
        return stage.traces_.Messages();
    };
}

std::vector<Drive> DrivesOfTheService() {
    return {
        OfTheService([](auto& stage) {
            stage.com_.securityResult = E_FAIL;
            stage.Service();
        }),
        OfTheService([](auto& stage) {
            stage.FailToastController(ERROR_ACCESS_DENIED);
            stage.Service();
        }),
        OfTheService([](auto& stage) {
            stage.toast_.adviseResult = E_FAIL;
            stage.Service();
        }),
        OfTheService([](auto& stage) {
            stage.Service().OnStart(0, nullptr);
            stage.Service().OnStop();
        }),
        OfTheService([](auto& stage) { stage.Service().OnUsbDeviceArrival(); }),
        OfTheService([](auto& stage) {
            stage.PlugDfuDevice();
            stage.Service().OnUsbDeviceArrival();
        }),
        OfTheService([](auto& stage) {
            stage.PlugDfuDevice();
            stage.bus_.Fail("CreateFileW", ERROR_ACCESS_DENIED);
            stage.Service().OnUsbDeviceArrival();
        }),
        OfTheService([](auto& stage) {
            stage.PlugCamera(0);
            stage.ArriveCamera();
        }),
        OfTheService([](auto& stage) {
            stage.PlugCamera(5);
            stage.ArriveCamera();
        }),
        OfTheService([](auto& stage) {
            stage.PlugCamera(5);
            stage.folders_.WriteVersionedImage(std::vector<std::uint8_t>(401));
            stage.ArriveCamera();
        }),
        OfTheService([](auto& stage) {
            stage.PlugCamera(5);
            stage.folders_.WriteVersionedImage(std::vector<std::uint8_t>(402, 6));
            stage.ArriveCamera();
        }),
        OfTheService([](auto& stage) {
            LaunchCalls launch;
            launch.openInstead = [](HKEY*) { return ERROR_FILE_NOT_FOUND; };
            launch.Fail("CreateProcessAsUserW", ERROR_FILE_NOT_FOUND);
            stage.Service();
        }),
    };
}

// Scopes as such. What they trace in the service is traced only to a session of the highest level.
Messages DriveScopes(Session session) {
    TraceRecorder traces;
    TraceProvider::Register();
    Enable(traces, session);
    { const TraceScope scope("Traced::Function", nullptr); }
    return traces.Messages();
}

std::vector<Drive> AllDrives() {
    std::vector<Drive> drives{DriveScopes};
    for (const auto& more : {DrivesOfTheFrame(), DrivesOfTheService()}) {
        drives.insert(drives.end(), more.begin(), more.end());
    }
    return drives;
}

using Key = std::pair<std::string, unsigned>;  // group and number

Key KeyOf(const TracedMessage& message) {
    return {test_support::GuidText(message.group), message.number};
}

bool Sends(const Messages& messages, const Key& key) {
    return std::any_of(messages.begin(), messages.end(),
                       [&key](const TracedMessage& message) { return KeyOf(message) == key; });
}

unsigned LowestLevel(const Drive& drive, const Key& key) {
    for (unsigned level = 0; level < kHighestLevel; ++level) {
        if (Sends(drive({level, kAllFlags}), key)) {
            return level;
        }
    }
    return kHighestLevel;
}

}  // namespace

std::vector<Emission> AllEmissions() {
    std::map<Key, Emission> emissions;
    for (const Drive& drive : AllDrives()) {
        for (const TracedMessage& message : drive({kHighestLevel, kAllFlags})) {
            const Key key = KeyOf(message);
            if (!emissions.contains(key)) {
                emissions[key] = {.group = key.first,
                                  .number = key.second,
                                  .lowestLevel = LowestLevel(drive, key),
                                  .needsFlag1 = Sends(drive({kHighestLevel, kFlag1}), key) &&
                                                !Sends(drive({kHighestLevel, ~kFlag1}), key),
                                  .arguments = {}};
            }
            emissions[key].arguments.push_back(message.arguments);
        }
    }
    std::vector<Emission> all;
    for (auto& [key, emission] : emissions) {
        all.push_back(std::move(emission));
    }
    return all;
}

std::vector<std::string> Complaints(const std::vector<TraceFormat>& formats,
                                    const std::vector<Emission>& emissions,
                                    const std::vector<UnreachableEmission>& unreachable) {
    std::vector<std::string> complaints;
    const auto complain = [&complaints](const auto& message, const std::string& text) {
        complaints.push_back(message.group + " " + std::to_string(message.number) + ": " + text);
    };
    const auto find = [](const auto& list, const auto& message) {
        return std::find_if(list.begin(), list.end(), [&message](const auto& one) {
            return one.group == message.group && one.number == message.number;
        });
    };

    for (const Emission& emission : emissions) {
        const auto format = find(formats, emission);
        if (format == formats.end()) {
            complain(emission, "has no text");
            continue;
        }
        if (format->level != emission.lowestLevel) {
            complain(emission, "is sent from level " + std::to_string(emission.lowestLevel) + " on");
        }
        if (format->flags != kFlag1 || !emission.needsFlag1) {
            complain(emission, "is sent with another flag");
        }
        for (const auto& arguments : emission.arguments) {
            try {
                static_cast<void>(Format(*format, arguments));
            } catch (const std::runtime_error& error) {
                complain(emission, error.what());
            }
        }
    }
    for (const TraceFormat& format : formats) {
        if (find(emissions, format) == emissions.end() && find(unreachable, format) == unreachable.end()) {
            complain(format, "is a text that nothing sends");
        }
    }
    for (const UnreachableEmission& one : unreachable) {
        if (find(formats, one) == formats.end()) {
            complain(one, "has no text");
        }
        if (find(emissions, one) != emissions.end()) {
            complain(one, "is reached after all");
        }
    }
    return complaints;
}
