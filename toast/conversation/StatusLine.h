#pragma once

#include <cstdint>
#include <string_view>
#include <variant>

namespace toast {

// "start:" and a number: a download begins. The number of blocks is rounded down: an image whose last block
// is a short one has one block more.
struct DownloadStart {
    std::uint32_t blocks;

    bool operator==(const DownloadStart&) const = default;
};

// A number alone: so many blocks have been taken, modulo 65536.
struct BlocksTaken {
    std::uint32_t number;

    bool operator==(const BlocksTaken&) const = default;
};

// A line of download status. std::monostate is every text that is neither, and means nothing.
using StatusLine = std::variant<std::monostate, DownloadStart, BlocksTaken>;

[[nodiscard]] StatusLine StatusLineOf(std::wstring_view text);

}  // namespace toast
