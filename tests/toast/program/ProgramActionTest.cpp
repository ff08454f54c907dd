#include "toast/program/ProgramAction.h"

#include <gtest/gtest.h>

namespace toast {
namespace {

TEST(ProgramAction, IsFoundByItsWord) {
    EXPECT_EQ(ActionOf(L"\"C:\\a b\\VeyraCameraToastCntl.exe\" /RegServer"), ProgramAction::kRegister);
    EXPECT_EQ(ActionOf(L"VeyraCameraToastCntl.exe -unregserver"), ProgramAction::kUnregister);
    EXPECT_EQ(ActionOf(L"VeyraCameraToastCntl.exe -Embedding"), ProgramAction::kServe);
    EXPECT_EQ(ActionOf(L"VeyraCameraToastCntl.exe /EMBEDDING"), ProgramAction::kServe);
}

// The service names the program apart, and the line is the word alone.
TEST(ProgramAction, IsFoundInTheFirstWord) {
    EXPECT_EQ(ActionOf(L"/RegServer"), ProgramAction::kRegister);
}

TEST(ProgramAction, IsThatOfTheFirstKnownWord) {
    EXPECT_EQ(ActionOf(L"x /what -UnregServer /RegServer"), ProgramAction::kUnregister);
}

TEST(ProgramAction, IsNoneForEverythingElse) {
    for (const wchar_t* line : {L"", L"x", L"x RegServer", L"x /", L"x /RegServers", L"x //RegServer"}) {
        EXPECT_EQ(ActionOf(line), ProgramAction::kNone) << testing::PrintToString(line);
    }
}

}  // namespace
}  // namespace toast
