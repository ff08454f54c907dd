#pragma once

#include "lab/served/Channel.h"
#include "lab/served/ServedCameras.h"
#include "lab/served/ServerLoop.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace lab {

// What a server's command line says: everything that is not the server's own stands in `others`.
//   --wire tcp:ADDRESS:PORT   a command-line program of the laboratory listens there: it stages and
//                             commands, and is told what crosses the bus
//   --camera FIELDS           without a wire: a camera in the JSON words of a stage; one KV400 unless told
struct ServerOptions {
    std::string wire = {};
    std::vector<CameraSettings> cameras = {};
    std::vector<std::string> others = {};

    // Throws std::exception, with a text for the person, for what makes no sense.
    [[nodiscard]] static ServerOptions FromArguments(std::span<const char* const> arguments);
};

// The part of a server that is the same for every protocol: the cameras, the wire, the loop. With a wire the
// server does what it is told, and ends with it. Without one its cameras are plugged in at once, what would
// be told stands on the standard output, and it runs until it is killed. For one thread.
class CameraServer {
  public:
    // `source` is what it calls itself on the wire. Throws std::exception, with a text for the person, when
    // there is no wire or the stage is impossible, which the wire is told too.
    CameraServer(const ServerOptions& options, std::string_view source);
    ~CameraServer();
    CameraServer(const CameraServer&) = delete;
    CameraServer& operator=(const CameraServer&) = delete;

    [[nodiscard]] ServedCameras& Cameras() { return *cameras_; }
    // Where a protocol's listeners and connections belong.
    [[nodiscard]] ServerLoop& Loop() { return loop_; }

    // Until the wire ends.
    void Run();

  private:
    class Wire;
    class Time;

    void Record(const nlohmann::json& event);

    std::unique_ptr<ServedCameras> cameras_;  // outlives those that serve them
    ServerLoop loop_;
    Wire* wire_ = nullptr;  // owned by the loop; null without one, and once it has ended
    bool isEnded_ = false;
};

}  // namespace lab
