#include <windows.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <nlohmann/json.hpp>

#include "lab/rig/process/ImportTable.h"
#include "lab/rig/redirects/Redirects.h"
#include "lab/rig/run/Rig.h"
#include "lab/wire/Utf8.h"

namespace lab::rig {
namespace {

using nlohmann::json;

decltype(&::OutputDebugStringW) outputDebugString = nullptr;
decltype(&::RegisterEventSourceW) registerEventSource = nullptr;
decltype(&::ReportEventW) reportEvent = nullptr;
decltype(&::DeregisterEventSource) deregisterEventSource = nullptr;

// The names under which event sources were opened.
class EventSources {
  public:
    void Add(HANDLE source, const wchar_t* name) {
        const std::lock_guard lock(mutex_);
        names_[source] = name;
    }
    void Remove(HANDLE source) {
        const std::lock_guard lock(mutex_);
        names_.erase(source);
    }
    [[nodiscard]] std::wstring Name(HANDLE source) {
        const std::lock_guard lock(mutex_);
        const auto name = names_.find(source);
        return name != names_.end() ? name->second : std::wstring();
    }

  private:
    std::mutex mutex_;
    std::map<HANDLE, std::wstring> names_;
};

EventSources& Sources() {
    static EventSources* const sources = std::make_unique<EventSources>().release();  // outlives the product
    return *sources;
}

void WINAPI OutputDebugStringRecorded(const wchar_t* text) {
    Rig* const rig = Rig::Get();
    if (rig != nullptr && text != nullptr) {
        rig->Record({{"event", "debug-string"}, {"text", Utf8(text)}});
    }
    outputDebugString(text);
}

HANDLE WINAPI RegisterEventSourceNamed(const wchar_t* server, const wchar_t* name) {
    const HANDLE source = registerEventSource(server, name);
    if (source != nullptr && name != nullptr) {
        Sources().Add(source, name);
    }
    return source;
}

BOOL WINAPI ReportEventRecorded(HANDLE source, WORD type, WORD category, DWORD id, void* user,
                                WORD stringCount, DWORD dataSize, const wchar_t** strings, void* data) {
    if (Rig* const rig = Rig::Get()) {
        json texts = json::array();
        for (WORD index = 0; index < stringCount && strings != nullptr; ++index) {
            texts.push_back(strings[index] != nullptr ? Utf8(strings[index]) : std::string());
        }
        rig->Record({{"event", "event-log"},
                     {"name", Utf8(Sources().Name(source))},
                     {"type", type},
                     {"category", category},
                     {"id", id},
                     {"strings", texts}});
    }
    return reportEvent(source, type, category, id, user, stringCount, dataSize, strings, data);
}

BOOL WINAPI DeregisterEventSourceForgotten(HANDLE source) {
    Sources().Remove(source);
    return deregisterEventSource(source);
}

}  // namespace

void RedirectDiagnostics() {
    Redirect("OutputDebugStringW", &OutputDebugStringRecorded, outputDebugString);
    Redirect("RegisterEventSourceW", &RegisterEventSourceNamed, registerEventSource);
    Redirect("ReportEventW", &ReportEventRecorded, reportEvent);
    Redirect("DeregisterEventSource", &DeregisterEventSourceForgotten, deregisterEventSource);
}

}  // namespace lab::rig
