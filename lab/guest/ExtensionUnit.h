#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string_view>

namespace lab::guest {

// A query of the UVC 1.1 standard, by its name there: "SET_CUR", "GET_CUR", "GET_MIN", "GET_MAX", "GET_RES",
// "GET_LEN", "GET_INFO", "GET_DEF". Nothing for another text.
[[nodiscard]] std::optional<std::uint8_t> UvcQuery(std::string_view name);
// Whether the device is to send something.
[[nodiscard]] bool IsFromDevice(std::uint8_t query);

// A control of an extension unit, at most so many bytes.
inline constexpr std::size_t kMostUnitBytes = 65535;

// Has the UVC driver put one query to a control of an extension unit, through the camera's video node. `data`
// is sent, or filled whole. Throws std::system_error with the kernel's error; ENOBUFS when the control has
// another length.
void QueryExtensionUnit(const std::filesystem::path& videoNode, std::uint8_t unit, std::uint8_t selector,
                        std::uint8_t query, std::span<std::uint8_t> data);

}  // namespace lab::guest
