#include "check/AccessList.h"

#include <gtest/gtest.h>

namespace {

using namespace check;

constexpr const char* kSystem = "S-1-5-18";
constexpr const char* kAdministrators = "S-1-5-32-544";
constexpr const char* kUsers = "S-1-5-32-545";
constexpr const char* kEverybody = "S-1-1-0";
constexpr const char* kLocalService = "S-1-5-19";
constexpr std::uint32_t kAll = 0x1F01FF;
constexpr std::uint32_t kReadAndExecute = 0x1200A9;
constexpr std::uint32_t kModify = 0x1301BF;

AccessList With(std::vector<AccessEntry> entries, const char* owner = kAdministrators) {
    return {owner, false, std::move(entries)};
}

using Names = std::vector<std::string>;
using Bytes = std::vector<std::uint8_t>;

void Put(Bytes& bytes, std::size_t at, std::size_t size, std::uint32_t number) {
    for (std::size_t index = 0; index < size; ++index) {
        bytes.at(at + index) = static_cast<std::uint8_t>(number >> (8 * index));
    }
}

// A security descriptor of 80 bytes, each of its four parts of the shortest: system list at 20, group at 28,
// owner at 40, list at 52 with an entry at 60, which allows LocalService the rights 11.
constexpr std::size_t kSystemList = 20;
constexpr std::size_t kGroup = 28;
constexpr std::size_t kOwner = 40;
constexpr std::size_t kList = 52;
constexpr std::size_t kEntry = 60;
constexpr std::size_t kEnd = 80;

Bytes Descriptor() {
    Bytes bytes(kEnd);
    const auto putSid = [&bytes](std::size_t at, std::uint32_t subauthority) {
        Put(bytes, at, 2, 0x101);
        bytes.at(at + 7) = 5;
        Put(bytes, at + 8, 4, subauthority);
    };
    Put(bytes, 0, 4, 0x80140001);
    Put(bytes, 4, 4, kOwner);
    Put(bytes, 8, 4, kGroup);
    Put(bytes, 12, 4, kSystemList);
    Put(bytes, 16, 4, kList);
    Put(bytes, kSystemList, 4, 0x80002);
    putSid(kGroup, 18);
    putSid(kOwner, 18);
    Put(bytes, kList, 4, 0x1C0002);
    Put(bytes, kList + 4, 2, 1);
    Put(bytes, kEntry + 2, 2, 20);
    Put(bytes, kEntry + 4, 4, 11);
    putSid(kEntry + 8, 19);
    return bytes;
}

// A copy of its own size, whose ends an address sanitizer guards.
bool IsRead(std::size_t at, std::size_t size, std::uint32_t number) {
    Bytes bytes = Descriptor();
    Put(bytes, at, size, number);
    return ReadAccessList(bytes).has_value();
}

}  // namespace

TEST(AccessList, FindsNobodyWhereOnlyAdministratorsWrite) {
    const AccessList list = With({{true, false, kSystem, kAll},
                                  {true, false, kAdministrators, kAll},
                                  {true, false, kUsers, kReadAndExecute}});
    EXPECT_EQ(Writers(list, Protected::File), Names());
    EXPECT_EQ(Writers(list, Protected::Folder), Names());
}

TEST(AccessList, FindsWhoMayChangeAProgram) {
    const AccessList list = With({{true, false, kUsers, kModify}, {true, false, kUsers, kAll}});
    EXPECT_EQ(Writers(list, Protected::File), Names{kUsers});
}

TEST(AccessList, OneDangerousRightIsEnough) {
    for (const std::uint32_t right : {2U, 4U, 0x10000U, 0x40000U, 0x80000U, 0x10000000U, 0x40000000U}) {
        EXPECT_EQ(Writers(With({{true, false, kUsers, right}}), Protected::File), Names{kUsers}) << right;
    }
    for (const std::uint32_t right : {1U, 8U, 0x10U, 0x20U, 0x80U, 0x100U, 0x20000U, 0x80000000U}) {
        EXPECT_EQ(Writers(With({{true, false, kUsers, right}}), Protected::File), Names()) << right;
    }
}

TEST(AccessList, AFolderInAFolderDoesNoHarmButAFileInItDoes) {
    EXPECT_EQ(Writers(With({{true, false, kUsers, 4}}), Protected::Folder), Names());
    EXPECT_EQ(Writers(With({{true, false, kUsers, 2}}), Protected::Folder), Names{kUsers});
    EXPECT_EQ(Writers(With({{true, false, kUsers, 0x40}}), Protected::Folder), Names{kUsers});
    EXPECT_EQ(Writers(With({{true, false, kUsers, 0x40}}), Protected::File), Names());
}

TEST(AccessList, PassesOverEntriesThatOnlyChildrenGet) {
    EXPECT_EQ(Writers(With({{true, true, kUsers, kAll}}), Protected::Folder), Names());
}

TEST(AccessList, ARefusalBeforeTakesAwayTheRight) {
    EXPECT_EQ(Writers(With({{false, false, kUsers, kAll}, {true, false, kUsers, kModify}}), Protected::File),
              Names());
    EXPECT_EQ(
        Writers(With({{false, false, kEverybody, kAll}, {true, false, kUsers, kModify}}), Protected::File),
        Names());
    EXPECT_EQ(Writers(With({{true, false, kUsers, kModify}, {false, false, kUsers, kAll}}), Protected::File),
              Names{kUsers});
}

TEST(AccessList, AnOwnerMayChangeTheList) {
    EXPECT_EQ(Writers(With({}, "S-1-5-21-1-2-3-1000"), Protected::File), Names{"S-1-5-21-1-2-3-1000"});
}

TEST(AccessList, WithoutAListEverybodyWrites) {
    AccessList list;
    list.letsEverybody = true;
    EXPECT_EQ(Writers(list, Protected::File), Names{kEverybody});
    EXPECT_EQ(LaunchPermissionOf(list), Permission::Granted);
}

TEST(AccessList, LocalServiceMayLaunchWhatItMayExecuteAndActivateHere) {
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 1 | 2 | 8}})), Permission::Granted);
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 1}})), Permission::Granted);
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 0x10000000}})), Permission::Granted);
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 1 | 2}})), Permission::Refused);
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 1 | 4 | 16}})), Permission::Refused);
}

TEST(AccessList, TheGroupsOfLocalServiceCountForIt) {
    for (const char* group : {"S-1-1-0", "S-1-2-0", "S-1-5-6", "S-1-5-11", "S-1-5-32-545"}) {
        EXPECT_EQ(LaunchPermissionOf(With({{true, false, group, 11}})), Permission::Granted) << group;
    }
    for (const char* other : {kSystem, kAdministrators, "S-1-5-4", "S-1-5-20"}) {
        EXPECT_EQ(LaunchPermissionOf(With({{true, false, other, 11}})), Permission::Refused) << other;
    }
}

TEST(AccessList, ARefusalToLocalServiceIsARefusal) {
    const AccessList list = With({{false, false, kLocalService, 11}, {true, false, kEverybody, 11}});
    EXPECT_EQ(LaunchPermissionOf(list), Permission::Refused);
    EXPECT_EQ(AccessPermissionOf(list), Permission::Refused);
}

TEST(AccessList, CallingAServerTakesLessThanLaunchingIt) {
    EXPECT_EQ(AccessPermissionOf(With({{true, false, kLocalService, 1 | 2}})), Permission::Granted);
    EXPECT_EQ(AccessPermissionOf(With({{true, false, kLocalService, 1 | 4}})), Permission::Refused);
    EXPECT_EQ(AccessPermissionOf(With({})), Permission::Refused);
}

TEST(AccessList, SeveralEntriesAddUp) {
    EXPECT_EQ(
        LaunchPermissionOf(With({{true, false, kLocalService, 1 | 2}, {true, false, kEverybody, 1 | 8}})),
        Permission::Granted);
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 1 | 2}, {true, false, kSystem, 1 | 8}})),
              Permission::Refused);
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 2}, {true, true, kEverybody, 8}})),
              Permission::Refused);
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 2}, {false, false, kEverybody, 8}})),
              Permission::Refused);
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 2 | 8}, {false, false, kEverybody, 8}})),
              Permission::Granted);
}

TEST(AccessList, TheFirstEntryThatNamesARightDecides) {
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 11}, {false, false, kEverybody, 11}})),
              Permission::Granted);
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 1 | 2},
                                       {false, false, kEverybody, 11},
                                       {true, false, kLocalService, 11}})),
              Permission::Refused);
    EXPECT_EQ(
        LaunchPermissionOf(With({{false, false, kEverybody, 1 | 4 | 16}, {true, false, kLocalService, 31}})),
        Permission::Granted);
    EXPECT_EQ(LaunchPermissionOf(With({{false, false, kEverybody, 1}, {true, false, kLocalService, 31}})),
              Permission::Refused);
}

TEST(AccessList, LocalServiceReadsAFileByItsListOrByAGroups) {
    EXPECT_EQ(ReadPermissionOf(With({{true, false, kUsers, kReadAndExecute}})), Permission::Granted);
    EXPECT_EQ(ReadPermissionOf(With({{true, false, kLocalService, 0x120089}})), Permission::Granted);
    EXPECT_EQ(ReadPermissionOf(With({{true, false, kEverybody, 0x80000000}})), Permission::Granted);
    EXPECT_EQ(ReadPermissionOf(With({{true, false, kEverybody, 0x10000000}})), Permission::Granted);
    // As a file is after it was moved out of a user's folder.
    EXPECT_EQ(ReadPermissionOf(With({{true, false, kSystem, kAll},
                                     {true, false, kAdministrators, kAll},
                                     {true, false, "S-1-5-21-1-2-3-1000", kAll}})),
              Permission::Refused);
    EXPECT_EQ(ReadPermissionOf(With({{true, true, kUsers, kReadAndExecute}})), Permission::Refused);
    EXPECT_EQ(ReadPermissionOf(With({{true, false, kUsers, 0x20000}})), Permission::Refused);
    EXPECT_EQ(ReadPermissionOf(With({{false, false, kLocalService, 1}, {true, false, kUsers, kAll}})),
              Permission::Refused);
}

TEST(AccessList, WhatAnOwnerMayDoIsToldOfTheOwner) {
    EXPECT_EQ(Writers(With({{true, false, "S-1-3-4", kAll}}), Protected::File), Names());
}

TEST(AccessList, ReadsADescriptorFromItsBytes) {
    const auto list = ReadAccessList(Descriptor());
    ASSERT_TRUE(list.has_value());
    EXPECT_EQ(list->owner, "S-1-5-18");
    EXPECT_FALSE(list->letsEverybody);
    ASSERT_EQ(list->entries.size(), 1U);
    EXPECT_EQ(list->entries.front().trustee, kLocalService);
    EXPECT_EQ(list->entries.front().rights, 11U);
    EXPECT_TRUE(list->entries.front().allows);
    EXPECT_FALSE(list->entries.front().isForChildrenOnly);
}

TEST(AccessList, NoPartOfADescriptorMayLieOutside) {
    for (const std::size_t offset : {4U, 8U, 12U, 16U}) {
        for (const std::uint32_t outside : {73U, 79U, 80U, 81U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
            EXPECT_FALSE(IsRead(offset, 4, outside)) << offset << " " << outside;
        }
    }
}

TEST(AccessList, ASidEndsWithinTheDescriptor) {
    // One that begins 12 bytes before the end, with 15 subauthorities.
    Bytes bytes = Descriptor();
    Put(bytes, 4, 4, kEnd - 12);
    bytes.at(kEnd - 12 + 1) = 15;
    EXPECT_FALSE(ReadAccessList(bytes).has_value());
    for (const std::size_t sid : {kGroup, kOwner}) {
        EXPECT_TRUE(IsRead(sid + 1, 1, 1));
        EXPECT_FALSE(IsRead(sid + 1, 1, 15)) << sid;
        EXPECT_FALSE(IsRead(sid + 1, 1, 16)) << sid;
        EXPECT_FALSE(IsRead(sid, 1, 2)) << sid;
    }
}

TEST(AccessList, AListEndsWithinTheDescriptor) {
    for (const std::size_t list : {kSystemList, kList}) {
        EXPECT_FALSE(IsRead(list + 2, 2, 7)) << list;
        EXPECT_FALSE(IsRead(list + 2, 2, 61)) << list;
    }
    EXPECT_FALSE(IsRead(kList + 2, 2, 27));
    EXPECT_FALSE(IsRead(kList + 4, 2, 2));
}

TEST(AccessList, AnEntryHoldsItsSid) {
    for (const std::uint32_t size : {0U, 3U, 4U, 8U, 12U, 19U, 21U, 0xFFFFU}) {
        EXPECT_FALSE(IsRead(kEntry + 2, 2, size)) << size;
    }
    EXPECT_FALSE(IsRead(kEntry + 9, 1, 2));
    EXPECT_FALSE(IsRead(kEntry + 9, 1, 15));
}

TEST(AccessList, PassesOverEntriesOfOtherKindsWhateverTheyHold) {
    Bytes bytes = Descriptor();
    Put(bytes, kEntry, 1, 5);
    bytes.at(kEntry + 9) = 15;
    const auto list = ReadAccessList(bytes);
    ASSERT_TRUE(list.has_value());
    EXPECT_TRUE(list->entries.empty());
}

TEST(AccessList, WithoutAListInItADescriptorLetsEverybodyIn) {
    Bytes bytes = Descriptor();
    Put(bytes, 16, 4, 0);
    EXPECT_TRUE(ReadAccessList(bytes)->letsEverybody);
    bytes = Descriptor();
    Put(bytes, 2, 2, 0x8000);
    EXPECT_TRUE(ReadAccessList(bytes)->letsEverybody);
}
