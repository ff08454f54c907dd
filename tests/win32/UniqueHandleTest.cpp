#include "win32/UniqueHandle.h"

#include "tests/support/ImportRedirect.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>
#include <vector>

namespace {

std::vector<int> closed;

// An empty value other than 0, so that a hard-wired null does not pass.
struct NumberTraits {
    using Handle = int;
    static Handle Empty() { return -7; }
    static void Close(Handle handle) { closed.push_back(handle); }
};
using Number = win32::UniqueHandle<NumberTraits>;

class UniqueHandle : public testing::Test {
  protected:
    UniqueHandle() { closed.clear(); }
};

TEST_F(UniqueHandle, IsEmptyAtFirstAndClosesNothing) {
    {
        const Number number;
        EXPECT_FALSE(number);
        EXPECT_EQ(number.Get(), -7);
    }
    EXPECT_EQ(closed, std::vector<int>{});
}

TEST_F(UniqueHandle, ClosesWhatItHoldsOnce) {
    {
        const Number number(5);
        EXPECT_TRUE(number);
        EXPECT_EQ(number.Get(), 5);
        EXPECT_EQ(closed, std::vector<int>{});
    }
    EXPECT_EQ(closed, std::vector<int>{5});
}

TEST_F(UniqueHandle, HoldsZeroWhenZeroIsNotItsEmptyValue) {
    {
        const Number number(0);
        EXPECT_TRUE(number);
    }
    EXPECT_EQ(closed, std::vector<int>{0});
}

TEST_F(UniqueHandle, HandsOverWhenItIsMovedFrom) {
    Number first(5);
    {
        const Number second(std::move(first));
        EXPECT_EQ(second.Get(), 5);
        EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): left empty by contract
    }
    EXPECT_EQ(closed, std::vector<int>{5});
}

TEST_F(UniqueHandle, ClosesItsOwnWhenAnotherIsMovedIn) {
    Number first(5);
    Number second(6);
    second = std::move(first);
    EXPECT_EQ(closed, std::vector<int>{6});
    EXPECT_EQ(second.Get(), 5);
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): left empty by contract
}

TEST_F(UniqueHandle, KeepsItsOwnWhenItIsMovedIntoItself) {
    Number number(5);
    Number& same = number;
    number = std::move(same);
    EXPECT_EQ(number.Get(), 5);
    EXPECT_EQ(closed, std::vector<int>{});
}

TEST_F(UniqueHandle, ResetClosesAndTakesOver) {
    Number number(5);
    number.Reset(6);
    EXPECT_EQ(closed, std::vector<int>{5});
    EXPECT_EQ(number.Get(), 6);
    number.Reset();
    EXPECT_EQ(closed, (std::vector<int>{5, 6}));
    EXPECT_FALSE(number);
}

TEST_F(UniqueHandle, ReleaseGivesUpWithoutClosing) {
    {
        Number number(5);
        EXPECT_EQ(number.Release(), 5);
        EXPECT_FALSE(number);
    }
    EXPECT_EQ(closed, std::vector<int>{});
}

TEST_F(UniqueHandle, ReceiveClosesWhatItHeldAndOwnsWhatIsWritten) {
    {
        Number number(5);
        int* const slot = number.Receive();
        EXPECT_EQ(closed, std::vector<int>{5});
        EXPECT_EQ(*slot, -7);
        *slot = 6;
        EXPECT_EQ(number.Get(), 6);
    }
    EXPECT_EQ(closed, (std::vector<int>{5, 6}));
}

TEST_F(UniqueHandle, CannotBeCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<Number>);
    EXPECT_FALSE(std::is_copy_assignable_v<Number>);
}

std::vector<void*> closedByWindows;

BOOL WINAPI OnCloseHandle(HANDLE handle) {
    closedByWindows.push_back(handle);
    return TRUE;
}

LSTATUS WINAPI OnRegCloseKey(HKEY key) {
    closedByWindows.push_back(key);
    return ERROR_SUCCESS;
}

BOOL WINAPI OnCloseServiceHandle(SC_HANDLE handle) {
    closedByWindows.push_back(handle);
    return TRUE;
}

// One handle is closed by the named function and an empty one by none.
template <typename Unique, typename Function>
void ExpectClosedBy(const char* functionName, Function* function) {
    closedByWindows.clear();
    int object = 0;
    const auto handle = static_cast<typename Unique::Handle>(static_cast<void*>(&object));
    {
        const test_support::ImportRedirect redirect(functionName, function);
        { const Unique empty; }
        EXPECT_TRUE(closedByWindows.empty());
        { const Unique unique(handle); }
    }
    EXPECT_EQ(closedByWindows, std::vector<void*>{&object});
}

TEST_F(UniqueHandle, OfAKernelObjectIsClosedWithCloseHandle) {
    ExpectClosedBy<win32::UniqueKernelHandle>("CloseHandle", OnCloseHandle);
}

TEST_F(UniqueHandle, OfAServiceIsClosedWithCloseServiceHandle) {
    ExpectClosedBy<win32::UniqueServiceHandle>("CloseServiceHandle", OnCloseServiceHandle);
}

TEST_F(UniqueHandle, OfARegistryKeyIsClosedWithRegCloseKey) {
    closedByWindows.clear();
    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE", 0, KEY_READ, &key), ERROR_SUCCESS);
    {
        const test_support::ImportRedirect redirect("RegCloseKey", OnRegCloseKey);
        { const win32::UniqueRegistryKey empty; }
        EXPECT_TRUE(closedByWindows.empty());
        { const win32::UniqueRegistryKey unique(key); }
    }
    EXPECT_EQ(closedByWindows, std::vector<void*>{key});
    RegCloseKey(key);
}

}  // namespace
