#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/camera/BusMode.h"
#include "lab/rig/bus/Departure.h"
#include "lab/rig/bus/DeviceLinks.h"
#include "lab/rig/bus/InterfaceEvent.h"

namespace lab::rig {

// The ways in which a running camera's video function is listed.
enum class SourceKind { SensorCamera, Capture };

// A camera as Windows lists it: its links, its stays on the bus, and what is announced when one begins and
// ends. A stay lasts from an arrival to the removal that ends it; times are those of the bus. Not
// thread-safe: the bus locks.
class ListedCamera {
  public:
    // What a stay's beginning announces, and the removals of the stay before that were held back until then.
    struct Announcements {
        std::vector<InterfaceEvent> arrivals;
        std::vector<InterfaceEvent> lateRemovals;
        // They come at the service's first wait while it handles the first arrival, if it waits then.
        bool areDueAtAWait = false;
    };

    // `driverStartMs` is as in CameraSettings.
    ListedCamera(std::size_t camera, const LinkStyle& style, const Departure& departure,
                 std::optional<std::uint32_t> driverStartMs);

    // A stay begins, of a number that no camera has had.
    [[nodiscard]] Announcements Arrive(BusMode mode, unsigned stay, std::uint64_t nowMs);
    // It ends; the removals that are announced now. A camera that comes back may hold them back.
    [[nodiscard]] std::vector<InterfaceEvent> Leave(bool comesBack, std::uint64_t nowMs);
    // It does not come back after all: what was held back.
    [[nodiscard]] std::vector<InterfaceEvent> GiveUp();

    // As announced last.
    [[nodiscard]] BusMode Mode() const { return mode_; }
    [[nodiscard]] unsigned Stay() const { return stay_; }
    // Whether its driver opens it already, in DFU mode.
    [[nodiscard]] bool DriverHasStarted(std::uint64_t nowMs) const;

    // The links of its present interfaces in this class.
    [[nodiscard]] std::vector<std::wstring> PresentLinks(const GUID& interfaceClass) const;
    // The links under which it is among the sources of this kind.
    [[nodiscard]] std::vector<std::wstring> SourceLinks(SourceKind kind) const;
    // Whether the link is one of the running camera's sources, or the device in DFU mode, and it is there.
    [[nodiscard]] bool IsSource(std::wstring_view link) const;
    [[nodiscard]] bool IsDfuDevice(std::wstring_view link) const;

    // With what error a transfer in DFU mode ends whose device leaves meanwhile (`error` is the system's
    // own), and one that is asked for when its stay is over.
    [[nodiscard]] DWORD ErrorOfLeaving(DWORD error) const { return departure_.transferError.value_or(error); }
    [[nodiscard]] DWORD ErrorOfGone(unsigned stay, std::uint64_t nowMs) const;

  private:
    [[nodiscard]] std::vector<InterfaceEvent> Events(DWORD type) const;

    DeviceLinks links_;
    LinkStyle style_;
    Departure departure_;
    std::optional<std::uint32_t> driverStartMs_;
    BusMode mode_ = BusMode::Absent;
    unsigned stay_ = 0;
    std::optional<std::uint64_t> opensAtMs_;  // in DFU mode
    std::optional<std::uint64_t> leftAtMs_;   // when the stay ended
    std::vector<InterfaceEvent> heldBack_;
};

}  // namespace lab::rig
