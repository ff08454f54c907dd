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

TEST(AccessList, WhatSeveralEntriesGiveAddsUp) {
    EXPECT_EQ(
        LaunchPermissionOf(With({{true, false, kLocalService, 1 | 2}, {true, false, kEverybody, 1 | 8}})),
        Permission::Granted);
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 2}, {false, false, kEverybody, 8}})),
              Permission::Refused);
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 2 | 8}, {false, false, kEverybody, 8}})),
              Permission::Granted);
    EXPECT_EQ(LaunchPermissionOf(With({{true, false, kLocalService, 2}, {true, true, kEverybody, 8}})),
              Permission::Refused);
    EXPECT_EQ(
        LaunchPermissionOf(With({{false, false, kLocalService, 4 | 16}, {true, false, kEverybody, 31}})),
        Permission::Granted);
}

TEST(AccessList, LocalServiceReadsWhatItsAccountOrAGroupMayRead) {
    EXPECT_EQ(ReadPermissionOf(With({{true, false, kUsers, kReadAndExecute}})), Permission::Granted);
    EXPECT_EQ(ReadPermissionOf(With({{true, false, kLocalService, 0x80000000}})), Permission::Granted);
    EXPECT_EQ(ReadPermissionOf(With({{true, false, kEverybody, 0x10000000}})), Permission::Granted);
    EXPECT_EQ(ReadPermissionOf(With({{true, false, kUsers, 0x20000}})), Permission::Refused);
    EXPECT_EQ(ReadPermissionOf(With({{true, false, kAdministrators, kAll}, {true, false, kSystem, kAll}})),
              Permission::Refused);
    EXPECT_EQ(ReadPermissionOf(With({{false, false, kLocalService, 1}, {true, false, kUsers, kAll}})),
              Permission::Refused);
}

TEST(AccessList, CallingAServerTakesLessThanLaunchingIt) {
    EXPECT_EQ(AccessPermissionOf(With({{true, false, kLocalService, 1 | 2}})), Permission::Granted);
    EXPECT_EQ(AccessPermissionOf(With({{true, false, kLocalService, 1 | 4}})), Permission::Refused);
    EXPECT_EQ(AccessPermissionOf(With({})), Permission::Refused);
}
