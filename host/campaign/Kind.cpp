#include "host/campaign/Kind.h"

#include <algorithm>
#include <vector>

namespace campaign {
namespace {

std::vector<Kind> MakeKinds() {
    using BootCheck = lab::DfuTraits::BootCheck;
    std::vector<Kind> kinds;
    for (const auto& [name, personality] : lab::kPersonalities) {
        kinds.push_back({.name = name, .personality = personality});
    }
    kinds.push_back({.name = "two-banks", .hasTwoBanks = true});
    kinds.push_back({.name = "wide-pages", .pageSize = 1056});
    kinds.push_back({.name = "overwrites", .personality = lab::Personality::Forgetful, .putsBack = false});
    kinds.push_back({.name = "first-page", .bootCheck = BootCheck::FirstPage});
    kinds.push_back(
        {.name = "first-page-of-two-banks", .hasTwoBanks = true, .bootCheck = BootCheck::FirstPage});
    return kinds;
}

}  // namespace

std::span<const Kind> Kinds() {
    static const std::vector<Kind> kinds = MakeKinds();
    return kinds;
}

const Kind* FindKind(std::string_view name) {
    const auto found = std::ranges::find(Kinds(), name, &Kind::name);
    return found != Kinds().end() ? &*found : nullptr;
}

lab::CameraSettings SettingsOf(const Kind& kind) {
    lab::CameraSettings settings;
    settings.personality = kind.personality;
    settings.traits = lab::TraitsOf(kind.personality);
    settings.traits->bootCheck = kind.bootCheck;
    settings.traits->putsBack = kind.putsBack;
    settings.hasTwoBanks = kind.hasTwoBanks;
    settings.pageSize = kind.pageSize;
    settings.blockMs = 150;
    settings.manifestMs = 300;
    return settings;
}

}  // namespace campaign
