#include "lab/guest/KernelLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <utility>

#include "lab/guest/FileDescriptor.h"
#include "lab/guest/KernelError.h"

namespace lab::guest {
namespace {

// The facility stands above the level's three bits.
constexpr std::uint64_t kLevelBits = 7;
constexpr std::size_t kLongestRecord = 8192;

// Takes a number and the character behind it off the front.
std::optional<std::uint64_t> TakeNumber(std::string_view& text) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end == text.data() + text.size() || *end != ',') {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
    return number;
}

}  // namespace

std::optional<KernelRecord> ParseKernelRecord(std::string_view record) {
    const auto priority = TakeNumber(record);
    const auto number = priority ? TakeNumber(record) : std::nullopt;
    const auto microseconds = number ? TakeNumber(record) : std::nullopt;
    const std::size_t text = record.find(';');
    if (!microseconds || text == std::string_view::npos) {
        return std::nullopt;
    }
    const std::size_t end = record.find('\n', text);
    return KernelRecord{static_cast<unsigned>(*priority & kLevelBits), *number, *microseconds,
                        std::string(record.substr(text + 1, end - text - 1))};
}

std::vector<KernelRecord> KernelRecords(const std::filesystem::path& log, std::uint64_t first) {
    const FileDescriptor file = FileDescriptor::Open(log, O_RDONLY | O_NONBLOCK);
    std::vector<KernelRecord> records;
    std::array<char, kLongestRecord> buffer{};
    for (;;) {
        const ssize_t length = read(file.Number(), buffer.data(), buffer.size());
        // EPIPE: the kernel has overwritten what would have come next, and goes on behind it.
        if (length < 0 && (errno == EPIPE || errno == EINTR)) {
            continue;
        }
        if (length <= 0) {
            return records;
        }
        auto record = ParseKernelRecord({buffer.data(), static_cast<std::size_t>(length)});
        if (record && record->number >= first) {
            records.push_back(std::move(*record));
        }
    }
}

}  // namespace lab::guest
