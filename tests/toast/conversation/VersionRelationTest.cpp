#include "toast/conversation/VersionRelation.h"

#include <gtest/gtest.h>

namespace toast {
namespace {

TEST(VersionRelation, IsDecidedByTheFirstNumberThatDiffers) {
    EXPECT_EQ(RelationOf(L"5.10.3.0", L"5.10.2.9"), VersionRelation::kNewer);
    EXPECT_EQ(RelationOf(L"5.9.9.9", L"5.10.0.0"), VersionRelation::kOlder);
    EXPECT_EQ(RelationOf(L"6.0.0.0", L"5.255.255.255"), VersionRelation::kNewer);
    EXPECT_EQ(RelationOf(L"0.0.0.1", L"0.0.0.2"), VersionRelation::kOlder);
    EXPECT_EQ(RelationOf(L"0.0.0.4294967295", L"0.0.0.1"), VersionRelation::kNewer);
}

TEST(VersionRelation, IsJustDifferentOfEqualNumbers) {
    EXPECT_EQ(RelationOf(L"05.1.0.0", L"5.1.0.0"), VersionRelation::kDifferent);
}

TEST(VersionRelation, IsJustDifferentOfAnythingButFourNumbers) {
    for (const wchar_t* text : {L"", L"5", L"5.1.2", L"5.1.2.3.4", L"5.1.2.", L".1.2.3", L"5..2.3",
                                L"5.1.2.x", L"5.1.2.-3", L"5.1.2.4294967296", L"5.1.2.3 "}) {
        EXPECT_EQ(RelationOf(text, L"1.0.0.0"), VersionRelation::kDifferent) << testing::PrintToString(text);
        EXPECT_EQ(RelationOf(L"1.0.0.0", text), VersionRelation::kDifferent) << testing::PrintToString(text);
    }
}

}  // namespace
}  // namespace toast
