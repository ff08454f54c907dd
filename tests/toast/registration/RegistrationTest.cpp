#include "toast/registration/Registration.h"

#include <gtest/gtest.h>
#include <sddl.h>

#include <array>
#include <string>
#include <vector>

#include "win32/UniqueHandle.h"
#include "win32/Win32Error.h"
#include "toast/registration/ProgramPath.h"
#include "toast/registration/RegistrationPlan.h"
#include "toast/registration/RegistryChanges.h"
#include "tests/support/ImportRedirect.h"

namespace toast {
namespace {

using test_support::ImportRedirect;

const std::wstring kClassKey = L"SOFTWARE\\Classes\\CLSID\\{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}";
const std::wstring kApplicationKey = L"SOFTWARE\\Classes\\AppID\\{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}";
const std::wstring kTestKey = L"SOFTWARE\\VeyraToastTest";

bool Exists(const std::wstring& key) {
    win32::UniqueRegistryKey opened;
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, opened.Receive()) == ERROR_SUCCESS;
}

std::wstring TextOf(const std::wstring& key, const wchar_t* name = nullptr) {
    std::wstring text(1024, L'\0');
    auto size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_REG_SZ, nullptr, text.data(), &size) !=
        ERROR_SUCCESS) {
        return L"(none)";
    }
    text.resize(size / sizeof(wchar_t) - 1);
    return text;
}

// A security descriptor, read back from its bytes: owner, group and the list of who may do what.
std::wstring PermissionOf(const wchar_t* name) {
    std::vector<std::uint8_t> bytes(1024);
    auto size = static_cast<DWORD>(bytes.size());
    if (RegGetValueW(HKEY_LOCAL_MACHINE, kApplicationKey.c_str(), name, RRF_RT_REG_BINARY, nullptr,
                     bytes.data(), &size) != ERROR_SUCCESS ||
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

// The first writes to the registry that go through; the next fails.
int writesLeft = 0;
LSTATUS writeError = ERROR_SUCCESS;
const ImportRedirect* realWrite = nullptr;

LSTATUS WINAPI WriteSome(HKEY root, LPCWSTR key, LPCWSTR name, DWORD type, LPCVOID data, DWORD size) {
    if (writesLeft-- == 0) {
        return writeError;
    }
    return realWrite->Original<decltype(RegSetKeyValueW)>()(root, key, name, type, data, size);
}

class RegistrationTest : public testing::Test {
  protected:
    RegistrationTest() { Clear(); }
    ~RegistrationTest() override {
        Clear();
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kTestKey.c_str());
    }

    static void Clear() { EXPECT_EQ(DeleteKeys(RegistrationKeys()), ERROR_SUCCESS); }

    // Registers another program's file.
    static void RegisterOther(const std::wstring& path) {
        RegistryChanges changes;
        EXPECT_EQ(changes.Write(TextValue(kServerKey, kServerExecutable, path)), ERROR_SUCCESS);
        changes.Keep();
    }
};

TEST_F(RegistrationTest, NamesThisProgramAsTheLocalServer) {
    ASSERT_EQ(Register(), RegistrationResult::kDone);
    EXPECT_EQ(TextOf(kClassKey + L"\\LocalServer32"), L"\"" + ProgramPath() + L"\"");
    EXPECT_EQ(TextOf(kClassKey + L"\\LocalServer32", L"ServerExecutable"), ProgramPath());
    EXPECT_EQ(TextOf(kClassKey), L"Veyra camera toast controller");
    EXPECT_EQ(TextOf(kClassKey + L"\\TypeLib"), L"{84F13EE2-392B-49D6-A2F4-D921A5746B0D}");
    EXPECT_EQ(TextOf(kClassKey + L"\\Version"), L"1.0");
}

TEST_F(RegistrationTest, GivesTheInterfacesToTheAutomationMarshaller) {
    ASSERT_EQ(Register(), RegistrationResult::kDone);
    const std::wstring library = L"SOFTWARE\\Classes\\TypeLib\\{84F13EE2-392B-49D6-A2F4-D921A5746B0D}\\1.0";
    EXPECT_EQ(TextOf(library + L"\\0\\win64"), ProgramPath());
    EXPECT_EQ(TextOf(library + L"\\FLAGS"), L"0");
    const std::wstring interfaces = L"SOFTWARE\\Classes\\Interface\\";
    const std::wstring controller = interfaces + L"{45E679A1-AE15-45DC-854E-13D90FD864C5}";
    const std::wstring events = interfaces + L"{BAE9D3F9-D047-4A89-B5AD-862D8A2B29D0}";
    EXPECT_EQ(TextOf(controller), L"IToastCntr");
    EXPECT_EQ(TextOf(controller + L"\\ProxyStubClsid32"), L"{00020424-0000-0000-C000-000000000046}");
    EXPECT_EQ(TextOf(events), L"IToastCntrEvents");
    EXPECT_EQ(TextOf(events + L"\\ProxyStubClsid32"), L"{00020420-0000-0000-C000-000000000046}");
    for (const std::wstring& key : {controller, events}) {
        EXPECT_EQ(TextOf(key + L"\\TypeLib"), L"{84F13EE2-392B-49D6-A2F4-D921A5746B0D}");
        EXPECT_EQ(TextOf(key + L"\\TypeLib", L"Version"), L"1.0");
    }
}

TEST_F(RegistrationTest, RunsAsTheInteractiveUser) {
    ASSERT_EQ(Register(), RegistrationResult::kDone);
    EXPECT_EQ(TextOf(kClassKey, L"AppID"), L"{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}");
    EXPECT_EQ(TextOf(kApplicationKey, L"RunAs"), L"Interactive User");
    EXPECT_EQ(TextOf(L"SOFTWARE\\Classes\\AppID\\VeyraCameraToastCntl.exe", L"AppID"),
              L"{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}");
}

// From this machine alone: LocalSystem, LocalService, whoever is logged on, the administrators.
TEST_F(RegistrationTest, LetsTheServiceLaunchAndCallTheServer) {
    ASSERT_EQ(Register(), RegistrationResult::kDone);
    EXPECT_EQ(PermissionOf(L"LaunchPermission"),
              L"O:BAG:BAD:(A;;CCDCSW;;;SY)(A;;CCDCSW;;;LS)(A;;CCDCSW;;;IU)(A;;CCDCSW;;;BA)");
    EXPECT_EQ(PermissionOf(L"AccessPermission"),
              L"O:BAG:BAD:(A;;CCDC;;;SY)(A;;CCDC;;;LS)(A;;CCDC;;;IU)(A;;CCDC;;;BA)");
}

TEST_F(RegistrationTest, MakesAnEventSource) {
    ASSERT_EQ(Register(), RegistrationResult::kDone);
    const std::wstring source =
        L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\VeyraCameraToastCntl";
    EXPECT_EQ(TextOf(source, L"EventMessageFile"), ProgramPath());
    DWORD types = 0;
    DWORD size = sizeof types;
    EXPECT_EQ(RegGetValueW(HKEY_LOCAL_MACHINE, source.c_str(), L"TypesSupported", RRF_RT_REG_DWORD, nullptr,
                           &types, &size),
              ERROR_SUCCESS);
    EXPECT_EQ(types, 7u);
}

// A client takes the class's key for the whole registration.
TEST_F(RegistrationTest, WritesTheClassLast) {
    const std::vector<RegistryValue> plan = RegistrationPlan(L"C:\\x.exe");
    bool inClass = false;
    for (const RegistryValue& value : plan) {
        EXPECT_TRUE(!inClass || value.key.starts_with(kClassKey));
        inClass = value.key.starts_with(kClassKey);
    }
    EXPECT_TRUE(inClass);
}

TEST_F(RegistrationTest, MayBeRepeatedAndRemovedWithoutARest) {
    EXPECT_EQ(Register(), RegistrationResult::kDone);
    EXPECT_EQ(Register(), RegistrationResult::kDone);
    EXPECT_EQ(Unregister(), RegistrationResult::kDone);
    for (const std::wstring& key : RegistrationKeys()) {
        EXPECT_FALSE(Exists(key)) << testing::PrintToString(key);
    }
    EXPECT_EQ(Unregister(), RegistrationResult::kDone);
}

TEST_F(RegistrationTest, IsWholeOrNotThereWhicheverWriteFails) {
    const auto writes = static_cast<int>(RegistrationPlan(ProgramPath()).size());
    EXPECT_EQ(writes, 24);
    const ImportRedirect write("RegSetKeyValueW", &WriteSome);
    realWrite = &write;
    for (int failing = 0; failing < writes; ++failing) {
        writesLeft = failing;
        writeError = failing % 2 == 0 ? ERROR_ACCESS_DENIED : ERROR_DISK_FULL;
        EXPECT_EQ(Register(),
                  failing % 2 == 0 ? RegistrationResult::kAccessDenied : RegistrationResult::kFailed);
        for (const std::wstring& key : RegistrationKeys()) {
            EXPECT_FALSE(Exists(key)) << failing << " " << testing::PrintToString(key);
        }
    }
}

TEST_F(RegistrationTest, StaysAsItWasWhenItCannotBeRepeated) {
    ASSERT_EQ(Register(), RegistrationResult::kDone);
    const ImportRedirect write("RegSetKeyValueW", &WriteSome);
    realWrite = &write;
    writesLeft = 20;
    writeError = ERROR_DISK_FULL;
    EXPECT_EQ(Register(), RegistrationResult::kFailed);
    EXPECT_EQ(TextOf(kServerKey, kServerExecutable), ProgramPath());
    EXPECT_EQ(PermissionOf(L"AccessPermission"),
              L"O:BAG:BAD:(A;;CCDC;;;SY)(A;;CCDC;;;LS)(A;;CCDC;;;IU)(A;;CCDC;;;BA)");
}

BOOL WINAPI NoDescriptor(LPCWSTR, DWORD, PSECURITY_DESCRIPTOR*, PULONG) {
    SetLastError(ERROR_INVALID_ACL);
    return FALSE;
}

TEST_F(RegistrationTest, FailsWithoutAPermissionToWrite) {
    const ImportRedirect convert("ConvertStringSecurityDescriptorToSecurityDescriptorW", &NoDescriptor);
    EXPECT_EQ(Register(), RegistrationResult::kFailed);
    EXPECT_FALSE(Exists(kClassKey));
    EXPECT_THROW(static_cast<void>(PermissionValue(L"", L"", L"")), win32::Win32Error);
}

TEST_F(RegistrationTest, LeavesAnotherProgramsAlone) {
    const std::wstring other = L"C:\\windows\\system32\\cmd.exe";
    RegisterOther(other);
    EXPECT_EQ(Register(), RegistrationResult::kOtherProgram);
    EXPECT_EQ(Unregister(), RegistrationResult::kOtherProgram);
    EXPECT_EQ(TextOf(kServerKey, kServerExecutable), other);
    EXPECT_FALSE(Exists(kApplicationKey));
}

TEST_F(RegistrationTest, LeavesAnotherCommandLineAlone) {
    ASSERT_EQ(Register(), RegistrationResult::kDone);
    for (const wchar_t* const line :
         {L"C:\\windows\\system32\\cmd.exe", L"\"C:\\windows\\system32\\cmd.exe\" -Embedding",
          L"C:\\windows\\system32\\cmd.exe -Embedding", L"C:\\windows\\system32\\cmd.exe a b"}) {
        RegistryChanges changes;
        ASSERT_EQ(changes.Write(TextValue(kServerKey, L"", line)), ERROR_SUCCESS);
        EXPECT_EQ(Register(), RegistrationResult::kOtherProgram) << testing::PrintToString(line);
        EXPECT_EQ(Unregister(), RegistrationResult::kOtherProgram) << testing::PrintToString(line);
        EXPECT_EQ(TextOf(kServerKey), line);
    }
}

TEST_F(RegistrationTest, TakesThePlaceOfACommandLineWhoseProgramIsGone) {
    for (const wchar_t* const line :
         {L"\"C:\\gone\\other.exe\" -Embedding", L"C:\\gone\\other.exe -Embedding", L"\"C:\\gone\\unended",
          L"\"", L""}) {
        RegistryChanges changes;
        ASSERT_EQ(changes.Write(TextValue(kServerKey, L"", line)), ERROR_SUCCESS);
        changes.Keep();
        EXPECT_EQ(Register(), RegistrationResult::kDone) << testing::PrintToString(line);
        EXPECT_EQ(TextOf(kServerKey), L"\"" + ProgramPath() + L"\"");
    }
}

TEST_F(RegistrationTest, TakesThePlaceOfAProgramThatIsGone) {
    RegisterOther(L"C:\\gone\\VeyraCameraToastCntl.exe");
    EXPECT_EQ(Register(), RegistrationResult::kDone);
    EXPECT_EQ(TextOf(kServerKey, kServerExecutable), ProgramPath());
}

LSTATUS WINAPI DenyOne(HKEY root, LPCWSTR key, DWORD options, REGSAM access, PHKEY opened) {
    if ((access & DELETE) != 0 && key == kApplicationKey) {
        return ERROR_ACCESS_DENIED;
    }
    return realWrite->Original<decltype(RegOpenKeyExW)>()(root, key, options, access, opened);
}

TEST_F(RegistrationTest, IsRemovedWholeOrNotAtAll) {
    ASSERT_EQ(Register(), RegistrationResult::kDone);
    {
        const ImportRedirect open("RegOpenKeyExW", &DenyOne);
        realWrite = &open;
        EXPECT_EQ(Unregister(), RegistrationResult::kAccessDenied);
    }
    for (const std::wstring& key : RegistrationKeys()) {
        EXPECT_TRUE(Exists(key)) << testing::PrintToString(key);
    }
}

LSTATUS WINAPI FailToDelete(HKEY, LPCWSTR) {
    return ERROR_KEY_DELETED;
}

TEST_F(RegistrationTest, TellsThatAKeyCouldNotBeDeleted) {
    ASSERT_EQ(Register(), RegistrationResult::kDone);
    const ImportRedirect remove("RegDeleteTreeW", &FailToDelete);
    EXPECT_EQ(Unregister(), RegistrationResult::kFailed);
}

TEST_F(RegistrationTest, TakesBackEveryKindOfChange) {
    RegistryChanges first;
    ASSERT_EQ(first.Write(TextValue(kTestKey, L"Text", L"before")), ERROR_SUCCESS);
    first.Keep();
    {
        RegistryChanges changes;
        EXPECT_EQ(changes.Write(TextValue(kTestKey, L"Text", L"after")), ERROR_SUCCESS);
        EXPECT_EQ(changes.Write(TextValue(kTestKey, L"Text", L"later")), ERROR_SUCCESS);
        EXPECT_EQ(changes.Write(NumberValue(kTestKey, L"Number", 7)), ERROR_SUCCESS);
        EXPECT_EQ(changes.Write(TextValue(kTestKey + L"\\A\\B\\C", L"", L"deep")), ERROR_SUCCESS);
        EXPECT_EQ(TextOf(kTestKey, L"Text"), L"later");
        EXPECT_EQ(TextOf(kTestKey + L"\\A\\B\\C"), L"deep");
    }
    EXPECT_EQ(TextOf(kTestKey, L"Text"), L"before");
    EXPECT_FALSE(Exists(kTestKey + L"\\A"));
    EXPECT_EQ(
        RegGetValueW(HKEY_LOCAL_MACHINE, kTestKey.c_str(), L"Number", RRF_RT_ANY, nullptr, nullptr, nullptr),
        ERROR_FILE_NOT_FOUND);
}

}  // namespace
}  // namespace toast
