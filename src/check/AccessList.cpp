#include "check/AccessList.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace check {
namespace {

constexpr std::string_view kEverybody = "S-1-1-0";
// Windows itself, the administrators, the installer of Windows' own files, and the stand-in for an owner.
constexpr std::array<std::string_view, 4> kTrusted{
    "S-1-5-18", "S-1-5-32-544", "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464", "S-1-3-0"};
// LocalService, and the groups that its token has: everybody, local, services, authenticated users, users.
constexpr std::array<std::string_view, 6> kLocalService{"S-1-5-19", kEverybody, "S-1-2-0",
                                                        "S-1-5-6",  "S-1-5-11", "S-1-5-32-545"};

constexpr std::uint32_t kDelete = 0x10000;
constexpr std::uint32_t kChangeList = 0x40000;
constexpr std::uint32_t kTakeOwnership = 0x80000;
constexpr std::uint32_t kGenericAll = 0x10000000;
constexpr std::uint32_t kGenericWrite = 0x40000000;
constexpr std::uint32_t kGenericRead = 0x80000000;
constexpr std::uint32_t kReadData = 1;
constexpr std::uint32_t kWriteData = 2;   // of a folder: add a file
constexpr std::uint32_t kAppendData = 4;  // of a folder: add a folder, which does no harm
constexpr std::uint32_t kDeleteChild = 0x40;
constexpr std::uint32_t kAlways =
    kDelete | kChangeList | kTakeOwnership | kGenericAll | kGenericWrite | kWriteData;

// Of COM's servers. The first alone, as older programs write it, stands for all.
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

bool IsLocalService(std::string_view trustee) {
    return std::find(kLocalService.begin(), kLocalService.end(), trustee) != kLocalService.end();
}

// Whether LocalService has all that is wanted, from several entries if need be. An entry decides over those
// of its rights that none before it has decided over. `meaning` is what an entry's rights stand for.
Permission PermissionOf(const AccessList& list, std::uint32_t wanted,
                        std::uint32_t (*meaning)(std::uint32_t rights)) {
    if (list.letsEverybody) {
        return Permission::Granted;
    }
    std::uint32_t granted = 0;
    std::uint32_t refused = 0;
    for (const AccessEntry& entry : list.entries) {
        if (!IsLocalService(entry.trustee) || entry.isForChildrenOnly) {
            continue;
        }
        (entry.allows ? granted : refused) |= meaning(entry.rights) & ~(entry.allows ? refused : granted);
    }
    return (granted & wanted) == wanted ? Permission::Granted : Permission::Refused;
}

std::uint32_t MeaningForCom(std::uint32_t rights) {
    const bool isAll = (rights & kGenericAll) != 0 || ((rights & kNewer) == 0 && (rights & kExecute) != 0);
    return isAll ? kNewer : rights & kNewer;
}

std::uint32_t MeaningForFiles(std::uint32_t rights) {
    return (rights & (kGenericAll | kGenericRead)) != 0 ? kReadData : rights & kReadData;
}

}  // namespace

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

Permission ReadPermissionOf(const AccessList& list) {
    return PermissionOf(list, kReadData, &MeaningForFiles);
}

Permission LaunchPermissionOf(const AccessList& list) {
    return PermissionOf(list, kExecuteLocal | kActivateLocal, &MeaningForCom);
}

Permission AccessPermissionOf(const AccessList& list) {
    return PermissionOf(list, kExecuteLocal, &MeaningForCom);
}

}  // namespace check
