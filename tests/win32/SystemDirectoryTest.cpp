#include "win32/SystemDirectory.h"

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cwchar>
#include <vector>

namespace {

// Answers GetSystemDirectoryW with the results that a test sets, and records its calls.
class FakeSystemDirectory : public test_support::OnlyOne<FakeSystemDirectory> {
  public:
    struct Call {
        bool hasBuffer;
        UINT size;
        bool operator==(const Call&) const = default;
    };

    FakeSystemDirectory(UINT lengthAsked, UINT lengthWritten, const wchar_t* text)
        : lengthAsked_(lengthAsked),
          lengthWritten_(lengthWritten),
          text_(text),
          redirect_("GetSystemDirectoryW", OnGetSystemDirectory) {}

    [[nodiscard]] const std::vector<Call>& Calls() const { return calls_; }

  private:
    static UINT WINAPI OnGetSystemDirectory(wchar_t* buffer, UINT size) {
        FakeSystemDirectory& fake = *current_;
        fake.calls_.push_back({buffer != nullptr, size});
        if (size == 0) {
            return fake.lengthAsked_;
        }
        for (UINT index = 0; index < size && index <= std::wcslen(fake.text_); ++index) {
            buffer[index] = fake.text_[index];
        }
        return fake.lengthWritten_;
    }

    UINT lengthAsked_;
    UINT lengthWritten_;
    const wchar_t* text_;
    std::vector<Call> calls_;
    test_support::ImportRedirect redirect_;
};

TEST(SystemDirectory, AsksForTheLengthWithoutABufferAndThenReadsThatMuch) {
    const FakeSystemDirectory fake(10, 9, L"D:\\Sys\\32");
    EXPECT_EQ(win32::SystemDirectory(), L"D:\\Sys\\32");
    EXPECT_EQ(fake.Calls(), (std::vector<FakeSystemDirectory::Call>{{false, 0}, {true, 10}}));
}

TEST(SystemDirectory, IsThatOfTheMachine) {
    EXPECT_EQ(win32::SystemDirectory(), L"C:\\windows\\system32");
}

TEST(SystemDirectory, IsEmptyWhenItsLengthCannotBeRead) {
    const FakeSystemDirectory fake(0, 0, L"");
    EXPECT_EQ(win32::SystemDirectory(), L"");
}

TEST(SystemDirectory, IsEmptyWhenItCannotBeRead) {
    const FakeSystemDirectory fake(20, 0, L"garbage");
    EXPECT_EQ(win32::SystemDirectory(), L"");
}

// The second call asks for more room than there is when the directory has grown in between.
TEST(SystemDirectory, IsEmptyWhenItNoLongerFits) {
    for (const UINT lengthWritten : {10U, 11U, 100000U}) {
        const FakeSystemDirectory fake(10, lengthWritten, L"garbage");
        EXPECT_EQ(win32::SystemDirectory(), L"") << lengthWritten;
    }
}

}  // namespace
