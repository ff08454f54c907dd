#include "check/AccessList.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace check {
namespace {

constexpr std::string_view kEverybody = "S-1-1-0";
// Windows itself, the administrators, the installer of Windows' own files, and the stand-ins for an owner,
// who is judged by name.
constexpr std::array<std::string_view, 5> kTrusted{
    "S-1-5-18", "S-1-5-32-544", "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464", "S-1-3-0",
    "S-1-3-4"};
// LocalService, and the groups that its token has: everybody, local, services, authenticated users, users.
constexpr std::array<std::string_view, 6> kLocalService{"S-1-5-19", kEverybody, "S-1-2-0",
                                                        "S-1-5-6",  "S-1-5-11", "S-1-5-32-545"};

constexpr std::uint32_t kDelete = 0x10000;
constexpr std::uint32_t kChangeList = 0x40000;
constexpr std::uint32_t kTakeOwnership = 0x80000;
constexpr std::uint32_t kGenericAll = 0x10000000;
constexpr std::uint32_t kGenericWrite = 0x40000000;
constexpr std::uint32_t kWriteData = 2;   // of a folder: add a file
constexpr std::uint32_t kAppendData = 4;  // of a folder: add a folder, which does no harm
constexpr std::uint32_t kDeleteChild = 0x40;
constexpr std::uint32_t kAlways =
    kDelete | kChangeList | kTakeOwnership | kGenericAll | kGenericWrite | kWriteData;

constexpr std::uint32_t kGenericRead = 0x80000000;
// What opening a file for reading takes, but for its attributes, which the folder's list gives, too.
constexpr std::uint32_t kReadFile = 0x120009;

// Of COM's servers.
constexpr std::uint32_t kExecute = 1;
constexpr std::uint32_t kExecuteLocal = 2;
constexpr std::uint32_t kExecuteRemote = 4;
constexpr std::uint32_t kActivateLocal = 8;
constexpr std::uint32_t kActivateRemote = 16;
constexpr std::uint32_t kNewer = kExecuteLocal | kExecuteRemote | kActivateLocal | kActivateRemote;

bool IsTrusted(std::string_view trustee) {
    return std::find(kTrusted.begin(), kTrusted.end(), trustee) != kTrusted.end();
}

void AddOnce(std::vector<std::string>& list, const std::string& trustee) {
    if (std::find(list.begin(), list.end(), trustee) == list.end()) {
        list.push_back(trustee);
    }
}

// What an entry before this one has refused to the same trustee, or to everybody.
std::uint32_t RefusedBefore(const AccessList& list, const AccessEntry& entry) {
    std::uint32_t refused = 0;
    for (const AccessEntry& before : list.entries) {
        if (&before == &entry) {
            break;
        }
        if (!before.allows && (before.trustee == entry.trustee || before.trustee == kEverybody)) {
            refused |= before.rights;
        }
    }
    return refused;
}

// What a right of COM's stands for. Older programs write the first alone, for all.
std::uint32_t OfComServer(std::uint32_t rights) {
    const bool isOlder = (rights & kNewer) == 0 && (rights & kExecute) != 0;
    return isOlder || (rights & kGenericAll) != 0 ? kNewer : rights;
}

std::uint32_t OfFile(std::uint32_t rights) {
    return (rights & (kGenericRead | kGenericAll)) != 0 ? rights | kReadFile : rights;
}

// Entry by entry, as Windows does it: a right is granted or refused by the first entry that names it.
Permission PermissionOf(const AccessList& list, std::uint32_t wanted, std::uint32_t (*meant)(std::uint32_t)) {
    if (list.letsEverybody) {
        return Permission::Granted;
    }
    std::uint32_t granted = 0;
    std::uint32_t refused = 0;
    for (const AccessEntry& entry : list.entries) {
        const bool isForIt =
            std::find(kLocalService.begin(), kLocalService.end(), entry.trustee) != kLocalService.end();
        if (isForIt && !entry.isForChildrenOnly) {
            (entry.allows ? granted : refused) |= meant(entry.rights) & ~(entry.allows ? refused : granted);
        }
    }
    return (granted & wanted) == wanted ? Permission::Granted : Permission::Refused;
}

// The layout of a self-relative security descriptor, in bytes.
constexpr std::size_t kHeaderSize = 20;
constexpr std::size_t kOwnerAt = 4;
constexpr std::size_t kGroupAt = 8;
constexpr std::size_t kSystemListAt = 12;
constexpr std::size_t kListAt = 16;
constexpr std::uint32_t kHasList = 0x4;
constexpr std::uint32_t kIsSelfRelative = 0x8000;
constexpr std::size_t kSidHeaderSize = 8;
constexpr std::size_t kMostSubauthorities = 15;
constexpr std::size_t kListHeaderSize = 8;
constexpr std::size_t kEntryHeaderSize = 8;  // with the rights
constexpr std::uint8_t kAllows = 0;
constexpr std::uint8_t kRefuses = 1;
constexpr std::uint8_t kInheritOnly = 8;

using Bytes = std::span<const std::uint8_t>;

// Least significant byte first. The bytes have to be there.
std::uint32_t Number(Bytes bytes, std::size_t at, std::size_t size) {
    std::uint32_t number = 0;
    for (std::size_t index = 0; index < size; ++index) {
        number |= std::uint32_t{bytes[at + index]} << (8 * index);
    }
    return number;
}

// The text of the SID that the bytes begin with; empty when they are too few, or none.
std::optional<std::string> SidText(Bytes bytes) {
    if (bytes.size() < kSidHeaderSize || bytes[0] != 1 || bytes[1] > kMostSubauthorities ||
        bytes.size() - kSidHeaderSize < bytes[1] * sizeof(std::uint32_t)) {
        return std::nullopt;
    }
    std::uint64_t authority = 0;
    for (const std::uint8_t byte : bytes.subspan(2, 6)) {
        authority = authority << 8U | byte;
    }
    std::string text = "S-1-" + std::to_string(authority);
    for (std::size_t index = 0; index < bytes[1]; ++index) {
        text += "-" + std::to_string(Number(bytes, kSidHeaderSize + 4 * index, 4));
    }
    return text;
}

// The bytes of a list with its header; empty when it leaves them.
std::optional<Bytes> ListAt(Bytes descriptor, std::size_t offset) {
    if (offset > descriptor.size() || descriptor.size() - offset < kListHeaderSize) {
        return std::nullopt;
    }
    const std::size_t size = Number(descriptor, offset + 2, 2);
    return size < kListHeaderSize || size > descriptor.size() - offset
               ? std::nullopt
               : std::optional(descriptor.subspan(offset, size));
}

bool ReadEntries(Bytes list, std::vector<AccessEntry>& entries) {
    const std::size_t count = Number(list, 4, 2);
    Bytes rest = list.subspan(kListHeaderSize);
    for (std::size_t index = 0; index < count; ++index) {
        const std::size_t size = rest.size() < 4 ? 0 : Number(rest, 2, 2);
        if (size < 4 || size > rest.size()) {
            return false;
        }
        const Bytes entry = rest.first(size);
        rest = rest.subspan(size);
        if (entry[0] != kAllows && entry[0] != kRefuses) {
            continue;
        }
        const auto trustee =
            size < kEntryHeaderSize ? std::nullopt : SidText(entry.subspan(kEntryHeaderSize));
        if (!trustee) {
            return false;
        }
        entries.push_back(
            {entry[0] == kAllows, (entry[1] & kInheritOnly) != 0, *trustee, Number(entry, 4, 4)});
    }
    return true;
}

// The SID at an offset of the header; an empty text when there is none.
std::optional<std::string> SidAt(Bytes descriptor, std::size_t at) {
    const std::size_t offset = Number(descriptor, at, 4);
    if (offset == 0) {
        return std::string();
    }
    return offset > descriptor.size() ? std::nullopt : SidText(descriptor.subspan(offset));
}

}  // namespace

std::optional<AccessList> ReadAccessList(Bytes descriptor) {
    if (descriptor.size() < kHeaderSize || descriptor[0] != 1) {
        return std::nullopt;
    }
    const std::uint32_t control = Number(descriptor, 2, 2);
    const auto owner = SidAt(descriptor, kOwnerAt);
    const std::size_t systemList = Number(descriptor, kSystemListAt, 4);
    if ((control & kIsSelfRelative) == 0 || !owner || !SidAt(descriptor, kGroupAt) ||
        (systemList != 0 && !ListAt(descriptor, systemList))) {
        return std::nullopt;
    }
    AccessList read;
    read.owner = *owner;
    const std::size_t offset = Number(descriptor, kListAt, 4);
    read.letsEverybody = (control & kHasList) == 0 || offset == 0;
    if (!read.letsEverybody) {
        const auto list = ListAt(descriptor, offset);
        if (!list || !ReadEntries(*list, read.entries)) {
            return std::nullopt;
        }
    }
    return read;
}

std::vector<std::string> Writers(const AccessList& list, Protected what) {
    std::vector<std::string> writers;
    if (list.letsEverybody) {
        return {std::string(kEverybody)};
    }
    const std::uint32_t dangerous = kAlways | (what == Protected::File ? kAppendData : kDeleteChild);
    for (const AccessEntry& entry : list.entries) {
        const bool counts = entry.allows && !entry.isForChildrenOnly && !IsTrusted(entry.trustee);
        if (counts && (entry.rights & ~RefusedBefore(list, entry) & dangerous) != 0) {
            AddOnce(writers, entry.trustee);
        }
    }
    if (!list.owner.empty() && !IsTrusted(list.owner)) {
        AddOnce(writers, list.owner);
    }
    return writers;
}

Permission LaunchPermissionOf(const AccessList& list) {
    return PermissionOf(list, kExecuteLocal | kActivateLocal, &OfComServer);
}

Permission AccessPermissionOf(const AccessList& list) {
    return PermissionOf(list, kExecuteLocal, &OfComServer);
}

Permission ReadPermissionOf(const AccessList& list) {
    return PermissionOf(list, kReadFile, &OfFile);
}

}  // namespace check
