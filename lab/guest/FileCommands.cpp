#include "lab/guest/FileCommands.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "lab/guest/FileDescriptor.h"
#include "lab/guest/KernelError.h"
#include "lab/vocabulary/HexText.h"

namespace lab::guest {
namespace {

using nlohmann::json;

constexpr mode_t kFileMode = 0644;

std::uint64_t SizeOf(const FileDescriptor& file, const std::filesystem::path& path) {
    struct stat found {};
    Checked(fstat(file.Number(), &found), path.native());
    return static_cast<std::uint64_t>(found.st_size);
}

// Moves `bytes` to or from a place in a file, with pwrite or pread; how many were moved: fewer than all only
// at the end of a file that is read.
template <typename Byte, typename Move>
std::size_t MoveAll(Move move, const FileDescriptor& file, std::span<Byte> bytes, std::uint64_t from,
                    const std::filesystem::path& path) {
    std::size_t moved = 0;
    while (moved < bytes.size()) {
        const std::span<Byte> rest = bytes.subspan(moved);
        const ssize_t length =
            move(file.Number(), rest.data(), rest.size(), static_cast<off_t>(from + moved));
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length < 0) {
            throw KernelError(errno, path.native());
        }
        if (length == 0) {
            break;
        }
        moved += static_cast<std::size_t>(length);
    }
    return moved;
}

}  // namespace

void FileCommands::AddTo(CommandTable& table) {
    table.Add("write-file", [this](const Command& command) { return Write(command); });
    table.Add("read-file", [this](const Command& command) { return Read(command); });
    table.Add("remove-file", [this](const Command& command) { return Remove(command); });
}

json FileCommands::Write(const Command& command) const {
    const std::filesystem::path path = FileOf(command);
    const std::uint64_t from = command.Number("from", 0, kMostFileBytes);
    const std::vector<std::uint8_t> data = command.Bytes("data", kMostPieceBytes);
    if (from + data.size() > kMostFileBytes) {
        throw InvalidCommand("the file would have more than " + std::to_string(kMostFileBytes) + " bytes");
    }
    const FileDescriptor file(
        Checked(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, kFileMode), path.native()));
    if (from > SizeOf(file, path)) {
        throw InvalidCommand("from is behind the file's end");
    }
    Checked(ftruncate(file.Number(), static_cast<off_t>(from)), path.native());
    MoveAll(pwrite, file, std::span(data), from, path);
    return {{"size", from + data.size()}};
}

json FileCommands::Read(const Command& command) const {
    const std::filesystem::path path = FileOf(command);
    const std::uint64_t from = command.Number("from", 0, kMostFileBytes);
    std::vector<std::uint8_t> data(command.Number("length", 0, kMostPieceBytes));
    const FileDescriptor file = FileDescriptor::Open(path, O_RDONLY);
    data.resize(MoveAll(pread, file, std::span(data), from, path));
    return {{"data", HexText(data)}, {"size", SizeOf(file, path)}};
}

json FileCommands::Remove(const Command& command) const {
    const std::filesystem::path path = FileOf(command);
    Checked(unlink(path.c_str()), path.native());
    return json::object();
}

std::filesystem::path FileCommands::FileOf(const Command& command) const {
    const std::string name = command.Text("file");
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) {
        throw InvalidCommand("file is no file's name");
    }
    return folder_ / name;
}

}  // namespace lab::guest
