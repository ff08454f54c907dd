#include "check/SecurityDescriptor.h"

#include "check/Utf8.h"

#include <sddl.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

namespace check {
namespace {

struct LocalMemoryDeleter {
    void operator()(void* memory) const { LocalFree(memory); }
};
template <typename Content>
using LocalMemory = std::unique_ptr<Content, LocalMemoryDeleter>;

// Whether a SID that begins here ends within so many bytes. Windows' own tests do not take the room.
bool SidFits(const void* sid, std::size_t room) {
    std::array<UCHAR, offsetof(SID, SubAuthority)> head{};
    if (room < head.size()) {
        return false;
    }
    std::memcpy(head.data(), sid, head.size());
    return GetSidLengthRequired(head[offsetof(SID, SubAuthorityCount)]) <= room;
}

std::string TextOfSid(PSID sid) {
    wchar_t* text = nullptr;
    if (sid == nullptr || !IsValidSid(sid) || !ConvertSidToStringSidW(sid, &text)) {
        return {};
    }
    const LocalMemory<wchar_t> owner(text);
    return Utf8(text);
}

// Both kinds of entries that lists of files and of COM's permissions have: the SID lies at the same place.
static_assert(offsetof(ACCESS_ALLOWED_ACE, SidStart) == offsetof(ACCESS_DENIED_ACE, SidStart));

std::optional<AccessEntry> ReadEntry(void* memory) {
    auto* const entry = static_cast<ACCESS_ALLOWED_ACE*>(memory);
    if (entry->Header.AceType != ACCESS_ALLOWED_ACE_TYPE && entry->Header.AceType != ACCESS_DENIED_ACE_TYPE) {
        return std::nullopt;
    }
    AccessEntry read;
    read.allows = entry->Header.AceType == ACCESS_ALLOWED_ACE_TYPE;
    read.isForChildrenOnly = (entry->Header.AceFlags & INHERIT_ONLY_ACE) != 0;
    read.rights = entry->Mask;
    constexpr std::size_t kSidPlace = offsetof(ACCESS_ALLOWED_ACE, SidStart);
    if (entry->Header.AceSize >= kSidPlace && SidFits(&entry->SidStart, entry->Header.AceSize - kSidPlace)) {
        read.trustee = TextOfSid(&entry->SidStart);
    }
    return read;
}

// Whether all that a self-relative descriptor refers to lies within its bytes. Windows' own test, which takes
// the size, is for drivers' headers.
bool IsWhole(void* bytes, std::size_t size) {
    SECURITY_DESCRIPTOR_RELATIVE header{};
    if (size < sizeof header) {
        return false;
    }
    std::memcpy(&header, bytes, sizeof header);
    const auto liesWithin = [size](DWORD offset, std::size_t length) {
        return offset <= size && length <= size - offset;
    };
    const auto* const start = static_cast<const std::uint8_t*>(bytes);
    const auto isSid = [start, size](DWORD offset) {
        return offset == 0 || (offset <= size && SidFits(start + offset, size - offset));
    };
    const auto isList = [start, liesWithin](DWORD offset) {
        if (offset == 0 || !liesWithin(offset, sizeof(ACL))) {
            return offset == 0;
        }
        ACL list{};
        std::memcpy(&list, start + offset, sizeof list);
        return liesWithin(offset, list.AclSize);
    };
    if ((header.Control & SE_SELF_RELATIVE) == 0 || !isSid(header.Owner) || !isSid(header.Group) ||
        !isList(header.Sacl) || !isList(header.Dacl)) {
        return false;
    }
    return IsValidSecurityDescriptor(bytes) && GetSecurityDescriptorLength(bytes) <= size;
}

}  // namespace

AccessList ReadSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor) {
    AccessList list;
    PSID owner = nullptr;
    BOOL isDefault = FALSE;
    if (GetSecurityDescriptorOwner(descriptor, &owner, &isDefault)) {
        list.owner = TextOfSid(owner);
    }
    BOOL isPresent = FALSE;
    ACL* entries = nullptr;
    if (!GetSecurityDescriptorDacl(descriptor, &isPresent, &entries, &isDefault) || !isPresent ||
        entries == nullptr) {
        list.letsEverybody = true;
        return list;
    }
    for (DWORD index = 0; index < entries->AceCount; ++index) {
        void* entry = nullptr;
        if (!GetAce(entries, index, &entry)) {
            break;
        }
        if (auto read = ReadEntry(entry)) {
            list.entries.push_back(*std::move(read));
        }
    }
    return list;
}

std::optional<AccessList> ReadSecurityDescriptor(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) {
        return std::nullopt;
    }
    // A copy at an address that suits the structures inside.
    std::vector<std::uint64_t> aligned(bytes.size() / sizeof(std::uint64_t) + 1);
    std::memcpy(aligned.data(), bytes.data(), bytes.size());
    if (!IsWhole(aligned.data(), bytes.size())) {
        return std::nullopt;
    }
    return ReadSecurityDescriptor(static_cast<PSECURITY_DESCRIPTOR>(aligned.data()));
}

std::string NameOfSid(const std::string& sidText) {
    PSID sid = nullptr;
    if (!ConvertStringSidToSidW(Wide(sidText).c_str(), &sid)) {
        return sidText;
    }
    const LocalMemory<void> owner(sid);
    constexpr DWORD kCapacity = 256;
    std::array<wchar_t, kCapacity> name{};
    std::array<wchar_t, kCapacity> domain{};
    DWORD nameSize = kCapacity;
    DWORD domainSize = kCapacity;
    SID_NAME_USE use = SidTypeUnknown;
    if (!LookupAccountSidW(nullptr, sid, name.data(), &nameSize, domain.data(), &domainSize, &use)) {
        return sidText;
    }
    return domain.front() == L'\0' ? Utf8(name.data()) : Utf8(domain.data()) + "\\" + Utf8(name.data());
}

}  // namespace check
