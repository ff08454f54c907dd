#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace lab::guest {

// One line of the kernel's log.
struct KernelRecord {
    unsigned level = 0;              // 0 for an emergency, 3 for an error, 4 for a warning, 7 for debugging
    std::uint64_t number = 0;        // rises by one from record to record
    std::uint64_t microseconds = 0;  // since the boot
    std::string text;
};

// Reads a record as /dev/kmsg hands it out: "level,number,microseconds,flags;text", and after the line's end
// what may follow. Nothing for what is none.
[[nodiscard]] std::optional<KernelRecord> ParseKernelRecord(std::string_view record);

// The records that the kernel still has, from number `first` on, in their order. Throws std::system_error
// when the log cannot be opened.
[[nodiscard]] std::vector<KernelRecord> KernelRecords(const std::filesystem::path& log, std::uint64_t first);

}  // namespace lab::guest
