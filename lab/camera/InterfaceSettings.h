#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <vector>

namespace lab {

// The interfaces of a configured device: which alternate setting of each is chosen, and which of their
// endpoints are halted. Made from a configuration descriptor of any content, read as WalkDescriptors() does;
// at first every interface has setting 0. For one thread.
class InterfaceSettings {
  public:
    struct Endpoint {
        std::uint8_t address;
        std::uint8_t attributes;
        std::uint16_t packetSize;
        std::uint8_t interval;
    };
    struct Setting {
        std::uint8_t number;
        std::uint8_t alternate;
        std::uint8_t interfaceClass;
        std::uint8_t subclass;
        std::uint8_t protocol;
        std::vector<Endpoint> endpoints;
    };

    explicit InterfaceSettings(std::span<const std::uint8_t> configuration);

    // The settings that are chosen, in the descriptor's order.
    [[nodiscard]] std::vector<Setting> Chosen() const;
    // The alternate setting of this interface; empty when there is no such interface.
    [[nodiscard]] std::optional<std::uint8_t> Alternate(std::uint8_t number) const;
    // False, without an effect, when the interface has no such setting. The endpoints of the one that is
    // chosen are not halted.
    [[nodiscard]] bool Choose(std::uint8_t number, std::uint8_t alternate);

    // Empty for an endpoint that no chosen setting has.
    [[nodiscard]] std::optional<bool> IsHalted(std::uint8_t endpoint) const;
    // False, without an effect, for such an endpoint.
    [[nodiscard]] bool SetHalt(std::uint8_t endpoint, bool isHalted);

  private:
    struct Interface {
        std::uint8_t number;
        std::uint8_t alternate;
    };

    [[nodiscard]] const Setting* Find(std::uint8_t number, std::uint8_t alternate) const;

    std::vector<Setting> settings_;
    std::vector<Interface> interfaces_;
    std::set<std::uint8_t> halted_;
};

}  // namespace lab
