#include "lab/served/CameraServer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

#include "lab/wire/DoneEvents.h"

namespace lab {
namespace {

using nlohmann::json;

std::uint64_t SteadyMs() {
    const auto since = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}

}  // namespace

ServerOptions ServerOptions::FromArguments(std::span<const char* const> arguments) {
    ServerOptions options;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        const std::string_view option = arguments[index];
        if (option != "--wire" && option != "--camera") {
            options.others.emplace_back(option);
            continue;
        }
        if (++index == arguments.size()) {
            throw std::runtime_error(std::string(option) + " wants a value");
        }
        if (option == "--wire") {
            options.wire = arguments[index];
        } else {
            options.cameras.push_back(CameraOfFields(json::parse(arguments[index])));
        }
    }
    if (!options.wire.empty() && !options.cameras.empty()) {
        throw std::runtime_error("with a wire, the cameras are those of its stage");
    }
    return options;
}

// The connection with the command-line program: JSON objects, one a line.
class CameraServer::Wire : public LoopMember {
  public:
    Wire(CameraServer& server, std::string_view place, std::string_view source)
        : server_(server), channel_(Socket::Connect(place)) {
        Send({{"event", "hello"}, {"source", source}});
    }

    void Send(const json& event) {
        const std::string line = event.dump(-1, ' ', false, json::error_handler_t::replace) + '\n';
        channel_.Send({reinterpret_cast<const std::uint8_t*>(line.data()), line.size()});
    }

    // The stage, for which it waits.
    json Stage() {
        constexpr std::uint64_t kPatienceMs = 5000;
        for (const std::uint64_t beginMs = SteadyMs(); SteadyMs() - beginMs < kPatienceMs;) {
            const bool isOpen = channel_.Fill();
            if (const auto line = NextLine()) {
                return json::parse(*line);
            }
            if (!isOpen) {
                break;
            }
            server_.loop_.RunOnce(1);
        }
        throw std::runtime_error("no stage came over the wire");
    }

    SocketHandle Handle() const override { return channel_.Handle(); }
    bool WantsToSend() const override { return channel_.WantsToSend(); }

    bool Serve(std::uint64_t) override {
        isOpen_ = channel_.Fill() && channel_.Flush();
        return true;
    }

    // Commands may have come together with the stage, before the loop has begun.
    bool KeepUp(std::uint64_t nowMs) override {
        while (const auto line = NextLine()) {
            Obey(json::parse(*line, nullptr, false), nowMs);
        }
        if (!isOpen_) {
            server_.isEnded_ = true;
            server_.wire_ = nullptr;
        }
        return isOpen_;
    }

    std::optional<std::uint64_t> NextDeadline() const override {
        return HasLine() ? std::optional<std::uint64_t>(0) : std::nullopt;
    }

  private:
    bool HasLine() const {
        const auto received = channel_.Received();
        return std::find(received.begin(), received.end(), kLineEnd) != received.end();
    }

    std::optional<std::string> NextLine() {
        if (!HasLine()) {
            return std::nullopt;
        }
        const auto received = channel_.Received();
        std::string line(received.begin(), std::find(received.begin(), received.end(), kLineEnd));
        channel_.Drop(line.size() + 1);
        return line;
    }

    void Obey(const json& command, std::uint64_t nowMs) {
        if (!command.is_object()) {
            Send(RefusedEvent("", "not a JSON object"));
            return;
        }
        const auto named = command.find("command");
        const std::string name =
            named != command.end() && named->is_string() ? named->get<std::string>() : "";
        try {
            Send(server_.cameras_->CarryOut(command, nowMs));
        } catch (const std::exception& error) {
            Send(RefusedEvent(name, error.what()));
        }
    }

    static constexpr std::uint8_t kLineEnd = '\n';

    CameraServer& server_;
    Channel channel_;
    bool isOpen_ = true;
};

// What the cameras do by themselves.
class CameraServer::Time : public LoopMember {
  public:
    explicit Time(ServedCameras& cameras) : cameras_(cameras) {}

    SocketHandle Handle() const override { return kNoSocket; }
    bool Serve(std::uint64_t) override { return true; }

    bool KeepUp(std::uint64_t nowMs) override {
        cameras_.Advance(nowMs);
        return true;
    }

    std::optional<std::uint64_t> NextDeadline() const override { return cameras_.NextDeadline(); }

  private:
    ServedCameras& cameras_;
};

CameraServer::CameraServer(const ServerOptions& options, std::string_view source) : loop_(SteadyMs) {
    const auto record = [this](const json& event) { Record(event); };
    if (options.wire.empty()) {
        const auto& cameras = options.cameras;
        cameras_ = std::make_unique<ServedCameras>(cameras.empty() ? std::vector<CameraSettings>(1) : cameras,
                                                   record);
    } else {
        auto wire = std::make_unique<Wire>(*this, options.wire, source);
        try {
            cameras_ = std::make_unique<ServedCameras>(CamerasOfStage(wire->Stage()), record);
        } catch (const std::exception& error) {
            wire->Send(RefusedEvent("stage", error.what()));
            throw;
        }
        wire_ = wire.get();
        loop_.Add(std::move(wire));
    }
    loop_.Add(std::make_unique<Time>(*cameras_));
    for (std::size_t camera = 0; options.wire.empty() && camera < cameras_->Count(); ++camera) {
        cameras_->At(camera).Plug(SteadyMs());
    }
}

CameraServer::~CameraServer() = default;

void CameraServer::Run() {
    constexpr std::uint32_t kRoundMs = 1000;
    while (!isEnded_) {
        loop_.RunOnce(kRoundMs);
    }
}

void CameraServer::Record(const json& event) {
    if (wire_ != nullptr) {
        wire_->Send(event);
    } else {
        std::puts(event.dump().c_str());
        std::fflush(stdout);
    }
}

}  // namespace lab
