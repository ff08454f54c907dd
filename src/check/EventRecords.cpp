#include "check/EventRecords.h"

#include "check/Redaction.h"
#include "check/Utf8.h"
#include "win32/UniqueHandle.h"

#include <winevt.h>

#include <array>
#include <vector>

namespace check {
namespace {

constexpr int kMostRecords = 1000;
constexpr DWORD kPatienceMs = 10000;

struct EventHandleTraits {
    using Handle = EVT_HANDLE;
    static Handle Empty() { return nullptr; }
    static void Close(Handle handle) { EvtClose(handle); }
};
using UniqueEventHandle = win32::UniqueHandle<EventHandleTraits>;

struct LogQuery {
    const wchar_t* log;
    const wchar_t* query;
};

// Of the System log: not started in time, refused, ended, and COM's refusal of a start.
constexpr std::array kQueries{
    LogQuery{L"Application",
             L"*[System[Provider[@Name='VeyraCameraDfuService' or @Name='VeyraCameraToastCntl' or "
             L"@Name='Application "
             L"Error']]]"},
    LogQuery{
        L"System",
        L"*[System[Provider[@Name='Service Control Manager' or @Name='Microsoft-Windows-DistributedCOM'] and "
        L"(EventID=7000 or EventID=7009 or EventID=7011 or EventID=7023 or EventID=7024 or EventID=7031 or "
        L"EventID=7034 or EventID=7036 or EventID=7040 or EventID=7045 or EventID=10010 or EventID=10016)]]"},
};

std::string XmlOf(EVT_HANDLE event, DWORD& error) {
    DWORD size = 0;
    DWORD properties = 0;
    EvtRender(nullptr, event, EvtRenderEventXml, 0, nullptr, &size, &properties);
    std::vector<wchar_t> text(size / sizeof(wchar_t) + 1);
    if (!EvtRender(nullptr, event, EvtRenderEventXml, static_cast<DWORD>(text.size() * sizeof(wchar_t)),
                   text.data(), &size, &properties)) {
        error = GetLastError();
        return {};
    }
    return Utf8(text.data());
}

// Windows' own records are of every service and every class.
bool IsOurs(const std::string& xml) {
    return xml.find("Veyra") != std::string::npos ||
           xml.find("20C4BEF7-CA2C-40F7-9B2A-33378E54E68C") != std::string::npos;
}

// Adds what the log has to `records`. ERROR_SUCCESS, or why that is not all of it.
DWORD ReadLog(const LogQuery& query, const std::vector<std::string>& names, std::string& records) {
    const UniqueEventHandle found(
        EvtQuery(nullptr, query.log, query.query, EvtQueryChannelPath | EvtQueryReverseDirection));
    if (!found) {
        return GetLastError();
    }
    DWORD error = ERROR_SUCCESS;
    int count = 0;
    while (count < kMostRecords) {
        EVT_HANDLE next = nullptr;
        DWORD got = 0;
        if (!EvtNext(found.Get(), 1, &next, kPatienceMs, 0, &got) || got != 1) {
            const DWORD ended = GetLastError();
            return ended == ERROR_NO_MORE_ITEMS ? error : ended;
        }
        const UniqueEventHandle event(next);
        const std::string xml = XmlOf(event.Get(), error);
        if (IsOurs(xml)) {
            records += EventWithoutPersons(xml, names) + "\n";
            ++count;
        }
    }
    return error;
}

}  // namespace

std::string ReadEventRecords(const std::vector<std::string>& names, DWORD& error) {
    error = ERROR_SUCCESS;
    std::string records;
    bool isOneComplete = false;
    for (const LogQuery& query : kQueries) {
        const DWORD failed = ReadLog(query, names, records);
        isOneComplete = isOneComplete || failed == ERROR_SUCCESS;
        error = failed == ERROR_SUCCESS ? error : failed;
    }
    return records.empty() && !isOneComplete ? std::string() : "<Events>\n" + records + "</Events>\n";
}

}  // namespace check
