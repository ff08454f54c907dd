#pragma once

#include <windows.h>

// The part of the configuration manager that tells of device interfaces.

using CONFIGRET = DWORD;
using DEVINSTID_W = wchar_t*;
using HCMNOTIFICATION = struct ConfigurationNotification*;
using PHCMNOTIFICATION = HCMNOTIFICATION*;

inline constexpr CONFIGRET CR_SUCCESS = 0x00;
inline constexpr CONFIGRET CR_FAILURE = 0x13;
inline constexpr CONFIGRET CR_BUFFER_SMALL = 0x1A;
inline constexpr CONFIGRET CR_INVALID_DATA = 0x1F;
inline constexpr CONFIGRET CR_CALL_NOT_IMPLEMENTED = 0x20;

inline constexpr ULONG CM_GET_DEVICE_INTERFACE_LIST_PRESENT = 0;

enum CM_NOTIFY_FILTER_TYPE {
    CM_NOTIFY_FILTER_TYPE_DEVICEINTERFACE,
    CM_NOTIFY_FILTER_TYPE_DEVICEHANDLE,
    CM_NOTIFY_FILTER_TYPE_DEVICEINSTANCE,
};

struct CM_NOTIFY_FILTER {
    DWORD cbSize;
    DWORD Flags;
    CM_NOTIFY_FILTER_TYPE FilterType;
    DWORD Reserved;
    union {
        struct {
            GUID ClassGuid;
        } DeviceInterface;
        struct {
            HANDLE hTarget;
        } DeviceHandle;
        struct {
            char16_t InstanceId[200];  // of Windows' width, so that the record has its size
        } DeviceInstance;
    } u;
};
using PCM_NOTIFY_FILTER = CM_NOTIFY_FILTER*;

enum CM_NOTIFY_ACTION {
    CM_NOTIFY_ACTION_DEVICEINTERFACEARRIVAL,
    CM_NOTIFY_ACTION_DEVICEINTERFACEREMOVAL,
    CM_NOTIFY_ACTION_DEVICEQUERYREMOVE,
    CM_NOTIFY_ACTION_DEVICEQUERYREMOVEFAILED,
    CM_NOTIFY_ACTION_DEVICEREMOVEPENDING,
    CM_NOTIFY_ACTION_DEVICEREMOVECOMPLETE,
    CM_NOTIFY_ACTION_DEVICECUSTOMEVENT,
    CM_NOTIFY_ACTION_DEVICEINSTANCEENUMERATED,
    CM_NOTIFY_ACTION_DEVICEINSTANCESTARTED,
    CM_NOTIFY_ACTION_DEVICEINSTANCEREMOVED,
};

struct CM_NOTIFY_EVENT_DATA {
    CM_NOTIFY_FILTER_TYPE FilterType;
    DWORD Reserved;
    union {
        struct {
            GUID ClassGuid;
            WCHAR SymbolicLink[1];
        } DeviceInterface;
    } u;
};
using PCM_NOTIFY_EVENT_DATA = CM_NOTIFY_EVENT_DATA*;

using PCM_NOTIFY_CALLBACK = DWORD(CALLBACK*)(HCMNOTIFICATION registration, PVOID context,
                                             CM_NOTIFY_ACTION action, PCM_NOTIFY_EVENT_DATA eventData,
                                             DWORD eventDataSize);

extern "C" {

// No interface is ever present until a test replaces these: the list is empty. The calls for notifications
// are declared by the sources that use them, as they must be under Windows; registering fails with
// CR_CALL_NOT_IMPLEMENTED.
CONFIGRET CM_Get_Device_Interface_List_SizeW(ULONG* length, GUID* interfaceClass, DEVINSTID_W device,
                                             ULONG flags);
CONFIGRET CM_Get_Device_Interface_ListW(GUID* interfaceClass, DEVINSTID_W device, wchar_t* buffer,
                                        ULONG length, ULONG flags);
}
