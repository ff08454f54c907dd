#include "tests/monitor/MonitorStage.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

MonitorStage::MonitorStage()
    : sleep_("Sleep", OnSleep),
      createEvent_("CreateEventW", OnCreateEvent),
      arm_("RegNotifyChangeKeyValue", OnArm),
      wait_("WaitForSingleObject", OnWait),
      closeHandle_("CloseHandle", OnCloseHandle),
      closeKey_("RegCloseKey", OnCloseKey),
      system_("system", OnSystem) {}

MonitorStage::~MonitorStage() {
    // The monitor leaves the event of a watch that could not be armed open; it is not the next test's.
    for (const EventCreation& creation : eventCreations_) {
        if (creation.event != nullptr && closes_.empty()) {
            closeHandle_.Original<decltype(CloseHandle)>()(creation.event);
        }
    }
}

std::vector<std::string> MonitorStage::CommandLines() const {
    std::vector<std::string> lines;
    for (const Command& command : Commands()) {
        lines.push_back(command.line);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

void WINAPI MonitorStage::OnSleep(DWORD milliseconds) {
    if (milliseconds == 0) {  // the C++ library yields this way
        current_->sleep_.Original<decltype(Sleep)>()(milliseconds);
        return;
    }
    current_->Record(current_->sleeps_, milliseconds);
    if (current_->whileSleeping) {
        current_->whileSleeping();
    }
}

HANDLE WINAPI MonitorStage::OnCreateEvent(SECURITY_ATTRIBUTES* attributes, BOOL manualReset,
                                          BOOL initiallySet, const wchar_t* name) {
    HANDLE event = nullptr;
    if (!current_->eventCreationFails_) {
        event = current_->createEvent_.Original<decltype(CreateEventW)>()(attributes, manualReset,
                                                                          initiallySet, name);
    }
    current_->watchedEvent_ = event;
    current_->Record(current_->eventCreations_,
                     EventCreation{attributes, manualReset, initiallySet, name != nullptr, event});
    return event;
}

LSTATUS WINAPI MonitorStage::OnArm(HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL asynchronous) {
    current_->Record(current_->armings_,
                     Arming{key, subtree, filter, event, asynchronous, GetCurrentThreadId()});
    if (current_->armingSucceeds_) {
        return ERROR_SUCCESS;
    }
    return current_->arm_.Original<decltype(RegNotifyChangeKeyValue)>()(key, subtree, filter, event,
                                                                        asynchronous);
}

DWORD WINAPI MonitorStage::OnWait(HANDLE handle, DWORD milliseconds) {
    if (handle == nullptr || handle != current_->watchedEvent_) {
        return current_->wait_.Original<decltype(WaitForSingleObject)>()(handle, milliseconds);
    }
    current_->Record(current_->waits_, milliseconds);
    return current_->whileWaiting();
}

BOOL WINAPI MonitorStage::OnCloseHandle(HANDLE handle) {
    if (handle != nullptr && handle == current_->watchedEvent_) {
        current_->watchedEvent_ = nullptr;
        current_->Record(current_->closes_, std::string("event"));
    }
    return current_->closeHandle_.Original<decltype(CloseHandle)>()(handle);
}

LSTATUS WINAPI MonitorStage::OnCloseKey(HKEY key) {
    if (key != nullptr) {
        return current_->closeKey_.Original<decltype(RegCloseKey)>()(key);
    }
    current_->Record(current_->closes_, std::string("empty key"));
    return ERROR_INVALID_HANDLE;
}

int __cdecl MonitorStage::OnSystem(const char* line) {
    current_->Record(current_->commands_, Command{line, GetCurrentThreadId()});
    if (current_->whileRunning) {
        current_->whileRunning(line);
    }
    return 0;
}
