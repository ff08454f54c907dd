#include "check/ComputerNames.h"

#include "tests/support/ImportRedirect.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <map>
#include <string>
#include <vector>

namespace {

// What Windows tells; of a format that is missing, nothing.
std::map<COMPUTER_NAME_FORMAT, std::wstring> told;

BOOL WINAPI Tell(COMPUTER_NAME_FORMAT format, wchar_t* buffer, DWORD* size) {
    const auto found = told.find(format);
    if (found == told.end()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const auto length = static_cast<DWORD>(found->second.size());
    if (*size <= length) {
        *size = length + 1;
        SetLastError(ERROR_MORE_DATA);
        return FALSE;
    }
    found->second.copy(buffer, length);
    buffer[length] = L'\0';
    *size = length;
    return TRUE;
}

class ComputerNamesTest : public ::testing::Test {
  protected:
    ComputerNamesTest() { told.clear(); }

    test_support::ImportRedirect tell_{"GetComputerNameExW", &Tell};
};

}  // namespace

TEST_F(ComputerNamesTest, AreThoseOfNetBiosAndOfDns) {
    told = {{ComputerNameNetBIOS, L"NOTEBOOK-OF-ANN"},
            {ComputerNamePhysicalDnsHostname, L"notebook-of-anna-m\u00fcller"},
            {ComputerNamePhysicalDnsDomain, L"corp.example"},
            {ComputerNamePhysicalDnsFullyQualified, L"notebook-of-anna-m\u00fcller.corp.example"}};
    EXPECT_EQ(check::ComputerNames(),
              (std::vector<std::string>{"NOTEBOOK-OF-ANN", "notebook-of-anna-m\xC3\xBCller", "corp.example",
                                        "notebook-of-anna-m\xC3\xBCller.corp.example"}));
}

TEST_F(ComputerNamesTest, AreWithoutWhatIsEmptyOrNotTold) {
    told = {{ComputerNameNetBIOS, L"PC7"}, {ComputerNamePhysicalDnsDomain, L""}};
    EXPECT_EQ(check::ComputerNames(), std::vector<std::string>{"PC7"});
}
