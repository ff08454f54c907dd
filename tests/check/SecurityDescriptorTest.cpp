#include "check/SecurityDescriptor.h"

#include <gtest/gtest.h>

#include <sddl.h>

#include <cstddef>
#include <cstring>
#include <vector>

namespace {

using namespace check;

std::vector<std::uint8_t> BytesOf(const wchar_t* text) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ULONG size = 0;
    EXPECT_TRUE(
        ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, &descriptor, &size));
    std::vector<std::uint8_t> bytes(size);
    std::memcpy(bytes.data(), descriptor, size);
    LocalFree(descriptor);
    return bytes;
}

// What the package's toast controller registers.
constexpr const wchar_t* kLaunch =
    L"O:BAG:BAD:(A;;CCDCSW;;;SY)(A;;CCDCSW;;;LS)(A;;CCDCSW;;;IU)(A;;CCDCSW;;;BA)";

}  // namespace

TEST(SecurityDescriptor, ReadsOwnerAndEntriesInTheirOrder) {
    const auto list = ReadSecurityDescriptor(BytesOf(L"O:BAD:(D;;0x2;;;WD)(A;OICIIO;0x1f01ff;;;LS)"));
    ASSERT_TRUE(list.has_value());
    EXPECT_EQ(list->owner, "S-1-5-32-544");
    EXPECT_FALSE(list->letsEverybody);
    ASSERT_EQ(list->entries.size(), 2U);
    EXPECT_FALSE(list->entries[0].allows);
    EXPECT_EQ(list->entries[0].trustee, "S-1-1-0");
    EXPECT_EQ(list->entries[0].rights, 2U);
    EXPECT_FALSE(list->entries[0].isForChildrenOnly);
    EXPECT_TRUE(list->entries[1].allows);
    EXPECT_TRUE(list->entries[1].isForChildrenOnly);
    EXPECT_EQ(list->entries[1].trustee, "S-1-5-19");
    EXPECT_EQ(list->entries[1].rights, 0x1F01FFU);
}

TEST(SecurityDescriptor, ThePackagesOwnLetsLocalServiceIn) {
    const auto list = ReadSecurityDescriptor(BytesOf(kLaunch));
    ASSERT_TRUE(list.has_value());
    EXPECT_EQ(LaunchPermissionOf(*list), Permission::Granted);
    EXPECT_EQ(AccessPermissionOf(*list), Permission::Granted);
}

TEST(SecurityDescriptor, RefusesBytesThatAreNone) {
    const auto whole = BytesOf(kLaunch);
    EXPECT_FALSE(ReadSecurityDescriptor(std::span<const std::uint8_t>()).has_value());
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(ReadSecurityDescriptor(std::span(whole).first(size)).has_value()) << size;
    }
    EXPECT_FALSE(ReadSecurityDescriptor(std::vector<std::uint8_t>(64, 0xFF)).has_value());
    EXPECT_FALSE(ReadSecurityDescriptor(std::vector<std::uint8_t>(64, 0)).has_value());
}

TEST(SecurityDescriptor, RefusesSidsThatEndBehindItsBytes) {
    for (const std::size_t field :
         {offsetof(SECURITY_DESCRIPTOR_RELATIVE, Owner), offsetof(SECURITY_DESCRIPTOR_RELATIVE, Group)}) {
        // Room enough for the longest SID, which begins just before the end.
        std::vector<std::uint8_t> bytes(100, 0);
        SECURITY_DESCRIPTOR_RELATIVE header{};
        header.Revision = SECURITY_DESCRIPTOR_REVISION;
        header.Control = SE_SELF_RELATIVE;
        std::memcpy(bytes.data(), &header, sizeof header);
        const auto place = static_cast<DWORD>(bytes.size() - sizeof(SID));
        std::memcpy(bytes.data() + field, &place, sizeof place);
        bytes[place] = SID_REVISION;
        bytes[place + 1] = 1;
        EXPECT_TRUE(ReadSecurityDescriptor(bytes).has_value()) << field;
        bytes[place + 1] = SID_MAX_SUB_AUTHORITIES;
        EXPECT_FALSE(ReadSecurityDescriptor(bytes).has_value()) << field;
        const auto behind = static_cast<DWORD>(bytes.size() + 1);
        std::memcpy(bytes.data() + field, &behind, sizeof behind);
        EXPECT_FALSE(ReadSecurityDescriptor(bytes).has_value()) << field;
    }
}

TEST(SecurityDescriptor, ReadsNoSidBeyondItsEntry) {
    auto bytes = BytesOf(L"D:(A;;0x1;;;WD)(A;;0x1;;;LS)");
    SECURITY_DESCRIPTOR_RELATIVE header{};
    std::memcpy(&header, bytes.data(), sizeof header);
    const std::size_t sid = header.Dacl + sizeof(ACL) + offsetof(ACCESS_ALLOWED_ACE, SidStart);
    ASSERT_LT(sid + 1, bytes.size());
    ASSERT_EQ(bytes[sid + 1], 1);
    bytes[sid + 1] = 3;
    // Windows refuses the list; Wine does not look at its entries.
    const auto list = ReadSecurityDescriptor(bytes);
    if (list) {
        ASSERT_EQ(list->entries.size(), 2U);
        EXPECT_EQ(list->entries[0].trustee, "");
        EXPECT_EQ(list->entries[1].trustee, "S-1-5-19");
    }
}

TEST(SecurityDescriptor, NamesKnownAccountsAndTellsTheTextOfOthers) {
    EXPECT_EQ(NameOfSid("S-1-1-0"), "Everyone");
    EXPECT_EQ(NameOfSid("S-1-5-21-1-2-3-4711"), "S-1-5-21-1-2-3-4711");
    EXPECT_EQ(NameOfSid("no SID"), "no SID");
}
