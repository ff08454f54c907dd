#include "check/RegistryReader.h"

#include "win32/UniqueHandle.h"

#include <gtest/gtest.h>

namespace {

using check::RegistryReader;

constexpr const wchar_t* kKey = L"SOFTWARE\\VeyraCameraDfuCheckTest";

class RegistryReaderTest : public ::testing::Test {
  protected:
    RegistryReaderTest() {
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS, nullptr,
                        key_.Receive(), nullptr);
    }
    ~RegistryReaderTest() override { RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKey); }

    void Set(const wchar_t* name, DWORD type, const std::vector<std::uint8_t>& data) {
        ASSERT_EQ(RegSetValueExW(key_.Get(), name, 0, type, data.data(), static_cast<DWORD>(data.size())),
                  ERROR_SUCCESS);
    }

    win32::UniqueRegistryKey key_;
};

}  // namespace

TEST_F(RegistryReaderTest, ReadsATextUpToItsTerminator) {
    Set(L"", REG_SZ, {'a', 0, 'b', 0, 0, 0, 'c', 0, 0, 0});
    EXPECT_EQ(RegistryReader::Read(kKey, L"").Text(), L"ab");
}

TEST_F(RegistryReaderTest, ReadsATextWithoutATerminatorAndOneOfOddLength) {
    Set(L"x", REG_EXPAND_SZ, {'a', 0, 'b', 0, 'c'});
    EXPECT_EQ(RegistryReader::Read(kKey, L"x").Text(), L"ab");
}

TEST_F(RegistryReaderTest, FillsVariablesInWhereWindowsDoes) {
    SetEnvironmentVariableW(L"VEYRA_TEST", L"filled %in%");
    const std::vector<std::uint8_t> text{'%', 0, 'V', 0, 'E', 0, 'Y', 0, 'R', 0, 'A', 0, '_', 0,
                                         'T', 0, 'E', 0, 'S', 0, 'T', 0, '%', 0, '!', 0, 0,   0};
    Set(L"expandable", REG_EXPAND_SZ, text);
    Set(L"plain", REG_SZ, text);
    EXPECT_EQ(RegistryReader::Read(kKey, L"expandable").Expanded(), L"filled %in%!");
    EXPECT_EQ(RegistryReader::Read(kKey, L"expandable").Text(), L"%VEYRA_TEST%!");
    EXPECT_EQ(RegistryReader::Read(kKey, L"plain").Expanded(), L"%VEYRA_TEST%!");
    Set(L"empty", REG_EXPAND_SZ, {});
    EXPECT_EQ(RegistryReader::Read(kKey, L"empty").Expanded(), L"");
    EXPECT_EQ(RegistryReader::Expand(L""), L"");
    EXPECT_EQ(RegistryReader::Expand(L"%VEYRA_TEST_NONE% x"), L"%VEYRA_TEST_NONE% x");
    SetEnvironmentVariableW(L"VEYRA_TEST", nullptr);
}

TEST_F(RegistryReaderTest, OnlyATextIsATextAndOnlyANumberANumber) {
    Set(L"x", REG_BINARY, {'a', 0, 0, 0});
    EXPECT_EQ(RegistryReader::Read(kKey, L"x").Text(), L"");
    EXPECT_EQ(RegistryReader::Read(kKey, L"x").Number(), 0U);
    EXPECT_EQ(RegistryReader::Read(kKey, L"x").data, (std::vector<std::uint8_t>{'a', 0, 0, 0}));
    Set(L"y", REG_DWORD, {1, 2, 0, 0});
    EXPECT_EQ(RegistryReader::Read(kKey, L"y").Number(), 0x201U);
}

TEST_F(RegistryReaderTest, TellsWhatIsNotThere) {
    EXPECT_EQ(RegistryReader::Read(kKey, L"none").error, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegistryReader::Read(L"SOFTWARE\\NoSuchKeyAtAll", L"").error, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RegistryReader::Open(kKey), ERROR_SUCCESS);
    EXPECT_EQ(RegistryReader::Open(L"SOFTWARE\\NoSuchKeyAtAll"), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryReaderTest, AnEmptyValueIsThere) {
    Set(L"x", REG_BINARY, {});
    EXPECT_EQ(RegistryReader::Read(kKey, L"x").error, ERROR_SUCCESS);
    EXPECT_TRUE(RegistryReader::Read(kKey, L"x").data.empty());
}
