#include "lab/toast/ServerAction.h"

#include <gtest/gtest.h>

namespace lab::toast {
namespace {

TEST(ServerAction, IsFoundBehindTheProgramName) {
    EXPECT_EQ(ChooseServerAction(L"C:\\Windows\\system32\\VeyraCameraToastCntl.exe /RegServer"),
              ServerAction::kRegister);
    EXPECT_EQ(ChooseServerAction(L"VeyraCameraToastCntl.exe /UnregServer"), ServerAction::kUnregister);
    EXPECT_EQ(ChooseServerAction(L"\"C:\\Program Files\\VeyraCameraToastCntl.exe\" -Embedding"),
              ServerAction::kServe);
    EXPECT_EQ(ChooseServerAction(L"VeyraCameraToastCntl.exe /Embedding"), ServerAction::kServe);
}

// The service starts it with the application named apart and this as the whole command line.
TEST(ServerAction, MayBeTheFirstWord) {
    EXPECT_EQ(ChooseServerAction(L"/RegServer"), ServerAction::kRegister);
    EXPECT_EQ(ChooseServerAction(L"-Embedding"), ServerAction::kServe);
}

TEST(ServerAction, IsTakenInEitherCase) {
    EXPECT_EQ(ChooseServerAction(L"/regserver"), ServerAction::kRegister);
    EXPECT_EQ(ChooseServerAction(L"/UNREGSERVER"), ServerAction::kUnregister);
}

TEST(ServerAction, IsDecidedByTheFirstKnownWord) {
    EXPECT_EQ(ChooseServerAction(L"VeyraCameraToastCntl.exe /quiet /UnregServer /RegServer"),
              ServerAction::kUnregister);
}

TEST(ServerAction, IsTheUsageForAnythingElse) {
    for (const wchar_t* line :
         {L"VeyraCameraToastCntl.exe", L"VeyraCameraToastCntl.exe /Reg", L"RegServer", L"/", L"-",
          L"VeyraCameraToastCntl.exe /RegServerNow", L"C:\\lab\\RegServer"}) {
        EXPECT_EQ(ChooseServerAction(line), ServerAction::kShowUsage) << testing::PrintToString(line);
    }
}

}  // namespace
}  // namespace lab::toast
