#pragma once

#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>
#include <cfgmgr32.h>

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace test_support {

// The configuration manager, as far as device interfaces go: a list of the links that are present, and the
// callbacks registered for their coming and going. While it lives, the program's CM_Register_Notification,
// CM_Unregister_Notification, CM_Get_Device_Interface_List_SizeW and CM_Get_Device_Interface_ListW go to it.
//
// Every link is of one class: what class a caller asks for is recorded, not judged. Callbacks run on the
// thread that calls Plug, Unplug or Fire; ending a registration waits for callbacks that run on other
// threads. May be used from any thread.
class FakeConfigurationManager : public OnlyOne<FakeConfigurationManager> {
  public:
    struct Registration {
        CM_NOTIFY_FILTER filter;
        void* context;
        PCM_NOTIFY_CALLBACK callback;
        bool isRegistered;
        int callbacksRunning;
    };

    FakeConfigurationManager();

    // Changes what is present without telling anybody.
    void SetPresent(std::vector<std::wstring> links);
    // A device interface comes (to the end of the list) or goes: the list changes, then every registered
    // callback is called.
    void Plug(const std::wstring& link);
    void Unplug(const std::wstring& link);

    // Calls every registered callback, with a record that holds the whole link and its terminator; the list
    // stays as it is. The answer of the last callback; empty when none is registered.
    std::optional<DWORD> Fire(CM_NOTIFY_ACTION action, const std::wstring& link,
                              CM_NOTIFY_FILTER_TYPE type = CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE);
    // The same with a record of the test's own, possibly null.
    std::optional<DWORD> FireRecord(CM_NOTIFY_ACTION action, CM_NOTIFY_EVENT_DATA* record, DWORD size);

    // Runs at the start of each size query, on the querying thread; it may change what is present.
    void BeforeEachListing(std::function<void()> action);
    // Runs at the start of each CM_Unregister_Notification, while the callback is still registered.
    void BeforeEachUnregistration(std::function<void()> action);
    // What the next queries answer instead of the truth: a size in characters, a list as it stands.
    void AnswerSize(ULONG characters);
    void AnswerList(std::vector<wchar_t> characters);
    // Both list queries answer this code, though they still hand out what they have.
    void AnswerListQueriesWith(CONFIGRET code);
    // Every later registration fails with this code and leaves no handle.
    void RefuseRegistrations(CONFIGRET code);

    // Every registration that was made, in order, those that ended among them.
    [[nodiscard]] std::vector<Registration> Registrations() const;
    // How many are not ended.
    [[nodiscard]] std::size_t ActiveRegistrations() const;

    // One line a call, in order, with every argument, for example
    //   CM_Get_Device_Interface_ListW({A5DCBF10-6530-11D2-901F-00C04FB951ED}, no device, 58 characters, flags
    //   0) CM_Register_Notification(416 bytes, flags 0, type 0, {A5DCBF10-6530-11D2-901F-00C04FB951ED})
    //   CM_Unregister_Notification(registration 0)
    [[nodiscard]] std::vector<std::string> Calls() const;
    void ForgetCalls();

  private:
    static CONFIGRET WINAPI RegisterNotification(CM_NOTIFY_FILTER* filter, void* context,
                                                 PCM_NOTIFY_CALLBACK callback, HCMNOTIFICATION* registration);
    static CONFIGRET WINAPI UnregisterNotification(HCMNOTIFICATION registration);
    static CONFIGRET WINAPI GetListSize(ULONG* length, GUID* interfaceClass, wchar_t* device, ULONG flags);
    static CONFIGRET WINAPI GetList(GUID* interfaceClass, wchar_t* device, wchar_t* buffer, ULONG length,
                                    ULONG flags);

    [[nodiscard]] std::vector<wchar_t> List() const;

    mutable std::mutex lock_;
    std::condition_variable callbackEnded_;
    std::vector<std::wstring> present_;
    std::list<Registration> registrations_;
    std::vector<std::string> calls_;
    std::function<void()> beforeListing_;
    std::function<void()> beforeUnregistration_;
    std::optional<ULONG> answeredSize_;
    std::optional<std::vector<wchar_t>> answeredList_;
    CONFIGRET listResult_ = CR_SUCCESS;
    CONFIGRET registrationResult_ = CR_SUCCESS;
    ImportRedirect registerNotification_;
    ImportRedirect unregisterNotification_;
    ImportRedirect getListSize_;
    ImportRedirect getList_;
};

}  // namespace test_support
