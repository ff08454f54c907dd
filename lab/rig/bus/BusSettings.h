#pragma once

#include <chrono>
#include <vector>

#include "lab/camera/CameraSettings.h"
#include "lab/rig/bus/Departure.h"
#include "lab/rig/bus/DeviceLinks.h"
#include "lab/rig/bus/StartingPlace.h"

namespace lab::rig {

// What a scenario decides about the bus and the cameras on it.
struct BusSettings {
    std::chrono::microseconds transferTime{0};
    // Sleeps of the service's control thread move the bus's clock instead of passing; so do its waits that
    // time out.
    bool skipsWaits = false;
    // Another kernel drives the cameras, in real time: no waits are skipped.
    bool isOnKernelBus = false;
    std::vector<CameraSettings> cameras;
    // Of the cameras, in their order; what is missing is a plain one.
    std::vector<LinkStyle> linkStyles;
    std::vector<Departure> departures;
    std::vector<StartingPlace> startingPlaces;
};

}  // namespace lab::rig
