#include "lab/served/ServedCameras.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <span>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "lab/vocabulary/CameraFields.h"
#include "lab/wire/DoneEvents.h"

namespace lab {
namespace {

using nlohmann::json;

void SaveTo(const std::filesystem::path& path, std::span<const std::uint8_t> bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

}  // namespace

ServedCameras::ServedCameras(const std::vector<CameraSettings>& settings, const Recorder& record) {
    cameras_.reserve(settings.size());
    for (const CameraSettings& each : settings) {
        cameras_.emplace_back(cameras_.size(), each, record);
    }
}

void ServedCameras::Advance(std::uint64_t nowMs) {
    for (ServedCamera& camera : cameras_) {
        camera.Advance(nowMs);
    }
}

std::optional<std::uint64_t> ServedCameras::NextDeadline() const {
    std::optional<std::uint64_t> first;
    for (const ServedCamera& camera : cameras_) {
        if (const auto due = camera.NextDeadline()) {
            first = std::min(first.value_or(*due), *due);
        }
    }
    return first;
}

json ServedCameras::CarryOut(const json& command, std::uint64_t nowMs) {
    const auto name = command.at("command").get<std::string>();
    json answer = DoneEvent(name);
    if (name == "plug") {
        CameraOf(command).Plug(nowMs);
    } else if (name == "unplug") {
        CameraOf(command).Unplug(nowMs);
    } else if (name == "state") {
        answer.update(CameraOf(command).State(nowMs));
    } else if (name == "save-flash") {
        const auto& flash = CameraOf(command).Device().Camera().Flash();
        SaveTo(command.at("path").get<std::string>(), flash);
        answer["bytes"] = flash.size();
    } else {
        throw std::runtime_error("there is no such command");
    }
    return answer;
}

ServedCamera& ServedCameras::CameraOf(const json& command) {
    const json& camera = command.at("camera");
    const bool isCount = camera.is_number_integer() && camera.get<std::int64_t>() >= 0;
    if (!isCount || camera.get<std::size_t>() >= cameras_.size()) {
        throw std::runtime_error("there is no camera " + camera.dump());
    }
    return cameras_[camera.get<std::size_t>()];
}

std::vector<CameraSettings> CamerasOfStage(const json& stage) {
    std::vector<CameraSettings> cameras;
    for (const auto& [field, value] : stage.items()) {
        if (field == "cameras") {
            for (const json& camera : value) {
                cameras.push_back(CameraOfFields(camera));
            }
        } else if (field != "reply") {
            throw std::runtime_error("a server's stage has no field " + field);
        }
    }
    return cameras;
}

CameraSettings CameraOfFields(const json& fields) {
    json others = json::object();
    CameraSettings settings = ReadCameraFields(fields, others);
    for (const auto& [field, value] : others.items()) {
        throw std::runtime_error("a served camera has no field " + field);
    }
    return settings;
}

}  // namespace lab
