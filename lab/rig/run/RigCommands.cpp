#include "lab/rig/run/RigCommands.h"

#include <filesystem>
#include <fstream>
#include <span>
#include <stdexcept>
#include <thread>

#include <nlohmann/json.hpp>

#include "lab/rig/process/ProcessResources.h"
#include "lab/rig/run/RunSettings.h"
#include "lab/rig/text/GuidText.h"
#include "lab/vocabulary/CameraFields.h"
#include "lab/wire/Utf8.h"
#include "lab/wire/Wire.h"

namespace lab::rig {
namespace {

using nlohmann::json;

bool IsCount(const json& value) {
    return value.is_number_integer() && value.get<std::int64_t>() >= 0;
}

std::size_t CameraOf(const json& command) {
    const json& camera = command.at("camera");
    if (!IsCount(camera)) {
        throw std::runtime_error("there is no camera " + camera.dump());
    }
    return camera.get<std::size_t>();
}

void SaveTo(const std::filesystem::path& path, std::span<const std::uint8_t> bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + Utf8(path.wstring()));
    }
}

InterfaceEvent EventOf(const json& command) {
    const auto interfaceClass = GuidFromText(command.at("class").get<std::string>());
    const json& type = command.at("type");
    if (!interfaceClass || !IsCount(type) || type.get<std::uint64_t>() > 0xFFFFFFFF) {
        throw std::runtime_error("a device event has a type and a class with braces");
    }
    return {type.get<DWORD>(), *interfaceClass, WideFromUtf8(command.at("link").get<std::string>()), false};
}

void Deliver(Bus& bus, const json& command) {
    const InterfaceEvent event = EventOf(command);
    const json times = command.value("times", json(1));
    if (!IsCount(times)) {
        throw std::runtime_error("an event cannot be delivered " + times.dump() + " times");
    }
    for (auto left = times.get<std::uint64_t>(); left > 0; --left) {
        bus.Announce(event);
    }
}

void PassTime(Bus& bus, const json& command) {
    constexpr std::uint64_t kMostMs = 600'000;
    const json& ms = command.at("ms");
    if (!IsCount(ms) || ms.get<std::uint64_t>() > kMostMs) {
        throw std::runtime_error("the time that passes cannot be " + ms.dump() + " ms");
    }
    bus.Skip(ms.get<std::uint32_t>());
}

// Threads that wait until the process ends: what it costs to have them.
void StartIdleThreads(const json& command) {
    constexpr std::uint64_t kMost = 100;
    const json& count = command.at("count");
    if (!IsCount(count) || count.get<std::uint64_t>() > kMost) {
        throw std::runtime_error("there cannot be " + count.dump() + " idle threads");
    }
    for (auto left = count.get<std::uint64_t>(); left > 0; --left) {
        std::thread([] { Sleep(INFINITE); }).detach();
    }
}

}  // namespace

EventBurst BurstOf(const json& command) {
    constexpr std::uint64_t kMost = 1'000'000;
    constexpr std::uint64_t kMostSeconds = 60;
    const auto number = [&command](const char* field) {
        const json& value = command.at(field);
        if (!IsCount(value) || value == 0 || value.get<std::uint64_t>() > kMost) {
            throw std::runtime_error("a burst's " + std::string(field) + " cannot be " + value.dump());
        }
        return value.get<std::uint64_t>();
    };
    const EventBurst burst{EventOf(command), number("count"), number("per_second")};
    if (burst.count / burst.perSecond > kMostSeconds) {
        throw std::runtime_error("a burst cannot take more than a minute");
    }
    return burst;
}

std::chrono::milliseconds RestOf(const json& command) {
    constexpr std::chrono::milliseconds kMost = std::chrono::days(366);
    const json& ms = command.at("ms");
    if (!IsCount(ms) || ms.get<std::uint64_t>() > static_cast<std::uint64_t>(kMost.count())) {
        throw std::runtime_error("a rest cannot take " + ms.dump() + " ms");
    }
    return std::chrono::milliseconds(ms.get<std::int64_t>());
}

json CarryOut(Bus& bus, const std::string& name, const json& command) {
    json answer = DoneEvent(name);
    if (name == "plug") {
        bus.Plug(CameraOf(command));
    } else if (name == "unplug") {
        bus.Unplug(CameraOf(command));
    } else if (name == "faults") {
        bus.SetFaults(CameraOf(command), ReadFaults(command.at("faults")));
    } else if (name == "state") {
        answer.update(bus.State(CameraOf(command)));
    } else if (name == "save-flash") {
        const auto flash = bus.Flash(CameraOf(command));
        SaveTo(WideFromUtf8(command.at("path").get<std::string>()), flash);
        answer["bytes"] = flash.size();
    } else if (name == "restage") {
        bus.ReplaceCameras(RunSettings::FromStage(command.at("stage")).bus);
    } else if (name == "deliver") {
        Deliver(bus, command);
    } else if (name == "resources") {
        answer["camera_bytes"] = bus.HeldBytes([&answer] {
            const ProcessResources resources = ProcessResources::Now();
            answer["handles"] = resources.handles;
            answer["threads"] = resources.threads;
            answer["private_bytes"] = resources.privateBytes;
            answer["thread_block_bytes"] = resources.threadBlockBytes;
        });
    } else if (name == "pass") {
        PassTime(bus, command);
    } else if (name == "idle-threads") {
        StartIdleThreads(command);
    } else {
        throw std::runtime_error("there is no such command");
    }
    return answer;
}

}  // namespace lab::rig
