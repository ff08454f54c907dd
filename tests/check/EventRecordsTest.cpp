#include "check/EventRecords.h"

#include "tests/support/ImportRedirect.h"

#include <gtest/gtest.h>

#include <winevt.h>

#include <cwchar>
#include <map>
#include <string>
#include <vector>

namespace {

using test_support::ImportRedirect;

constexpr const wchar_t* kRecord = L"<Event><Provider Name='VeyraCameraDfuService'/></Event>";
constexpr const wchar_t* kNamed =
    L"<Event><Provider Name='VeyraCameraDfuService'/><Data>on pc7.corp.example</Data></Event>";

// Each log holds so many records of the service; reading on ends with this error.
struct FakeLogs {
    std::map<std::wstring, DWORD> refused;
    const wchar_t* record = kRecord;
    int records = 1;
    DWORD end = ERROR_NO_MORE_ITEMS;
    int queries = 0;
    int left = 0;
};
FakeLogs* logs = nullptr;

EVT_HANDLE Handle() {
    return logs;
}

EVT_HANDLE WINAPI Query(EVT_HANDLE, const wchar_t* log, const wchar_t*, DWORD) {
    ++logs->queries;
    logs->left = logs->records;
    const auto refused = logs->refused.find(log);
    if (refused == logs->refused.end()) {
        return Handle();
    }
    SetLastError(refused->second);
    return nullptr;
}

BOOL WINAPI Next(EVT_HANDLE, DWORD, EVT_HANDLE* events, DWORD, DWORD, DWORD* returned) {
    if (logs->left-- > 0) {
        *events = Handle();
        *returned = 1;
        return TRUE;
    }
    *returned = 0;
    SetLastError(logs->end);
    return FALSE;
}

BOOL WINAPI Render(EVT_HANDLE, EVT_HANDLE, DWORD, DWORD size, void* buffer, DWORD* used, DWORD*) {
    *used = static_cast<DWORD>((std::wcslen(logs->record) + 1) * sizeof(wchar_t));
    if (size < *used) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::wmemcpy(static_cast<wchar_t*>(buffer), logs->record, std::wcslen(logs->record) + 1);
    return TRUE;
}

BOOL WINAPI Close(EVT_HANDLE) {
    return TRUE;
}

class EventRecordsTest : public ::testing::Test {
  protected:
    EventRecordsTest() { logs = &logs_; }
    ~EventRecordsTest() override { logs = nullptr; }

    FakeLogs logs_;
    DWORD error_ = ERROR_SUCCESS;
    ImportRedirect query_{"EvtQuery", &Query};
    ImportRedirect next_{"EvtNext", &Next};
    ImportRedirect render_{"EvtRender", &Render};
    ImportRedirect close_{"EvtClose", &Close};
};

constexpr const char* kOne = "<Event><Provider Name='VeyraCameraDfuService'/></Event>\n";

}  // namespace

TEST_F(EventRecordsTest, ReadsBothLogsToTheirEnds) {
    EXPECT_EQ(check::ReadEventRecords({}, error_), std::string("<Events>\n") + kOne + kOne + "</Events>\n");
    EXPECT_EQ(error_, static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_EQ(logs_.queries, 2);
}

TEST_F(EventRecordsTest, TakesEachOfTheNamesOut) {
    logs_.record = kNamed;
    logs_.refused[L"System"] = ERROR_ACCESS_DENIED;
    EXPECT_EQ(check::ReadEventRecords({"PC7", "corp.example"}, error_),
              "<Events>\n<Event><Provider Name='VeyraCameraDfuService'/><Data>on .......</Data></Event>\n"
              "</Events>\n");
}

TEST_F(EventRecordsTest, TellsThatALogWasNotReadToItsEnd) {
    logs_.end = ERROR_TIMEOUT;
    EXPECT_EQ(check::ReadEventRecords({}, error_), std::string("<Events>\n") + kOne + kOne + "</Events>\n");
    EXPECT_EQ(error_, static_cast<DWORD>(ERROR_TIMEOUT));
}

TEST_F(EventRecordsTest, SaysThatThereIsNoRecord) {
    logs_.records = 0;
    EXPECT_EQ(check::ReadEventRecords({}, error_), "<Events>\n</Events>\n");
    EXPECT_EQ(error_, static_cast<DWORD>(ERROR_SUCCESS));
}

TEST_F(EventRecordsTest, TellsThatOneOfTheLogsWasNotRead) {
    logs_.refused[L"System"] = ERROR_ACCESS_DENIED;
    EXPECT_EQ(check::ReadEventRecords({}, error_), std::string("<Events>\n") + kOne + "</Events>\n");
    EXPECT_EQ(error_, static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

// An empty list would say that there are no records.
TEST_F(EventRecordsTest, SaysNothingOfLogsThatCannotBeRead) {
    logs_.refused = {{L"Application", ERROR_ACCESS_DENIED}, {L"System", ERROR_ACCESS_DENIED}};
    EXPECT_EQ(check::ReadEventRecords({}, error_), "");
    EXPECT_EQ(error_, static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(EventRecordsTest, SaysNothingOfLogsThatOpenAndAreNotRead) {
    logs_.records = 0;
    logs_.end = ERROR_TIMEOUT;
    EXPECT_EQ(check::ReadEventRecords({}, error_), "");
    EXPECT_EQ(error_, static_cast<DWORD>(ERROR_TIMEOUT));
}
