#pragma once

#include "lab/camera/CameraSettings.h"

#include <span>
#include <string_view>

namespace campaign {

// A camera of the campaign: a personality, or one whose flash or boot loader is another. Blocks go over the
// ends of wide pages; only a camera that forgets its state while it has power ever puts back what it has
// overwritten.
struct Kind {
    std::string_view name;
    lab::Personality personality = lab::Personality::Kv400;
    bool hasTwoBanks = false;
    std::uint16_t pageSize = 1024;
    lab::DfuTraits::BootCheck bootCheck = lab::DfuTraits::BootCheck::Record;
    bool putsBack = true;
};

// All of them, the KV400 first.
[[nodiscard]] std::span<const Kind> Kinds();
// Null when there is none of that name.
[[nodiscard]] const Kind* FindKind(std::string_view name);

// A faultless camera of the kind: it writes a block in 150 ms and is manifested in 300 ms.
[[nodiscard]] lab::CameraSettings SettingsOf(const Kind& kind);

}  // namespace campaign
