#include "lab/camera/InterfaceSettings.h"

#include "lab/camera/DescriptorWalk.h"
#include "lab/camera/UsbTypes.h"

#include <algorithm>

namespace lab {

InterfaceSettings::InterfaceSettings(std::span<const std::uint8_t> configuration) {
    constexpr std::size_t kInterfaceSize = 9;
    constexpr std::size_t kEndpointSize = 7;
    WalkDescriptors(configuration, [this](std::span<const std::uint8_t> bytes) {
        const DescriptorType type{bytes[1]};
        if (type == DescriptorType::Interface && bytes.size() >= kInterfaceSize) {
            settings_.push_back({.number = bytes[2],
                                 .alternate = bytes[3],
                                 .interfaceClass = bytes[5],
                                 .subclass = bytes[6],
                                 .protocol = bytes[7],
                                 .endpoints = {}});
            if (!Alternate(bytes[2])) {
                interfaces_.push_back({.number = bytes[2], .alternate = 0});
            }
        } else if (type == DescriptorType::Endpoint && bytes.size() >= kEndpointSize && !settings_.empty()) {
            settings_.back().endpoints.push_back(
                {.address = bytes[2],
                 .attributes = bytes[3],
                 .packetSize = static_cast<std::uint16_t>(bytes[4] | bytes[5] << 8),
                 .interval = bytes[6]});
        }
    });
}

std::vector<InterfaceSettings::Setting> InterfaceSettings::Chosen() const {
    std::vector<Setting> chosen;
    for (const Interface& each : interfaces_) {
        if (const Setting* const setting = Find(each.number, each.alternate)) {
            chosen.push_back(*setting);
        }
    }
    return chosen;
}

std::optional<std::uint8_t> InterfaceSettings::Alternate(std::uint8_t number) const {
    for (const Interface& each : interfaces_) {
        if (each.number == number) {
            return each.alternate;
        }
    }
    return std::nullopt;
}

bool InterfaceSettings::Choose(std::uint8_t number, std::uint8_t alternate) {
    const Setting* const setting = Find(number, alternate);
    if (setting == nullptr) {
        return false;
    }
    for (Interface& each : interfaces_) {
        if (each.number == number) {
            each.alternate = alternate;
        }
    }
    for (const Endpoint& endpoint : setting->endpoints) {
        halted_.erase(endpoint.address);
    }
    return true;
}

std::optional<bool> InterfaceSettings::IsHalted(std::uint8_t endpoint) const {
    for (const Setting& setting : Chosen()) {
        for (const Endpoint& each : setting.endpoints) {
            if (each.address == endpoint) {
                return halted_.contains(endpoint);
            }
        }
    }
    return std::nullopt;
}

bool InterfaceSettings::SetHalt(std::uint8_t endpoint, bool isHalted) {
    if (!IsHalted(endpoint)) {
        return false;
    }
    if (isHalted) {
        halted_.insert(endpoint);
    } else {
        halted_.erase(endpoint);
    }
    return true;
}

const InterfaceSettings::Setting* InterfaceSettings::Find(std::uint8_t number, std::uint8_t alternate) const {
    const auto found = std::find_if(settings_.begin(), settings_.end(), [=](const Setting& setting) {
        return setting.number == number && setting.alternate == alternate;
    });
    return found != settings_.end() ? &*found : nullptr;
}

}  // namespace lab
