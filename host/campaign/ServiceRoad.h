#pragma once

#include "discovery/DeviceInterfaceWatcher.h"
#include "host/campaign/CameraBus.h"
#include "host/campaign/DownloadJudge.h"
#include "host/campaign/PassJudge.h"

#include <windows.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace campaign {

// The service's two passes and the user's answer, of the parts of the service that need no Windows: the
// command pipe, the device watcher with its matching, the opening of a device, its endpoint and the protocol
// engine. What holds them together in the service is played here: the five attempts to read a version, the
// comparison of versions, and who calls whom. Each pass is judged while it goes on; BrokenRule comes out of
// each.
class ServiceRoad {
  public:
    // What became of a camera in DFU mode when a USB device arrived.
    struct DfuPass {
        bool isPresent = false;  // the watcher has found it
        bool isOpened = false;
        HRESULT result = S_OK;  // of the engine
    };

    ServiceRoad(CameraBus& bus, VirtualTime& time);

    // A camera interface arrived: the four bytes of the camera's version, least significant first; none when
    // it does not tell.
    [[nodiscard]] std::optional<std::array<std::uint8_t, 4>> ReadVersion(std::size_t camera);
    // The user accepts.
    void SwitchToDfuMode(std::size_t camera);
    // Each device is opened with this last error from now on, as of a call that failed earlier.
    void LeaveError(DWORD error) { lastError_ = error; }
    // A USB device arrived.
    [[nodiscard]] DfuPass Download(std::span<const std::uint8_t> image);

    void OnCrossing(const Crossing& crossing);
    // DownloadJudge::Next().
    [[nodiscard]] std::string_view NextRequest() const { return downloadJudge_.Next(); }
    // Whether the last download was told its end by the camera.
    [[nodiscard]] bool SawTheEnd() const { return downloadJudge_.SawTheEnd(); }

  private:
    CameraBus& bus_;
    PassJudge passJudge_;
    DownloadJudge downloadJudge_;
    DeviceInterfaceWatcher watcher_;
    DWORD lastError_ = ERROR_SUCCESS;
};

}  // namespace campaign
