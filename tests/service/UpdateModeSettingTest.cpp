#include "service/UpdateModeSetting.h"

#include "tests/support/RegistryCalls.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstring>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr const wchar_t* kKey = L"SYSTEM\\CurrentControlSet\\Services\\VeyraCameraDFU";
constexpr const wchar_t* kInstalledServiceKey = L"SYSTEM\\CurrentControlSet\\Services\\VeyraCameraDfuService";
constexpr const wchar_t* kValue = L"DFUAutoMode";

constexpr const char* kOpenLine =
    "RegOpenKeyExW(HKEY_LOCAL_MACHINE, SYSTEM\\CurrentControlSet\\Services\\VeyraCameraDFU, 0, 0x1)";
constexpr const char* kQueryLine = "RegQueryValueExW(key 1, DFUAutoMode, null, null, 38 bytes)";
constexpr const char* kCreateLine =
    "RegCreateKeyExW(HKEY_LOCAL_MACHINE, SYSTEM\\CurrentControlSet\\Services\\VeyraCameraDFU, 0, null, 0, "
    "0x20006, null, null)";
constexpr const char* kCloseLine = "RegCloseKey(key 1)";

using test_support::Bytes;
using test_support::RegistryCalls;
using test_support::TerminatedBytes;
using Lines = std::vector<std::string>;
using Written = std::pair<ULONG, std::string>;  // the result, and what was logged

class UpdateModeSettingTest : public testing::Test {
  protected:
    UpdateModeSettingTest() { Clear(); }
    ~UpdateModeSettingTest() override {
        calls_.reset();
        Clear();
    }

    static void Clear() {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kKey);
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kInstalledServiceKey);
    }

    static void CreateEmptyKey() {
        HKEY key = nullptr;
        ASSERT_EQ(RegCreateKeyW(HKEY_LOCAL_MACHINE, kKey, &key), ERROR_SUCCESS);
        RegCloseKey(key);
    }

    // Stores the bytes as they are.
    static void Store(DWORD type, const std::string& data) {
        ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey, kValue, type, data.data(),
                                  static_cast<DWORD>(data.size())),
                  ERROR_SUCCESS);
    }

    struct Stored {
        DWORD type;
        std::string data;
    };

    // What the registry holds.
    static std::optional<Stored> Load() {
        HKEY key = nullptr;
        if (RegOpenKeyW(HKEY_LOCAL_MACHINE, kKey, &key) != ERROR_SUCCESS) {
            return std::nullopt;
        }
        std::vector<BYTE> data(256);
        DWORD size = 256;
        DWORD type = 0;
        const LSTATUS result = RegQueryValueExW(key, kValue, nullptr, &type, data.data(), &size);
        RegCloseKey(key);
        if (result != ERROR_SUCCESS) {
            return std::nullopt;
        }
        return Stored{type, std::string(reinterpret_cast<const char*>(data.data()), size)};
    }

    // From now on every registry call of the program is listened to.
    RegistryCalls& Listen() {
        calls_ = std::make_unique<RegistryCalls>(
            Lines{"RegOpenKeyExW", "RegQueryValueExW", "RegCreateKeyExW", "RegSetValueExW", "RegCloseKey"});
        return *calls_;
    }

    static ULONG Read(std::ostream* log = nullptr) {
        return static_cast<ULONG>(UpdateModeSetting(log).IsServiceControlled());
    }

    static Written Write(const wchar_t* text) {
        std::ostringstream log;
        const HRESULT result = UpdateModeSetting(&log).WriteUpdateMode(text);
        return {static_cast<ULONG>(result), log.str()};
    }

    std::unique_ptr<RegistryCalls> calls_;
};

// Reading.

TEST_F(UpdateModeSettingTest, NamesTheThreeTexts) {
    EXPECT_STREQ(kUpdateModeDisabled, L"Disabled");
    EXPECT_STREQ(kUpdateModeAuto, L"Auto");
    EXPECT_STREQ(kUpdateModeServiceControlled, L"Service Controlled");
}

TEST_F(UpdateModeSettingTest, ReadsWithQueryAccessIntoThirtyEightBytesAndClosesTheKey) {
    Store(REG_SZ, TerminatedBytes(L"Service Controlled"));
    const RegistryCalls& calls = Listen();
    EXPECT_EQ(Read(), 0U);
    EXPECT_EQ(calls.Lines(), (Lines{kOpenLine, kQueryLine, kCloseLine}));
}

TEST_F(UpdateModeSettingTest, IsNotServiceControlledWithoutTheKey) {
    const RegistryCalls& calls = Listen();
    EXPECT_EQ(Read(), 0x80070002U);
    EXPECT_EQ(calls.Lines(), Lines{kOpenLine});
}

TEST_F(UpdateModeSettingTest, IsNotServiceControlledWithoutTheValue) {
    CreateEmptyKey();
    const RegistryCalls& calls = Listen();
    EXPECT_EQ(Read(), 0x80070002U);
    EXPECT_EQ(calls.Lines(), (Lines{kOpenLine, kQueryLine, kCloseLine}));
}

TEST_F(UpdateModeSettingTest, TellsWhyTheKeyCannotBeOpened) {
    Store(REG_SZ, TerminatedBytes(L"Service Controlled"));
    RegistryCalls& calls = Listen();
    calls.Fail("RegOpenKeyExW", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Read(), 0x80070005U);
    calls.Fail("RegOpenKeyExW", 2, 0x12345);
    EXPECT_EQ(Read(), 0x80072345U);
    EXPECT_EQ(calls.Lines(), (Lines{kOpenLine, kOpenLine}));
}

TEST_F(UpdateModeSettingTest, TellsWhyTheValueCannotBeReadAndClosesTheKey) {
    Store(REG_SZ, TerminatedBytes(L"Service Controlled"));
    RegistryCalls& calls = Listen();
    calls.Fail("RegQueryValueExW", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Read(), 0x80070005U);
    EXPECT_EQ(calls.Lines(), (Lines{kOpenLine, kQueryLine, kCloseLine}));
}

TEST_F(UpdateModeSettingTest, NeverLogsWhileReading) {
    std::ostringstream log;
    EXPECT_EQ(Read(&log), 0x80070002U);
    Store(REG_SZ, Bytes(L"Auto"));
    EXPECT_EQ(Read(&log), 0x80004005U);
    EXPECT_EQ(log.str(), "");
}

TEST_F(UpdateModeSettingTest, WritesNoDefault) {
    EXPECT_EQ(Read(), 0x80070002U);
    EXPECT_FALSE(Load().has_value());
    CreateEmptyKey();
    EXPECT_EQ(Read(), 0x80070002U);
    EXPECT_FALSE(Load().has_value());
}

// The value is not looked for under the key of the installed service.
TEST_F(UpdateModeSettingTest, IgnoresTheKeyOfTheInstalledService) {
    ASSERT_EQ(
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, kInstalledServiceKey, kValue, REG_SZ, L"Service Controlled", 38),
        ERROR_SUCCESS);
    EXPECT_EQ(Read(), 0x80070002U);
}

struct StoredValue {
    const char* name;
    DWORD type;
    std::string data;
    ULONG expected;
};

class StoredUpdateMode : public UpdateModeSettingTest, public testing::WithParamInterface<StoredValue> {};

TEST_P(StoredUpdateMode, Reads) {
    Store(GetParam().type, GetParam().data);
    EXPECT_EQ(Read(), GetParam().expected);
}

constexpr ULONG kYes = 0;
constexpr ULONG kOtherText = 0x80004005;
constexpr ULONG kTooLong = 0x800700EA;

INSTANTIATE_TEST_SUITE_P(
    Values, StoredUpdateMode,
    testing::Values(
        StoredValue{"ServiceControlled", REG_SZ, TerminatedBytes(L"Service Controlled"), kYes},
        StoredValue{"WithoutATerminator", REG_SZ, Bytes(L"Service Controlled"), kYes},
        // The registry terminates texts for their reader, but not this: the reader's own zeros end it.
        StoredValue{"ThirtySixBytesThatNobodyTerminates", REG_BINARY, Bytes(L"Service Controlled"), kYes},
        StoredValue{"AnotherTypeOfText", REG_EXPAND_SZ, TerminatedBytes(L"Service Controlled"), kYes},
        StoredValue{"AnyTypeOfData", REG_BINARY, TerminatedBytes(L"Service Controlled"), kYes},
        StoredValue{"Disabled", REG_SZ, TerminatedBytes(L"Disabled"), kOtherText},
        StoredValue{"Auto", REG_SZ, TerminatedBytes(L"Auto"), kOtherText},
        StoredValue{"EmptyText", REG_SZ, TerminatedBytes(L""), kOtherText},
        StoredValue{"NoBytes", REG_BINARY, "", kOtherText},
        StoredValue{"OtherCase", REG_SZ, TerminatedBytes(L"service controlled"), kOtherText},
        StoredValue{"UpperCase", REG_SZ, TerminatedBytes(L"SERVICE CONTROLLED"), kOtherText},
        StoredValue{"OneCharacterShort", REG_SZ, TerminatedBytes(L"Service Controlle"), kOtherText},
        StoredValue{"LeadingBlank", REG_BINARY, Bytes(L" Service Controlled"), kOtherText},
        StoredValue{"TrailingBlankAsText", REG_SZ, TerminatedBytes(L"Service Controlled "), kTooLong},
        StoredValue{"TrailingBlankThatJustFits", REG_BINARY, Bytes(L"Service Controlled "), kOtherText},
        StoredValue{"OneByteTooLong", REG_BINARY,
                    TerminatedBytes(L"Service Controlled") + std::string(1, '\0'), kTooLong},
        StoredValue{"MuchTooLong", REG_SZ, std::string(4000, 'A'), kTooLong},
        StoredValue{"OddNumberOfBytes", REG_BINARY, Bytes(L"Service Controlled") + std::string(1, '\0'),
                    kYes},
        StoredValue{"OddByteNotZero", REG_BINARY, Bytes(L"Service Controlled") + "x", kOtherText},
        StoredValue{"NarrowText", REG_BINARY, "Service Controlled", kOtherText},
        StoredValue{"Number", REG_DWORD, std::string("\x01\0\0\0", 4), kOtherText},
        StoredValue{"ListOfTexts", REG_MULTI_SZ,
                    TerminatedBytes(L"Service Controlled") + std::string(2, '\0'), kTooLong}),
    [](const auto& stored) { return stored.param.name; });

// Writing.

struct WrittenText {
    const char* name;
    const wchar_t* text;
    const char* line;
};

class WrittenUpdateMode : public UpdateModeSettingTest, public testing::WithParamInterface<WrittenText> {};

TEST_P(WrittenUpdateMode, IsHandedToTheRegistryWithoutItsTerminator) {
    const RegistryCalls& calls = Listen();
    EXPECT_EQ(Write(GetParam().text), (Written{0, ""}));
    EXPECT_EQ(calls.Lines(), (Lines{kCreateLine, GetParam().line, kCloseLine}));
}

// The registry itself may add the terminator that it finds behind the text.
TEST_P(WrittenUpdateMode, IsStoredAsAText) {
    EXPECT_EQ(Write(GetParam().text).first, 0U);
    const auto stored = Load();
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(stored->type, static_cast<DWORD>(REG_SZ));
    const std::string bytes = Bytes(GetParam().text);
    EXPECT_EQ(stored->data.substr(0, bytes.size()), bytes);
    EXPECT_EQ(stored->data.find_first_not_of('\0', bytes.size()), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, WrittenUpdateMode,
    testing::Values(WrittenText{"Disabled", L"Disabled",
                                "RegSetValueExW(key 1, DFUAutoMode, 0, 1, Disabled, 16 bytes)"},
                    WrittenText{"Auto", L"Auto", "RegSetValueExW(key 1, DFUAutoMode, 0, 1, Auto, 8 bytes)"},
                    WrittenText{"ServiceControlled", L"Service Controlled",
                                "RegSetValueExW(key 1, DFUAutoMode, 0, 1, Service Controlled, 36 bytes)"}),
    [](const auto& written) { return written.param.name; });

TEST_F(UpdateModeSettingTest, ReadsAsServiceControlledAfterThatWasWritten) {
    EXPECT_EQ(Write(L"Service Controlled").first, 0U);
    EXPECT_EQ(Read(), 0U);
    EXPECT_EQ(Write(L"Auto").first, 0U);
    EXPECT_EQ(Read(), 0x80004005U);
    EXPECT_EQ(Write(L"Service Controlled").first, 0U);
    EXPECT_EQ(Read(), 0U);
    EXPECT_EQ(Write(L"Disabled").first, 0U);
    EXPECT_EQ(Read(), 0x80004005U);
}

TEST_F(UpdateModeSettingTest, WritesAnEmptyTextAsNoBytes) {
    EXPECT_EQ(Write(L"").first, 0U);
    const auto stored = Load();
    ASSERT_TRUE(stored.has_value());
    EXPECT_EQ(stored->data, "");
}

TEST_F(UpdateModeSettingTest, LogsADeniedKey) {
    RegistryCalls& calls = Listen();
    calls.Fail("RegCreateKeyExW", 1, 5);
    EXPECT_EQ(Write(L"Auto"), (Written{0x80004005, "Failed open registry key with status ACCESS_DENIED\n"}));
    EXPECT_EQ(calls.Lines(), Lines{kCreateLine});
}

TEST_F(UpdateModeSettingTest, LogsAnyOtherFailureOfTheKeyWithItsCode) {
    RegistryCalls& calls = Listen();
    calls.Fail("RegCreateKeyExW", 1, 1450);
    EXPECT_EQ(Write(L"Auto"),
              (Written{0x80004005, "Failed to open / create registry key with status 1450\n"}));
    calls.Fail("RegCreateKeyExW", 2, -6);
    EXPECT_EQ(Write(L"Auto"), (Written{0x80004005, "Failed to open / create registry key with status -6\n"}));
    EXPECT_EQ(calls.Lines(), (Lines{kCreateLine, kCreateLine}));
}

TEST_F(UpdateModeSettingTest, LogsAFailureToWriteAndClosesTheKey) {
    RegistryCalls& calls = Listen();
    calls.Fail("RegSetValueExW", 1, 5);
    EXPECT_EQ(Write(L"Disabled"), (Written{0x80004005, "Failed write registry value with status 5\n"}));
    EXPECT_EQ(
        calls.Lines(),
        (Lines{kCreateLine, "RegSetValueExW(key 1, DFUAutoMode, 0, 1, Disabled, 16 bytes)", kCloseLine}));
}

TEST_F(UpdateModeSettingTest, FailsInTheSameWayWithoutALog) {
    RegistryCalls& calls = Listen();
    const UpdateModeSetting setting(nullptr);
    calls.Fail("RegCreateKeyExW", 1, 5);
    EXPECT_EQ(setting.WriteUpdateMode(L"Auto"), E_FAIL);
    calls.Fail("RegCreateKeyExW", 2, 1450);
    EXPECT_EQ(setting.WriteUpdateMode(L"Auto"), E_FAIL);
    calls.Fail("RegSetValueExW", 1, 1450);
    EXPECT_EQ(setting.WriteUpdateMode(L"Auto"), E_FAIL);
    EXPECT_EQ(calls.Lines().back(), kCloseLine);
}

TEST_F(UpdateModeSettingTest, LeavesTheOtherValuesOfTheKeyAlone) {
    const DWORD number = 7;
    ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey, L"Other", REG_DWORD, &number, 4), ERROR_SUCCESS);
    EXPECT_EQ(Write(L"Auto").first, 0U);
    DWORD kept = 0;
    DWORD size = 4;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, kKey, L"Other", RRF_RT_REG_DWORD, nullptr, &kept, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(kept, 7U);
}

}  // namespace
