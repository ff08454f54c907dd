#include "lab/served/CameraServer.h"
#include "lab/usbredir/RedirConnection.h"
#include "lab/usbredir/RedirPort.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>

namespace {

constexpr char kUsage[] =
    "usage: lab_usbredir [--wire tcp:ADDRESS:PORT | --camera FIELDS...] (--listen PLACE | --connect "
    "PLACE)...\n"
    "Serves virtual cameras over the usbredir protocol, one at each place, in their order.\n"
    "PLACE is unix:PATH or tcp:ADDRESS:PORT, FIELDS what a stage says of a camera, as JSON.\n"
    "A camera without a place stays out of a host's reach; a host that is connected to is not connected to "
    "again.\n";

void TakePlaces(lab::CameraServer& server, const std::vector<std::string>& words) {
    if (words.empty() || words.size() % 2 != 0) {
        throw std::runtime_error(kUsage);
    }
    for (std::size_t index = 0; index < words.size(); index += 2) {
        const std::size_t number = index / 2;
        if (number >= server.Cameras().Count()) {
            throw std::runtime_error("there are more places than cameras");
        }
        lab::ServedCamera& camera = server.Cameras().At(number);
        const std::string& place = words[index + 1];
        if (words[index] == "--listen") {
            server.Loop().Add(
                std::make_unique<lab::RedirPort>(lab::Socket::Listen(place), camera, server.Loop()));
        } else if (words[index] == "--connect") {
            server.Loop().Add(
                std::make_unique<lab::RedirConnection>(lab::Socket::Connect(place), camera, [] {}));
        } else {
            throw std::runtime_error(kUsage);
        }
    }
}

}  // namespace

int main(int count, char** arguments) {
    try {
        const auto options = lab::ServerOptions::FromArguments(
            std::span<const char* const>(arguments, static_cast<std::size_t>(count)).subspan(1));
        lab::CameraServer server(options, "usbredir");
        TakePlaces(server, options.others);
        server.Run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
