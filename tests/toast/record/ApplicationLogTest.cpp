#include "toast/record/ApplicationLog.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Messages.h"
#include "tests/support/ImportRedirect.h"

namespace toast {
namespace {

using test_support::ImportRedirect;

struct Entry {
    WORD type;
    DWORD event;
    std::vector<std::wstring> inserts;
};

std::vector<Entry> entries;
HANDLE const theSource = reinterpret_cast<HANDLE>(7);
HANDLE givenSource = nullptr;
HANDLE closedSource = nullptr;
std::wstring sourceName;

HANDLE WINAPI Open(LPCWSTR, LPCWSTR name) {
    sourceName = name;
    return givenSource;
}

BOOL WINAPI Close(HANDLE source) {
    closedSource = source;
    return TRUE;
}

BOOL WINAPI Report(HANDLE source, WORD type, WORD category, DWORD event, PSID, WORD count, DWORD size,
                   LPCWSTR* inserts, LPVOID) {
    EXPECT_EQ(source, theSource);
    EXPECT_EQ(category, 0);
    EXPECT_EQ(size, 0u);
    entries.push_back({type, event, std::vector<std::wstring>(inserts, inserts + count)});
    return TRUE;
}

// The text of an event in this program's resources.
std::wstring TextOf(const Entry& entry, LANGID language) {
    std::vector<DWORD_PTR> arguments;
    for (const std::wstring& insert : entry.inserts) {
        arguments.push_back(reinterpret_cast<DWORD_PTR>(insert.c_str()));
    }
    wchar_t* text = nullptr;
    FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, nullptr,
        entry.event, language, reinterpret_cast<wchar_t*>(&text), 0,
        reinterpret_cast<va_list*>(arguments.data()));
    const std::unique_ptr<wchar_t, decltype(&LocalFree)> owned(text, &LocalFree);
    return text == nullptr ? std::wstring() : std::wstring(text);
}

class ApplicationLogTest : public testing::Test {
  protected:
    ApplicationLogTest() {
        entries.clear();
        closedSource = nullptr;
        givenSource = theSource;
    }

    // What the one entry since the last look says in English.
    static std::wstring Said(DWORD event, WORD type) {
        EXPECT_EQ(entries.size(), 1u);
        const Entry entry = entries.at(0);
        entries.clear();
        EXPECT_EQ(entry.event, event);
        EXPECT_EQ(entry.type, type);
        EXPECT_NE(TextOf(entry, MAKELANGID(LANG_GERMAN, SUBLANG_GERMAN)), L"");
        return TextOf(entry, MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US));
    }

    const ImportRedirect open_{"RegisterEventSourceW", &Open};
    const ImportRedirect close_{"DeregisterEventSource", &Close};
    const ImportRedirect report_{"ReportEventW", &Report};
};

TEST_F(ApplicationLogTest, RecordsQuestionsAndAnswers) {
    ApplicationLog log;
    EXPECT_EQ(sourceName, L"VeyraCameraToastCntl");
    const Question question{L"1.0.0.0", L"2.0.0.0"};
    log.Asked(question);
    EXPECT_EQ(Said(EVENT_ASKED, EVENTLOG_INFORMATION_TYPE),
              L"The user is asked whether to replace firmware 1.0.0.0 of a camera by firmware 2.0.0.0.\r\n");
    log.Replaced(question);
    EXPECT_EQ(
        Said(EVENT_REPLACED, EVENTLOG_INFORMATION_TYPE),
        L"The question whether to replace firmware 1.0.0.0 by firmware 2.0.0.0 was not answered: another has "
        L"taken its place.\r\n");
    log.Lapsed(question);
    EXPECT_EQ(Said(EVENT_LAPSED, EVENTLOG_INFORMATION_TYPE),
              L"The question whether to replace firmware 1.0.0.0 by firmware 2.0.0.0 was not answered: "
              L"whoever asked "
              L"it has gone away.\r\n");
    log.Answered(kAnswerYes, {1});
    EXPECT_EQ(Said(EVENT_ANSWERED_YES, EVENTLOG_INFORMATION_TYPE), L"The user answered: Update.\r\n");
    log.Answered(kAnswerNo, {1});
    EXPECT_EQ(Said(EVENT_ANSWERED_NO, EVENTLOG_INFORMATION_TYPE),
              L"The user answered: Not now, or closed the question.\r\n");
}

TEST_F(ApplicationLogTest, RecordsHowFarADownloadCame) {
    ApplicationLog log;
    log.Started(118);
    EXPECT_EQ(Said(EVENT_STARTED, EVENTLOG_INFORMATION_TYPE),
              L"A download of 118 blocks starts. The number is rounded down: a short last block is not "
              L"counted.\r\n");
    log.Started(std::nullopt);
    EXPECT_EQ(Said(EVENT_STARTED_UNANNOUNCED, EVENTLOG_WARNING_TYPE),
              L"A download tells its progress, but has not told its start: how many blocks there are is not "
              L"known.\r\n");
    log.Ended(Ending::kAllTaken, 119, 118);
    EXPECT_EQ(Said(EVENT_ALL_TAKEN, EVENTLOG_INFORMATION_TYPE),
              L"The download is over. The camera has taken all blocks: 119, of 118 told at the start. "
              L"Whether it runs "
              L"the new firmware is not known.\r\n");
    log.Ended(Ending::kLastMayBeMissing, 118, 118);
    EXPECT_EQ(
        Said(EVENT_LAST_MAY_BE_MISSING, EVENTLOG_INFORMATION_TYPE),
        L"The download is over. The camera has taken 118 of 118 blocks told at the start; one more, a short "
        L"one, may be missing.\r\n");
    log.Ended(Ending::kStopped, 37, 118);
    EXPECT_EQ(Said(EVENT_STOPPED, EVENTLOG_WARNING_TYPE),
              L"The download stopped. The camera has taken 37 of 118 blocks told at the start.\r\n");
    log.Ended(Ending::kUnknown, 37, std::nullopt);
    EXPECT_EQ(Said(EVENT_UNKNOWN_END, EVENTLOG_WARNING_TYPE),
              L"A download that had not told its start is over. The last number that it told was 37.\r\n");
    log.Ended(Ending::kNeverBegan, 0, std::nullopt);
    EXPECT_EQ(Said(EVENT_NEVER_BEGAN, EVENTLOG_WARNING_TYPE), L"A download was over before it began.\r\n");
    log.Ended(Ending::kNothingStarted, 0, std::nullopt);
    EXPECT_EQ(Said(EVENT_NOTHING_STARTED, EVENTLOG_WARNING_TYPE),
              L"No download has started in time after the user's answer.\r\n");
    log.Ended(Ending::kClientGone, 37, std::nullopt);
    EXPECT_EQ(
        Said(EVENT_CLIENT_GONE, EVENTLOG_WARNING_TYPE),
        L"Whoever tells of the download has gone away. The last number that it told was 37, of - blocks told "
        L"at the start.\r\n");
}

// A viewer goes on inserting where an insert has a per cent sign.
TEST_F(ApplicationLogTest, TakesPerCentSignsFromCallersTexts) {
    ApplicationLog log;
    log.Asked({L"%1%%2", L"100%"});
    EXPECT_EQ(entries.at(0).inserts, (std::vector<std::wstring>{L"\uFF051\uFF05\uFF052", L"100\uFF05"}));
}

TEST_F(ApplicationLogTest, ClosesItsSource) {
    { const ApplicationLog log; }
    EXPECT_EQ(closedSource, theSource);
}

TEST_F(ApplicationLogTest, DoesWithoutALog) {
    givenSource = nullptr;
    {
        ApplicationLog log;
        log.Started(118);
    }
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(closedSource, nullptr);
}

}  // namespace
}  // namespace toast
