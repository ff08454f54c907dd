#include <windows.h>
#include <winevt.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lab/rig/process/ImportTable.h"
#include "lab/rig/redirects/Redirects.h"
#include "lab/rig/run/Rig.h"
#include "lab/wire/Utf8.h"

// The event logs as the stage has them, since Wine keeps none. A handle is an object of this file's.

namespace lab::rig {
namespace {

// The records of a query that were not read yet, or one record that was.
struct Records {
    std::vector<std::wstring> xml;
};

decltype(&::EvtQuery) query = nullptr;
decltype(&::EvtNext) nextRecord = nullptr;
decltype(&::EvtRender) render = nullptr;
decltype(&::EvtClose) close = nullptr;

EVT_HANDLE Handle(std::unique_ptr<Records> records) {
    return records.release();
}

Records& From(EVT_HANDLE handle) {
    return *static_cast<Records*>(handle);
}

EVT_HANDLE WINAPI Query(EVT_HANDLE session, const wchar_t* log, const wchar_t* text, DWORD flags) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr) {
        return query(session, log, text, flags);
    }
    auto records = std::make_unique<Records>();
    const std::wstring channel = L"<Channel>" + std::wstring(log) + L"</Channel>";
    for (const std::string& record : rig->Settings().eventRecords) {
        std::wstring xml = WideFromUtf8(record);
        if (xml.find(channel) != std::wstring::npos) {
            records->xml.push_back(std::move(xml));
        }
    }
    return Handle(std::move(records));
}

BOOL WINAPI Next(EVT_HANDLE results, DWORD count, EVT_HANDLE* events, DWORD timeout, DWORD flags,
                 DWORD* returned) {
    if (Rig::Get() == nullptr) {
        return nextRecord(results, count, events, timeout, flags, returned);
    }
    auto& left = From(results).xml;
    const auto taken = std::min<std::size_t>(count, left.size());
    for (std::size_t index = 0; index < taken; ++index) {
        events[index] = Handle(std::make_unique<Records>(Records{{left[index]}}));
    }
    left.erase(left.begin(), left.begin() + static_cast<std::ptrdiff_t>(taken));
    *returned = static_cast<DWORD>(taken);
    if (taken == 0) {
        SetLastError(ERROR_NO_MORE_ITEMS);
    }
    return taken != 0;
}

BOOL WINAPI Render(EVT_HANDLE context, EVT_HANDLE event, DWORD flags, DWORD size, void* buffer, DWORD* used,
                   DWORD* properties) {
    if (Rig::Get() == nullptr) {
        return render(context, event, flags, size, buffer, used, properties);
    }
    const std::wstring& xml = From(event).xml.front();
    *used = static_cast<DWORD>((xml.size() + 1) * sizeof(wchar_t));
    *properties = 0;
    if (size < *used) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    std::memcpy(buffer, xml.c_str(), *used);
    return TRUE;
}

BOOL WINAPI Close(EVT_HANDLE handle) {
    if (Rig::Get() == nullptr) {
        return close(handle);
    }
    const std::unique_ptr<Records> owned(static_cast<Records*>(handle));
    return TRUE;
}

}  // namespace

void RedirectEventLog() {
    Redirect("EvtQuery", &Query, query);
    Redirect("EvtNext", &Next, nextRecord);
    Redirect("EvtRender", &Render, render);
    Redirect("EvtClose", &Close, close);
}

}  // namespace lab::rig
