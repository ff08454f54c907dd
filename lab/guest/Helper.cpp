#include "lab/guest/Helper.h"

#include <poll.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/guest/Presence.h"

namespace lab::guest {
namespace {

using nlohmann::json;

json Hello() {
    utsname kernel{};
    uname(&kernel);
    return {{"event", "hello"},
            {"source", "guest"},
            {"pid", getpid()},
            {"command_line", "lab_guest"},
            {"kernel", kernel.release}};
}

int MillisecondsUntil(RunningProgram::Clock::time_point time) {
    const auto rest = time - RunningProgram::Clock::now();
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(rest).count();
    return static_cast<int>(std::max<decltype(milliseconds)>(milliseconds, 0));
}

}  // namespace

Helper::Helper(HostPort port, const Places& places, std::optional<UeventSocket> uevents)
    : port_(std::move(port)), uevents_(std::move(uevents)), usb_(places), system_(places), files_(places) {
    usb_.AddTo(commands_);
    system_.AddTo(commands_);
    files_.AddTo(commands_);
}

void Helper::Serve() {
    bool isConnected = port_.Send(Hello());
    while (isConnected && !system_.IsToEnd()) {
        isConnected = ServeOnce();
    }
}

bool Helper::ServeOnce() {
    const RunningProgram* const program = system_.Program();
    // A negative descriptor is left out by poll().
    const auto entry = [](int descriptor) { return pollfd{descriptor, POLLIN, 0}; };
    std::array<pollfd, 4> waiting{entry(port_.Descriptor()), entry(uevents_ ? uevents_->Descriptor() : -1),
                                  entry(program != nullptr ? program->Output() : -1),
                                  entry(program != nullptr ? program->Process() : -1)};
    const int limit = program != nullptr ? MillisecondsUntil(program->Deadline()) : -1;
    if (poll(waiting.data(), waiting.size(), limit) < 0) {
        return errno == EINTR;
    }
    if (waiting[1].revents != 0) {
        TellUevents();
    }
    if (program != nullptr) {
        TellProgramEnd();
    }
    return waiting[0].revents == 0 || TakeCommands();
}

bool Helper::TakeCommands() {
    if (!port_.Receive()) {
        return false;
    }
    while (const auto line = port_.NextLine()) {
        const auto answer = commands_.Answer(*line);
        if (answer && !port_.Send(*answer)) {
            return false;
        }
    }
    return true;
}

void Helper::TellUevents() {
    try {
        while (const auto uevent = uevents_->Next()) {
            const auto event = PresenceEvent(*uevent);
            if (!event) {
                continue;
            }
            if ((*event)["change"] == "removal") {
                usb_.Forget((*event)["path"].get_ref<const std::string&>());
            }
            port_.Send(*event);
        }
    } catch (const std::system_error& error) {
        port_.Send({{"event", "devices-lost"}, {"why", error.what()}});
    }
}

void Helper::TellProgramEnd() {
    if (const auto answer = system_.TakeProgramEnd()) {
        port_.Send(*answer);
    }
}

}  // namespace lab::guest
