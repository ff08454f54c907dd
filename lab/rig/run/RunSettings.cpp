#include "lab/rig/run/RunSettings.h"

#include <algorithm>

#include "lab/vocabulary/CameraFields.h"
#include "lab/vocabulary/StageFields.h"

namespace lab::rig {
namespace {

using nlohmann::json;

// Whether another kernel drives the cameras.
constexpr std::array<std::pair<std::string_view, bool>, 2> kBuses{{{"virtual", false}, {"usb", true}}};

constexpr std::array<std::pair<std::string_view, LinkStyle::Listed>, 2> kListings{{
    {"video camera", LinkStyle::Listed::AsVideoCamera},
    {"capture", LinkStyle::Listed::AsCapture},
}};

constexpr std::array<std::pair<std::string_view, Departure::Notices>, 3> kNotices{{
    {"with the leaving", Departure::Notices::WithTheLeaving},
    {"while the arrival is handled", Departure::Notices::WhileTheArrivalIsHandled},
    {"after the arrival is handled", Departure::Notices::AfterTheArrivalIsHandled},
}};

// Those with which Windows tells that a device is gone.
constexpr std::array<DWORD, 4> kUnplugErrors{ERROR_BAD_COMMAND, ERROR_GEN_FAILURE, 433,
                                             ERROR_DEVICE_NOT_CONNECTED};

constexpr std::array<std::pair<std::string_view, LinkStyle::Case>, 3> kLinkCases{{
    {"lower", LinkStyle::Case::Lower},
    {"upper", LinkStyle::Case::Upper},
    {"mixed", LinkStyle::Case::Mixed},
}};

constexpr std::array<std::pair<std::string_view, StartingPlace>, 3> kStarts{{
    {"unplugged", StartingPlace::Unplugged},
    {"running", StartingPlace::Running},
    {"dfu", StartingPlace::InDfuMode},
}};

// False when no such field belongs to the links.
bool ReadLinkField(LinkStyle& style, const std::string& field, const json& value) {
    if (field == "link_case") {
        style.announcedIn = ToChoice(field, value, kLinkCases);
    } else if (field == "link_length") {
        style.length = ToNumber<std::uint16_t>(field, value);
    } else if (field == "listed_twice") {
        style.isListedTwice = value.get<bool>();
    } else if (field == "listed_as") {
        style.listed = ToChoice(field, value, kListings);
    } else {
        return false;
    }
    return true;
}

// False when no such field belongs to a camera's leaving.
bool ReadDepartureField(Departure& departure, const std::string& field, const json& value) {
    if (field == "removal_notices") {
        departure.notices = ToChoice(field, value, kNotices);
    } else if (field == "unplug_error") {
        const auto error = ToNumber<DWORD>(field, value);
        if (std::ranges::find(kUnplugErrors, error) == kUnplugErrors.end()) {
            Refuse(field, value);
        }
        departure.transferError = error;
    } else {
        return false;
    }
    return true;
}

void AddCamera(BusSettings& bus, const json& fields) {
    json others = json::object();
    bus.cameras.push_back(ReadCameraFields(fields, others));
    LinkStyle& style = bus.linkStyles.emplace_back();
    Departure& departure = bus.departures.emplace_back();
    StartingPlace& start = bus.startingPlaces.emplace_back(StartingPlace::Unplugged);
    for (const auto& [field, value] : others.items()) {
        if (field == "starts") {
            start = ToChoice(field, value, kStarts);
        } else if (!ReadLinkField(style, field, value) && !ReadDepartureField(departure, field, value)) {
            throw std::runtime_error("a camera has no field " + field);
        }
    }
}

std::optional<RunSettings::TraceSession> ToTraceSession(const json& value) {
    if (value.is_null()) {
        return std::nullopt;
    }
    return RunSettings::TraceSession{ToNumber<std::uint8_t>("trace level", value.at("level")),
                                     ToNumber<std::uint32_t>("trace flags", value.at("flags"))};
}

}  // namespace

RunSettings RunSettings::FromStage(const json& stage) {
    RunSettings settings;
    for (const auto& [field, value] : stage.items()) {
        if (field == "trace") {
            settings.trace = ToTraceSession(value);
        } else if (field == "transfer_us") {
            settings.bus.transferTime = std::chrono::microseconds(ToNumber<std::uint32_t>(field, value));
        } else if (field == "skip_waits") {
            settings.bus.skipsWaits = value.get<bool>();
        } else if (field == "bus") {
            settings.bus.isOnKernelBus = ToChoice(field, value, kBuses);
        } else if (field == "failed_media_starts") {
            settings.failedMediaStarts = ToNumber<std::uint32_t>(field, value);
        } else if (field == "event_records") {
            settings.eventRecords = value.get<std::vector<std::string>>();
        } else if (field == "records_prompts") {
            settings.recordsPrompts = value.get<bool>();
        } else if (field == "cameras") {
            for (const json& camera : value) {
                AddCamera(settings.bus, camera);
            }
        } else if (field != "reply") {
            throw std::runtime_error("the stage has no field " + field);
        }
    }
    if (settings.bus.isOnKernelBus && settings.bus.skipsWaits) {
        throw std::runtime_error("the stage's skip_waits cannot be true where another kernel drives the bus");
    }
    const bool areUnplugged = std::ranges::all_of(
        settings.bus.startingPlaces, [](StartingPlace start) { return start == StartingPlace::Unplugged; });
    if (settings.bus.isOnKernelBus && !areUnplugged) {
        throw std::runtime_error("the stage's starts cannot be on the bus where another kernel drives it");
    }
    return settings;
}

}  // namespace lab::rig
