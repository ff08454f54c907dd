// The guest's first process: makes the system ready, does what the host says, and switches the machine off.

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

#include "lab/guest/FirstProcess.h"
#include "lab/guest/Helper.h"
#include "lab/guest/ModuleSets.h"

namespace {

using namespace lab::guest;

constexpr char kPortName[] = "veyra.guest";
constexpr std::chrono::seconds kPortLimit{10};

void ServeTheHost() {
    MountFileSystems();
    const Places places;
    // From before the first driver is there: no device's arrival is missed.
    UeventSocket uevents;
    ModuleSets(places.modules).Load("boot");
    Helper(HostPort::Open(places, kPortName, kPortLimit), places, std::move(uevents)).Serve();
}

}  // namespace

int main() {
    if (getpid() != 1) {
        std::fputs("lab_guest is the first process of a virtual machine, and nothing else\n", stderr);
        return 2;
    }
    setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    try {
        ServeTheHost();
    } catch (const std::exception& error) {
        // The console, which the host keeps.
        std::fprintf(stderr, "lab_guest: %s\n", error.what());
    }
    PowerOff();
    return 1;
}
