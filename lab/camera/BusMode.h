#pragma once

namespace lab {

// Where the camera is on the bus.
enum class BusMode {
    Absent,   // not on the bus: unplugged, or between two enumerations
    Running,  // a UVC camera with its firmware extension unit
    Dfu,      // a USB device whose one interesting interface is of class 0xFE
};

}  // namespace lab
