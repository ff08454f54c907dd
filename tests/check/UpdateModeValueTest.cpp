#include "check/UpdateModeValue.h"

#include "service/UpdateModeSetting.h"
#include "win32/UniqueHandle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include <windows.h>

namespace {

constexpr const wchar_t* kKey = L"SYSTEM\\CurrentControlSet\\Services\\VeyraCameraDFU";

using Bytes = std::vector<std::uint8_t>;

Bytes BytesOf(std::wstring_view text) {
    Bytes bytes;
    for (const wchar_t character : text) {
        bytes.push_back(static_cast<std::uint8_t>(character));
        bytes.push_back(static_cast<std::uint8_t>(character >> 8));
    }
    return bytes;
}

const Bytes kText = BytesOf(L"Service Controlled");

Bytes With(Bytes bytes, std::initializer_list<std::uint8_t> more) {
    bytes.insert(bytes.end(), more);
    return bytes;
}

Bytes With(Bytes bytes, std::size_t index, std::uint8_t value) {
    bytes[index] = value;
    return bytes;
}

// What the service says to it. The value has no type that Windows would complete.
bool ServiceSays(const Bytes& value) {
    win32::UniqueRegistryKey key;
    EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, REG_OPTION_VOLATILE, KEY_ALL_ACCESS,
                              nullptr, key.Receive(), nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExW(key.Get(), L"DFUAutoMode", 0, REG_BINARY, value.data(),
                             static_cast<DWORD>(value.size())),
              ERROR_SUCCESS);
    const bool says = UpdateModeSetting(nullptr).IsServiceControlled() == S_OK;
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKey);
    return says;
}

}  // namespace

TEST(UpdateModeValue, IsWhatTheServiceTakesForIt) {
    EXPECT_TRUE(check::IsServiceControlled(kText));
    EXPECT_TRUE(check::IsServiceControlled(With(kText, {0, 0})));
    EXPECT_FALSE(check::IsServiceControlled(BytesOf(L"Disabled")));
    EXPECT_FALSE(check::IsServiceControlled(BytesOf(L"service controlled")));
    EXPECT_FALSE(check::IsServiceControlled({}));
}

TEST(UpdateModeValue, AgreesWithTheServicesOwnReader) {
    for (const Bytes& value :
         {kText, With(kText, {0, 0}), With(kText, {0}), With(kText, {1}), With(kText, {0, 0, 0, 0}),
          With(kText, {0x20, 0}), With(kText, 0, 's'), With(kText, 35, 1), BytesOf(L"Disabled"),
          BytesOf(L"Auto"), BytesOf(L"Service Controlled "), BytesOf(L"Service"), Bytes{}, Bytes(38),
          Bytes(37), Bytes(1000)}) {
        EXPECT_EQ(check::IsServiceControlled(value), ServiceSays(value)) << value.size();
    }
}
