#include <windows.h>
#include <cfgmgr32.h>

#include <algorithm>
#include <string>
#include <vector>

#include "lab/rig/process/ImportTable.h"
#include "lab/rig/redirects/Redirects.h"
#include "lab/rig/run/Rig.h"

namespace lab::rig {
namespace {

decltype(&::CM_Get_Device_Interface_List_SizeW) getListSize = nullptr;
decltype(&::CM_Get_Device_Interface_ListW) getList = nullptr;

// Wine has neither of the two notification functions: without a rig there is nothing to pass through to.
CONFIGRET WINAPI RegisterNotification(CM_NOTIFY_FILTER* filter, void* context, PCM_NOTIFY_CALLBACK callback,
                                      HCMNOTIFICATION* handle) {
    Rig* const rig = Rig::Get();
    return rig != nullptr ? rig->Watchers().Register(filter, context, callback, handle)
                          : CR_CALL_NOT_IMPLEMENTED;
}

CONFIGRET WINAPI UnregisterNotification(HCMNOTIFICATION handle) {
    Rig* const rig = Rig::Get();
    return rig != nullptr ? rig->Watchers().Unregister(handle) : CR_CALL_NOT_IMPLEMENTED;
}

// The list as the system lays it out: each text with its NUL, and one more NUL behind the last.
std::vector<wchar_t> InterfaceList(Rig& rig, const GUID& interfaceClass, const wchar_t* device) {
    std::vector<wchar_t> list;
    // No link belongs to one device instance alone: the virtual cameras have no instance ids.
    const bool everyDevice = device == nullptr || *device == L'\0';
    for (const std::wstring& link :
         everyDevice ? rig.TheBus().PresentLinks(interfaceClass) : std::vector<std::wstring>()) {
        list.insert(list.end(), link.begin(), link.end());
        list.push_back(L'\0');
    }
    list.push_back(L'\0');
    return list;
}

CONFIGRET WINAPI ListSize(ULONG* length, GUID* interfaceClass, wchar_t* device, ULONG flags) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr) {
        return getListSize(length, interfaceClass, device, flags);
    }
    if (length == nullptr || interfaceClass == nullptr) {
        return CR_INVALID_POINTER;
    }
    if (flags != CM_GET_DEVICE_INTERFACE_LIST_PRESENT) {
        return CR_INVALID_FLAG;
    }
    *length = static_cast<ULONG>(InterfaceList(*rig, *interfaceClass, device).size());
    return CR_SUCCESS;
}

CONFIGRET WINAPI List(GUID* interfaceClass, wchar_t* device, wchar_t* buffer, ULONG length, ULONG flags) {
    Rig* const rig = Rig::Get();
    if (rig == nullptr) {
        return getList(interfaceClass, device, buffer, length, flags);
    }
    if (interfaceClass == nullptr || buffer == nullptr || length == 0) {
        return CR_INVALID_POINTER;
    }
    if (flags != CM_GET_DEVICE_INTERFACE_LIST_PRESENT) {
        return CR_INVALID_FLAG;
    }
    const auto list = InterfaceList(*rig, *interfaceClass, device);
    if (list.size() > length) {
        return CR_BUFFER_SMALL;
    }
    std::ranges::copy(list, buffer);
    return CR_SUCCESS;
}

}  // namespace

void RedirectConfigurationManager() {
    Redirect("CM_Register_Notification", &RegisterNotification);
    Redirect("CM_Unregister_Notification", &UnregisterNotification);
    Redirect("CM_Get_Device_Interface_List_SizeW", &ListSize, getListSize);
    Redirect("CM_Get_Device_Interface_ListW", &List, getList);
}

}  // namespace lab::rig
