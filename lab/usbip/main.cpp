#include "lab/served/CameraServer.h"
#include "lab/usbip/UsbIpPort.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>

namespace {

constexpr char kUsage[] =
    "usage: lab_usbip [--wire tcp:ADDRESS:PORT | --camera FIELDS...] [--listen tcp:ADDRESS:PORT]\n"
    "Serves virtual cameras over the USB/IP protocol, at tcp:127.0.0.1:3240 unless told.\n"
    "FIELDS is what a stage says of a camera, as JSON.\n";

std::string PlaceOf(const lab::ServerOptions& options) {
    if (options.others.empty()) {
        return "tcp:127.0.0.1:3240";
    }
    if (options.others.size() != 2 || options.others[0] != "--listen") {
        throw std::runtime_error(kUsage);
    }
    return options.others[1];
}

}  // namespace

int main(int count, char** arguments) {
    try {
        const auto options = lab::ServerOptions::FromArguments(
            std::span<const char* const>(arguments, static_cast<std::size_t>(count)).subspan(1));
        lab::ImportedCameras imported;
        lab::Socket listener = lab::Socket::Listen(PlaceOf(options));
        lab::CameraServer server(options, "usbip");
        server.Loop().Add(
            std::make_unique<lab::UsbIpPort>(std::move(listener), server.Cameras(), imported, server.Loop()));
        server.Run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
