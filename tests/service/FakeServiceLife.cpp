#include "tests/service/FakeServiceLife.h"

#include <algorithm>

namespace {

const HANDLE kEventSource = reinterpret_cast<HANDLE>(0x1E1);

}  // namespace

FakeServiceLife::FakeServiceLife()
    : registerEventSource_("RegisterEventSourceW", OnRegisterEventSource),
      reportEvent_("ReportEventW", OnReportEvent),
      deregisterEventSource_("DeregisterEventSource", OnDeregisterEventSource),
      queue_("QueueUserWorkItem", OnQueue),
      wait_("WaitForSingleObject", OnWait),
      createEvent_("CreateEventW", OnCreateEvent),
      closeHandle_("CloseHandle", OnCloseHandle),
      createThread_("CreateThread", OnCreateThread) {}

void FakeServiceLife::RunWorkItem() {
    const WorkItem item = workItems.at(0);
    workItems.erase(workItems.begin());
    item.function(item.context);
}

void FakeServiceLife::AwaitThreads() {
    for (const HANDLE thread : threads_) {
        wait_.Original<decltype(WaitForSingleObject)>()(thread, INFINITE);
        closeHandle_.Original<decltype(CloseHandle)>()(thread);
    }
    threads_.clear();
}

bool FakeServiceLife::IsOpenEvent(HANDLE handle) const {
    return std::count(unnamedEvents.begin(), unnamedEvents.end(), handle) >
           std::count(closedUnnamedEvents.begin(), closedUnnamedEvents.end(), handle);
}

void FakeServiceLife::Report(const std::string& function) const {
    if (report) {
        report(function);
    }
}

HANDLE WINAPI FakeServiceLife::OnRegisterEventSource(const wchar_t* server, const wchar_t* source) {
    current_->openSource_ = source;
    current_->openSourceHasServer_ = server != nullptr;
    return kEventSource;
}

BOOL WINAPI FakeServiceLife::OnReportEvent(HANDLE log, WORD type, WORD category, DWORD id, void* user,
                                           WORD stringCount, DWORD dataSize, const wchar_t** strings,
                                           void* data) {
    if (log != kEventSource) {
        return FALSE;
    }
    current_->eventLog.push_back({current_->openSource_, current_->openSourceHasServer_, type, category, id,
                                  user, dataSize, data,
                                  std::vector<std::wstring>(strings, strings + stringCount)});
    current_->Report("ReportEventW");
    return TRUE;
}

BOOL WINAPI FakeServiceLife::OnDeregisterEventSource(HANDLE log) {
    current_->closedEventSources += log == kEventSource ? 1 : 0;
    return TRUE;
}

BOOL WINAPI FakeServiceLife::OnQueue(LPTHREAD_START_ROUTINE function, void* context, ULONG flags) {
    current_->Report("QueueUserWorkItem");
    if (current_->queueError != 0) {
        SetLastError(current_->queueError);
        return FALSE;
    }
    current_->workItems.push_back({function, context, flags});
    return TRUE;
}

DWORD WINAPI FakeServiceLife::OnWait(HANDLE object, DWORD milliseconds) {
    // The locks and threads of the C++ library wait without time-out too, and so does a thread that the test
    // framework starts at the first failure, on a handle that may have been an event's.
    if (GetCurrentThreadId() != current_->ownThread_ || milliseconds != INFINITE ||
        !current_->IsOpenEvent(object)) {
        return current_->wait_.Original<decltype(WaitForSingleObject)>()(object, milliseconds);
    }
    current_->waits.push_back({object, milliseconds});
    current_->Report("WaitForSingleObject");
    if (current_->waitError != 0) {
        SetLastError(current_->waitError);
        return WAIT_FAILED;
    }
    current_->RunWorkItem();
    return current_->wait_.Original<decltype(WaitForSingleObject)>()(object, 0);
}

HANDLE WINAPI FakeServiceLife::OnCreateEvent(SECURITY_ATTRIBUTES* security, BOOL manualReset,
                                             BOOL initialState, const wchar_t* name) {
    const bool isOwn = name == nullptr;
    if (isOwn) {
        current_->Report("CreateEventW");
    }
    const DWORD error = isOwn ? current_->createEventError : current_->namedEventError;
    if (error != 0) {
        SetLastError(error);
        return nullptr;
    }
    const HANDLE event =
        current_->createEvent_.Original<decltype(CreateEventW)>()(security, manualReset, initialState, name);
    if (isOwn) {
        current_->unnamedEvents.push_back(event);
    }
    return event;
}

BOOL WINAPI FakeServiceLife::OnCloseHandle(HANDLE handle) {
    if (GetCurrentThreadId() == current_->ownThread_ && current_->IsOpenEvent(handle)) {
        current_->closedUnnamedEvents.push_back(handle);
    }
    return current_->closeHandle_.Original<decltype(CloseHandle)>()(handle);
}

HANDLE WINAPI FakeServiceLife::OnCreateThread(SECURITY_ATTRIBUTES* security, SIZE_T stackSize,
                                              LPTHREAD_START_ROUTINE function, void* context, DWORD flags,
                                              DWORD* id) {
    const auto createThread = current_->createThread_.Original<decltype(::CreateThread)>();
    const HANDLE thread = createThread(security, stackSize, function, context, flags, id);
    // The test framework has a thread of its own, which it starts suspended.
    if (thread == nullptr || flags != 0) {
        return thread;
    }
    if (current_->letsThreadsRunOn) {
        HANDLE own = nullptr;
        DuplicateHandle(GetCurrentProcess(), thread, GetCurrentProcess(), &own, 0, FALSE,
                        DUPLICATE_SAME_ACCESS);
        current_->threads_.push_back(own);
    } else {
        current_->wait_.Original<decltype(WaitForSingleObject)>()(thread, INFINITE);
    }
    return thread;
}
