#include "tests/lab/toast/ToastControllerFixture.h"

#include <oleauto.h>
#include <sddl.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace {

constexpr wchar_t kClassKey[] = L"SOFTWARE\\Classes\\CLSID\\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}";
constexpr wchar_t kApplicationKey[] = L"SOFTWARE\\Classes\\AppID\\{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}";

// Every key below HKEY_LOCAL_MACHINE that a registration makes, those of the 32-bit view included.
constexpr std::array kKeys{
    L"SOFTWARE\\Classes\\CLSID\\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}",
    L"SOFTWARE\\Classes\\AppID\\{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}",
    L"SOFTWARE\\Classes\\AppID\\VeyraCameraToastCntl.exe",
    L"SOFTWARE\\Classes\\TypeLib\\{84F13EE2-392B-49D6-A2F4-D921A5746B0D}",
    L"SOFTWARE\\Classes\\Interface\\{45E679A1-AE15-45DC-854E-13D90FD864C5}",
    L"SOFTWARE\\Classes\\Interface\\{BAE9D3F9-D047-4A89-B5AD-862D8A2B29D0}",
    L"SOFTWARE\\Classes\\Wow6432Node\\TypeLib\\{84F13EE2-392B-49D6-A2F4-D921A5746B0D}",
    L"SOFTWARE\\Classes\\Wow6432Node\\Interface\\{45E679A1-AE15-45DC-854E-13D90FD864C5}",
    L"SOFTWARE\\Classes\\Wow6432Node\\Interface\\{BAE9D3F9-D047-4A89-B5AD-862D8A2B29D0}",
};

bool Exists(const wchar_t* key) {
    win32::UniqueRegistryKey opened;
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, key, 0, KEY_READ, opened.Receive()) == ERROR_SUCCESS;
}

std::wstring TextOf(const std::wstring& key, const wchar_t* name = nullptr) {
    std::wstring text(1024, L'\0');
    auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_REG_SZ, nullptr, text.data(), &size) !=
        ERROR_SUCCESS) {
        return {};
    }
    text.resize(size / sizeof(wchar_t) - 1);
    return text;
}

// A security descriptor, read back from its bytes: owner, group and the list of who may do what.
std::wstring PermissionOf(const wchar_t* name) {
    std::vector<std::uint8_t> bytes(1024);
    auto size = static_cast<DWORD>(bytes.size());
    if (RegGetValueW(HKEY_LOCAL_MACHINE, kApplicationKey, name, RRF_RT_REG_BINARY, nullptr, bytes.data(),
                     &size) != ERROR_SUCCESS ||
        !IsValidSecurityDescriptor(bytes.data()) || GetSecurityDescriptorLength(bytes.data()) != size) {
        return {};
    }
    wchar_t* text = nullptr;
    if (!ConvertSecurityDescriptorToStringSecurityDescriptorW(
            bytes.data(), SDDL_REVISION_1,
            OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &text,
            nullptr)) {
        return {};
    }
    std::wstring permission(text);
    LocalFree(text);
    return permission;
}

class Registration : public ToastControllerFixture {
  protected:
    void TearDown() override {
        // The next test needs it, too.
        if (!Exists(kClassKey)) {
            EXPECT_EQ(RunToastControllerFile(L"/RegServer").exitCode, 0u);
        }
    }
};

TEST_F(Registration, NamesTheExecutableAsTheLocalServer) {
    const std::wstring serverKey = std::wstring(kClassKey) + L"\\LocalServer32";
    EXPECT_EQ(TextOf(serverKey), L"\"" + ToastControllerFile() + L"\"");
    EXPECT_EQ(TextOf(serverKey, L"ServerExecutable"), ToastControllerFile());
}

// The class only tells a client that the type library is there when the library is registered under the same
// id.
TEST_F(Registration, NamesTheTypeLibraryThatIsRegistered) {
    EXPECT_EQ(TextOf(std::wstring(kClassKey) + L"\\TypeLib"), L"{84F13EE2-392B-49D6-A2F4-D921A5746B0D}");
    for (const wchar_t* key : kKeys) {
        EXPECT_TRUE(Exists(key)) << testing::PrintToString(key);
    }
}

TEST_F(Registration, RunsAsTheInteractiveUser) {
    EXPECT_EQ(TextOf(kClassKey, L"AppID"), L"{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}");
    EXPECT_EQ(TextOf(kApplicationKey, L"RunAs"), L"Interactive User");
}

// Local launch and activation, to those on this machine who have to: LocalSystem, LocalService, whoever is
// logged on, the administrators.
TEST_F(Registration, LetsTheServiceLaunchTheServer) {
    EXPECT_EQ(PermissionOf(L"LaunchPermission"),
              L"O:BAG:BAD:(A;;CCDCSW;;;SY)(A;;CCDCSW;;;LS)(A;;CCDCSW;;;IU)(A;;CCDCSW;;;BA)");
}

TEST_F(Registration, LetsTheServiceCallTheServer) {
    EXPECT_EQ(PermissionOf(L"AccessPermission"),
              L"O:BAG:BAD:(A;;CCDC;;;SY)(A;;CCDC;;;LS)(A;;CCDC;;;IU)(A;;CCDC;;;BA)");
    EXPECT_EQ(TextOf(L"SOFTWARE\\Classes\\AppID\\VeyraCameraToastCntl.exe", L"AppID"),
              L"{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}");
}

TEST_F(Registration, GivesTheInterfacesToTheAutomationMarshaller) {
    EXPECT_EQ(
        TextOf(L"SOFTWARE\\Classes\\Interface\\{45E679A1-AE15-45DC-854E-13D90FD864C5}\\ProxyStubClsid32"),
        L"{00020424-0000-0000-C000-000000000046}");
    EXPECT_EQ(
        TextOf(L"SOFTWARE\\Classes\\Interface\\{BAE9D3F9-D047-4A89-B5AD-862D8A2B29D0}\\ProxyStubClsid32"),
        L"{00020420-0000-0000-C000-000000000046}");
}

TEST_F(Registration, MayBeRepeated) {
    EXPECT_EQ(RunToastControllerFile(L"/RegServer").exitCode, 0u);
    EXPECT_TRUE(Exists(kClassKey));
}

TEST_F(Registration, IsRemovedWithoutARest) {
    const ProgramEnd end = RunToastControllerFile(L"/UnregServer");
    EXPECT_EQ(end.exitCode, 0u);
    EXPECT_EQ(end.errors, "");
    for (const wchar_t* key : kKeys) {
        EXPECT_FALSE(Exists(key)) << testing::PrintToString(key);
    }
}

TEST_F(Registration, MayBeRemovedWhenItIsNotThere) {
    EXPECT_EQ(RunToastControllerFile(L"/UnregServer").exitCode, 0u);
    EXPECT_EQ(RunToastControllerFile(L"/UnregServer").exitCode, 0u);
}

TEST_F(Registration, IsNeededByTheServer) {
    ASSERT_EQ(RunToastControllerFile(L"/UnregServer").exitCode, 0u);
    const ProgramEnd end = RunToastControllerFile(L"-Embedding");
    EXPECT_EQ(end.exitCode, 1u);
    EXPECT_EQ(end.errors, "VeyraCameraToastCntl: the server failed with 0x8002801D\r\n");
}

TEST_F(Registration, IsNotTouchedByAnUnknownWord) {
    const ProgramEnd end = RunToastControllerFile(L"VeyraCameraToastCntl.exe /Help");
    EXPECT_EQ(end.exitCode, 2u);
    EXPECT_EQ(end.errors, "usage: VeyraCameraToastCntl /RegServer | /UnregServer | /Embedding\r\n");
    EXPECT_TRUE(Exists(kClassKey));
}

}  // namespace
