#include "host/campaign/ServiceRoad.h"

#include "camera/ExtensionUnit.h"
#include "camera/FirmwareCommandPipe.h"
#include "dfu/DfuCommand.h"
#include "dfu/WinUsbDfuConnection.h"
#include "discovery/WatchedProducts.h"
#include "host/campaign/BrokenRule.h"
#include "host/campaign/CameraControl.h"
#include "lab/camera/DfuDescriptors.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace campaign {
namespace {

constexpr std::uint32_t kReadInformationBlock = 0x10;
constexpr std::uint32_t kSwitchToDfuMode = 0x1E;
constexpr std::size_t kInformationSize = 230;
constexpr std::size_t kVersionInInformation = 12;
constexpr int kInformationAttempts = 5;
constexpr DWORD kInformationPauseMs = 500;
constexpr DWORD kArrivalTimeoutMs = 100;
constexpr std::size_t kFwStatusSize = 68;
constexpr const char* kOpenHandles = "a handle that is not open is not used, and closed once";

}  // namespace

ServiceRoad::ServiceRoad(CameraBus& bus, VirtualTime& time)
    : bus_(bus), passJudge_(time), downloadJudge_(time), watcher_(L"dfu", kVendorText, kFirstDfuProductText) {
    watcher_.AddFilter(kVendorText, kSecondDfuProductText);
}

void ServiceRoad::OnCrossing(const Crossing& crossing) {
    if (crossing.what == Crossing::What::CommandWrite || crossing.what == Crossing::What::CommandRead) {
        passJudge_.OnCrossing(crossing);
    } else {
        downloadJudge_.OnCrossing(crossing);
    }
}

std::optional<std::array<std::uint8_t, 4>> ServiceRoad::ReadVersion(std::size_t camera) {
    CameraControl control(bus_, camera);
    std::array<BYTE, kInformationSize> block{};
    bool isRead = false;
    passJudge_.BeginReading();
    for (int attempt = 1; attempt <= kInformationAttempts && !isRead; ++attempt) {
        FirmwareCommandPipe pipe(&control, kExtensionUnit, kCommandControl);
        isRead =
            SUCCEEDED(pipe.SendCommandAndRead(block.data(), kReadInformationBlock, block.size(), 0, 0, 0, 0));
        if (!isRead && attempt < kInformationAttempts) {
            Sleep(kInformationPauseMs);
        }
    }
    const auto told = passJudge_.EndReading();
    std::array<std::uint8_t, 4> version{};
    std::copy_n(block.begin() + kVersionInInformation, version.size(), version.begin());
    Rule(isRead == told.has_value(), "a version counts as read when the camera has told it");
    Rule(!told || *told == version, "the version is the one that the camera has told");
    return told;
}

void ServiceRoad::SwitchToDfuMode(std::size_t camera) {
    CameraControl control(bus_, camera);
    FirmwareCommandPipe pipe(&control, kExtensionUnit, kCommandControl);
    passJudge_.BeginSwitch();
    passJudge_.EndSwitch(pipe.SendCommand(kSwitchToDfuMode, nullptr, 0, 1, 0, 0, 0));
}

ServiceRoad::DfuPass ServiceRoad::Download(std::span<const std::uint8_t> image) {
    watcher_.Refresh();
    if (WaitForSingleObject(watcher_.ArrivalEvent(), kArrivalTimeoutMs) != WAIT_OBJECT_0) {
        return {};
    }
    const auto devices = watcher_.Devices();
    Rule(devices.size() == 1, "the watcher lists the one camera that is in DFU mode");
    const std::size_t camera = devices.front().symbolicLink.find(L"kv4000001") != std::wstring::npos ? 0 : 1;
    const auto interfaceNumber = lab::FindDfuInterface(bus_.Camera(camera).ConfigurationDescriptor());

    SetLastError(lastError_);
    downloadJudge_.BeginOpening(image, interfaceNumber.value_or(0), lastError_ != ERROR_SUCCESS);
    WinUsbDfuConnection connection(devices.front().symbolicLink);
    downloadJudge_.EndOpening(connection.IsOpened());
    if (!connection.IsOpened()) {
        Rule(bus_.OpenHandles() == 0, "a device that could not be opened is left closed");
        Rule(bus_.HandlesWereOpen(), kOpenHandles);
        return {.isPresent = true};
    }
    std::ostringstream log;
    std::vector<std::int32_t> progress;
    HRESULT result = E_FAIL;
    {
        dfu::DfuCommand command(connection.AcquireEndpoint(), kFwStatusSize, &log,
                                [&progress](std::int32_t blocks) { progress.push_back(blocks); });
        result = command.Update(image.data(), image.size());
    }
    connection.Close();
    downloadJudge_.EndDownload(result, log.str(), progress);
    Rule(bus_.OpenHandles() == 0, "the device is closed in the end");
    Rule(bus_.HandlesWereOpen(), kOpenHandles);
    return {.isPresent = true, .isOpened = true, .result = result};
}

}  // namespace campaign
