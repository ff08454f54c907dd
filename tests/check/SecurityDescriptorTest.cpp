#include "check/SecurityDescriptor.h"

#include <gtest/gtest.h>

#include <sddl.h>

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
    const auto list = ReadAccessList(BytesOf(L"O:BAD:(D;;0x2;;;WD)(A;OICIIO;0x1f01ff;;;LS)"));
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
    const auto list = ReadAccessList(BytesOf(kLaunch));
    ASSERT_TRUE(list.has_value());
    EXPECT_EQ(LaunchPermissionOf(*list), Permission::Granted);
    EXPECT_EQ(AccessPermissionOf(*list), Permission::Granted);
}

TEST(SecurityDescriptor, RefusesBytesThatAreNone) {
    const auto whole = BytesOf(kLaunch);
    EXPECT_TRUE(ReadAccessList(whole).has_value());
    EXPECT_FALSE(ReadAccessList(std::span<const std::uint8_t>()).has_value());
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(ReadAccessList(std::span(whole).first(size)).has_value()) << size;
    }
    EXPECT_FALSE(ReadAccessList(std::vector<std::uint8_t>(64, 0xFF)).has_value());
    EXPECT_FALSE(ReadAccessList(std::vector<std::uint8_t>(64, 0)).has_value());
}

TEST(SecurityDescriptor, ReadsAFilesList) {
    DWORD error = ERROR_SUCCESS;
    const auto list = ReadFileAccess(L"C:\\windows", error);
    ASSERT_TRUE(list.has_value());
    EXPECT_NE(list->owner, "");
    EXPECT_EQ(ReadPermissionOf(*list), Permission::Granted);
    EXPECT_FALSE(ReadFileAccess(L"C:\\no such file", error).has_value());
    EXPECT_EQ(error, static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST(SecurityDescriptor, NamesKnownAccountsAndTellsTheTextOfOthers) {
    EXPECT_EQ(NameOfSid("S-1-1-0"), "Everyone");
    EXPECT_EQ(NameOfSid("S-1-5-21-1-2-3-4711"), "S-1-5-21-1-2-3-4711");
    EXPECT_EQ(NameOfSid("no SID"), "no SID");
}
