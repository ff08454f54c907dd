#include "tests/support/FakeConfigurationManager.h"

#include "tests/support/GuidText.h"
#include "tests/support/Text.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace test_support {
namespace {

constexpr std::size_t kLinkOffset = offsetof(CM_NOTIFY_EVENT_DATA, u.DeviceInterface.SymbolicLink);

std::string ClassText(const GUID* interfaceClass) {
    return interfaceClass == nullptr ? "no class" : GuidText(*interfaceClass);
}

const char* DeviceText(const wchar_t* device) {
    return device == nullptr ? "no device" : "a device";
}

}  // namespace

FakeConfigurationManager::FakeConfigurationManager()
    : registerNotification_("CM_Register_Notification", &RegisterNotification),
      unregisterNotification_("CM_Unregister_Notification", &UnregisterNotification),
      getListSize_("CM_Get_Device_Interface_List_SizeW", &GetListSize),
      getList_("CM_Get_Device_Interface_ListW", &GetList) {}

void FakeConfigurationManager::SetPresent(std::vector<std::wstring> links) {
    const std::scoped_lock guard(lock_);
    present_ = std::move(links);
}

void FakeConfigurationManager::Plug(const std::wstring& link) {
    {
        const std::scoped_lock guard(lock_);
        present_.push_back(link);
    }
    Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL, link);
}

void FakeConfigurationManager::Unplug(const std::wstring& link) {
    {
        const std::scoped_lock guard(lock_);
        std::erase(present_, link);
    }
    Fire(CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL, link);
}

std::optional<DWORD> FakeConfigurationManager::Fire(CM_NOTIFY_ACTION action, const std::wstring& link,
                                                    CM_NOTIFY_FILTER_TYPE type) {
    const std::size_t linkBytes = (link.size() + 1) * sizeof(wchar_t);
    const std::size_t size = std::max(kLinkOffset + linkBytes, sizeof(CM_NOTIFY_EVENT_DATA));
    std::vector<std::max_align_t> storage(size / sizeof(std::max_align_t) + 1);
    auto* const record = reinterpret_cast<CM_NOTIFY_EVENT_DATA*>(storage.data());
    record->FilterType = type;
    std::memcpy(reinterpret_cast<char*>(record) + kLinkOffset, link.c_str(), linkBytes);
    return FireRecord(action, record, static_cast<DWORD>(size));
}

std::optional<DWORD> FakeConfigurationManager::FireRecord(CM_NOTIFY_ACTION action,
                                                          CM_NOTIFY_EVENT_DATA* record, DWORD size) {
    std::vector<Registration*> active;
    {
        const std::scoped_lock guard(lock_);
        for (Registration& registration : registrations_) {
            if (registration.isRegistered) {
                ++registration.callbacksRunning;
                active.push_back(&registration);
            }
        }
    }
    std::optional<DWORD> answer;
    for (Registration* registration : active) {
        answer = registration->callback(reinterpret_cast<HCMNOTIFICATION>(registration),
                                        registration->context, action, record, size);
        const std::scoped_lock guard(lock_);
        --registration->callbacksRunning;
        callbackEnded_.notify_all();
    }
    return answer;
}

void FakeConfigurationManager::BeforeEachListing(std::function<void()> action) {
    beforeListing_ = std::move(action);
}

void FakeConfigurationManager::BeforeEachUnregistration(std::function<void()> action) {
    beforeUnregistration_ = std::move(action);
}

void FakeConfigurationManager::AnswerSize(ULONG characters) {
    answeredSize_ = characters;
}

void FakeConfigurationManager::AnswerList(std::vector<wchar_t> characters) {
    answeredList_ = std::move(characters);
}

void FakeConfigurationManager::AnswerListQueriesWith(CONFIGRET code) {
    listResult_ = code;
}

void FakeConfigurationManager::RefuseRegistrations(CONFIGRET code) {
    registrationResult_ = code;
}

std::vector<FakeConfigurationManager::Registration> FakeConfigurationManager::Registrations() const {
    const std::scoped_lock guard(lock_);
    return {registrations_.begin(), registrations_.end()};
}

std::size_t FakeConfigurationManager::ActiveRegistrations() const {
    const std::vector<Registration> all = Registrations();
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [](const Registration& each) { return each.isRegistered; }));
}

std::vector<std::string> FakeConfigurationManager::Calls() const {
    const std::scoped_lock guard(lock_);
    return calls_;
}

void FakeConfigurationManager::ForgetCalls() {
    const std::scoped_lock guard(lock_);
    calls_.clear();
}

// The list as the system lays it out: each link with its NUL, and one more NUL behind the last.
std::vector<wchar_t> FakeConfigurationManager::List() const {
    if (answeredList_) {
        return *answeredList_;
    }
    std::vector<wchar_t> list;
    for (const std::wstring& link : present_) {
        list.insert(list.end(), link.begin(), link.end());
        list.push_back(L'\0');
    }
    list.push_back(L'\0');
    return list;
}

CONFIGRET WINAPI FakeConfigurationManager::RegisterNotification(CM_NOTIFY_FILTER* filter, void* context,
                                                                PCM_NOTIFY_CALLBACK callback,
                                                                HCMNOTIFICATION* registration) {
    FakeConfigurationManager& manager = *current_;
    const std::scoped_lock guard(manager.lock_);
    manager.calls_.push_back(Text("CM_Register_Notification(", filter->cbSize, " bytes, flags ",
                                  filter->Flags, ", type ", static_cast<int>(filter->FilterType), ", ",
                                  GuidText(filter->u.DeviceInterface.ClassGuid), ")"));
    if (manager.registrationResult_ != CR_SUCCESS) {
        return manager.registrationResult_;
    }
    manager.registrations_.push_back(Registration{*filter, context, callback, true, 0});
    *registration = reinterpret_cast<HCMNOTIFICATION>(&manager.registrations_.back());
    return CR_SUCCESS;
}

CONFIGRET WINAPI FakeConfigurationManager::UnregisterNotification(HCMNOTIFICATION registration) {
    FakeConfigurationManager& manager = *current_;
    if (manager.beforeUnregistration_) {
        manager.beforeUnregistration_();
    }
    std::unique_lock guard(manager.lock_);
    std::size_t number = 0;
    for (Registration& each : manager.registrations_) {
        if (reinterpret_cast<HCMNOTIFICATION>(&each) == registration) {
            // No callback begins from here on; the running ones are waited for.
            const bool wasRegistered = std::exchange(each.isRegistered, false);
            manager.callbackEnded_.wait(guard, [&each] { return each.callbacksRunning == 0; });
            manager.calls_.push_back(Text("CM_Unregister_Notification(registration ", number, ")"));
            return wasRegistered ? CR_SUCCESS : CR_INVALID_DATA;
        }
        ++number;
    }
    manager.calls_.emplace_back("CM_Unregister_Notification(no registration)");
    return CR_INVALID_DATA;
}

CONFIGRET WINAPI FakeConfigurationManager::GetListSize(ULONG* length, GUID* interfaceClass, wchar_t* device,
                                                       ULONG flags) {
    FakeConfigurationManager& manager = *current_;
    if (manager.beforeListing_) {
        manager.beforeListing_();
    }
    const std::scoped_lock guard(manager.lock_);
    manager.calls_.push_back(Text("CM_Get_Device_Interface_List_SizeW(", ClassText(interfaceClass), ", ",
                                  DeviceText(device), ", flags ", flags, ")"));
    *length = manager.answeredSize_.value_or(static_cast<ULONG>(manager.List().size()));
    return manager.listResult_;
}

CONFIGRET WINAPI FakeConfigurationManager::GetList(GUID* interfaceClass, wchar_t* device, wchar_t* buffer,
                                                   ULONG length, ULONG flags) {
    FakeConfigurationManager& manager = *current_;
    const std::scoped_lock guard(manager.lock_);
    manager.calls_.push_back(Text("CM_Get_Device_Interface_ListW(", ClassText(interfaceClass), ", ",
                                  DeviceText(device), ", ", length, " characters, flags ", flags, ")"));
    const std::vector<wchar_t> list = manager.List();
    if (list.size() > length) {
        return CR_BUFFER_SMALL;
    }
    std::copy(list.begin(), list.end(), buffer);
    return manager.listResult_;
}

}  // namespace test_support
