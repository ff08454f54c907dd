#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace lab::guest {

// What the kernel tells about one of its devices: the keys and texts of <linux/netlink.h>'s
// NETLINK_KOBJECT_UEVENT.
struct Uevent {
    std::map<std::string, std::string, std::less<>> fields;

    // The text of a key; empty when there is none.
    [[nodiscard]] std::string_view Field(std::string_view key) const;
};

// Reads a message: "ACTION@DEVPATH", then "KEY=TEXT" each, all ended by a zero. Nothing for what is none.
[[nodiscard]] std::optional<Uevent> ParseUevent(std::string_view message);

}  // namespace lab::guest
