#include "host/campaign/BootLoaderAnswers.h"

#include "lab/camera/BootLoader.h"
#include "lab/vocabulary/CameraFields.h"
#include "lab/vocabulary/HexText.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace campaign {

using nlohmann::json;

namespace {

constexpr std::size_t kSetupSize = 8;
constexpr std::uint8_t kToInterface = 0x01;

std::vector<std::uint8_t> BytesOf(const json& request, const char* name) {
    auto bytes = lab::BytesFromHex(request.at(name).get<std::string>());
    if (!bytes) {
        throw std::runtime_error(std::string(name) + " is not in hexadecimal digits");
    }
    return *std::move(bytes);
}

lab::SetupPacket SetupOf(const json& request) {
    const std::vector<std::uint8_t> bytes = BytesOf(request, "setup");
    if (bytes.size() != kSetupSize) {
        throw std::runtime_error("a setup packet has eight bytes");
    }
    const auto word = [&bytes](std::size_t place) {
        return static_cast<std::uint16_t>(bytes[place] | bytes[place + 1] << 8);
    };
    return {
        .requestType = bytes[0], .request = bytes[1], .value = word(2), .index = word(4), .length = word(6)};
}

lab::DfuAnswer Ask(lab::BootLoader& loader, const json& request, std::uint64_t nowMs) {
    const lab::SetupPacket setup = SetupOf(request);
    if (setup.requestType == kToInterface) {
        return {.end = loader.SetInterface()};
    }
    lab::DfuAnswer answer = loader.Handle(setup, BytesOf(request, "data"), nowMs);
    answer.reply.resize(std::min<std::size_t>(answer.reply.size(), setup.length));
    return answer;
}

}  // namespace

json AnswersOfBootLoader(const json& asked) {
    json others;
    lab::BootLoader loader(lab::ReadCameraFields(asked.at("camera"), others));
    loader.Start();
    json answers = json::array();
    for (const json& request : asked.at("requests")) {
        const auto nowMs = request.at("ms").get<std::uint64_t>();
        for (auto due = loader.NextDeadline(); due && *due <= nowMs; due = loader.NextDeadline()) {
            loader.Advance(*due);
        }
        const lab::DfuAnswer answer = loader.WantsReset()
                                          ? lab::DfuAnswer{.end = lab::TransferEnd::Disconnected}
                                          : Ask(loader, request, nowMs);
        if (answer.end == lab::TransferEnd::Disconnected) {
            answers.push_back({{"end", "gone"}, {"data", ""}});
            break;
        }
        const bool isOk = answer.end == lab::TransferEnd::Ok;
        answers.push_back({{"end", isOk ? "ok" : "stall"}, {"data", lab::HexText(answer.reply)}});
    }
    return answers;
}

}  // namespace campaign
