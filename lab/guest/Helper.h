#pragma once

#include <optional>
#include <string>

#include "lab/guest/CommandTable.h"
#include "lab/guest/FileCommands.h"
#include "lab/guest/HostPort.h"
#include "lab/guest/Places.h"
#include "lab/guest/SystemCommands.h"
#include "lab/guest/UeventSocket.h"
#include "lab/guest/UsbCommands.h"

namespace lab::guest {

// The host's hand in the guest: does what comes over the port, and tells which USB devices come and go. One
// thread: a control transfer that waits holds up everything but a program that runs.
class Helper {
  public:
    // Without uevents nothing is told of devices. Throws std::runtime_error when the image has no modules.
    Helper(HostPort port, const Places& places, std::optional<UeventSocket> uevents);

    // Says hello, then serves until the host asks for the end or closes its end of the port.
    void Serve();

  private:
    // Waits until something is to be done, and does it. False when the host's end is closed.
    bool ServeOnce();
    bool TakeCommands();
    void TellUevents();
    void TellProgramEnd();

    HostPort port_;
    std::optional<UeventSocket> uevents_;
    UsbCommands usb_;
    SystemCommands system_;
    FileCommands files_;
    CommandTable commands_;
};

}  // namespace lab::guest
