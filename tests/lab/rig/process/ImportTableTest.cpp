#include <gtest/gtest.h>

#include <windows.h>

#include <future>

#include "lab/rig/process/ImportTable.h"

namespace {

ULONGLONG WINAPI StandingClock() {
    return 4711;
}

// On another thread, since within one function the compiler may take an import's address for constant.
ULONGLONG Imported() {
    return std::async(std::launch::async, [] { return GetTickCount64(); }).get();
}

}  // namespace

TEST(ImportTable, RedirectsWhatTheExecutableImportsAndKeepsTheOriginal) {
    const ULONGLONG before = GetTickCount64();
    decltype(&GetTickCount64) original = nullptr;
    lab::rig::Redirect("GetTickCount64", &StandingClock, original);
    const ULONGLONG redirected = Imported();
    ASSERT_NE(original, nullptr);
    EXPECT_GE(original(), before);
    lab::rig::Redirect("GetTickCount64", original);
    EXPECT_EQ(redirected, 4711U);
    EXPECT_GE(Imported(), before);
    EXPECT_NE(Imported(), 4711U);
}

TEST(ImportTable, GivesNullForWhatTheExecutableDoesNotImport) {
    EXPECT_EQ(lab::rig::RedirectImport("NoSuchFunction", nullptr), nullptr);
}

TEST(ImportTable, KnowsWhatTheExecutableImports) {
    EXPECT_TRUE(lab::rig::IsImported("GetTickCount64"));
    EXPECT_FALSE(lab::rig::IsImported("NoSuchFunction"));
}
