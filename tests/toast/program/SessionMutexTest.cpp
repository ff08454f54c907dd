#include "toast/program/SessionMutex.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/ImportRedirect.h"

namespace toast {
namespace {

constexpr wchar_t kName[] = L"Local\\VeyraToastTest";
constexpr std::chrono::milliseconds kShort{20};

bool OtherThreadGetsIt(std::chrono::milliseconds patience) {
    bool isHeld = false;
    std::thread([&] { isHeld = SessionMutex(kName, patience).IsHeld(); }).join();
    return isHeld;
}

TEST(SessionMutex, IsHeldOnce) {
    {
        const SessionMutex mutex(kName, kShort);
        EXPECT_TRUE(mutex.IsHeld());
        EXPECT_FALSE(OtherThreadGetsIt(kShort));
    }
    EXPECT_TRUE(OtherThreadGetsIt(kShort));
}

TEST(SessionMutex, IsTakenFromWhoEndedWithIt) {
    HANDLE kept = nullptr;
    std::thread([&] {
        kept = CreateMutexW(nullptr, TRUE, kName);
        EXPECT_NE(kept, nullptr);
    }).join();
    const win32::UniqueKernelHandle owned(kept);
    EXPECT_TRUE(OtherThreadGetsIt(kShort));
}

HANDLE WINAPI NoMutex(LPSECURITY_ATTRIBUTES, BOOL, LPCWSTR) {
    return nullptr;
}

TEST(SessionMutex, IsNotHeldWhenThereIsNone) {
    const test_support::ImportRedirect create("CreateMutexW", &NoMutex);
    EXPECT_FALSE(SessionMutex(kName, kShort).IsHeld());
}

}  // namespace
}  // namespace toast
