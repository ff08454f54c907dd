#pragma once

#include <windows.h>
#include <cfgmgr32.h>

// mingw-w64's cfgmgr32.h has the types of device notifications, and its library the functions, but not their
// declarations.
extern "C" {

CONFIGRET WINAPI CM_Register_Notification(PCM_NOTIFY_FILTER filter, PVOID context,
                                          PCM_NOTIFY_CALLBACK callback, PHCMNOTIFICATION registration);
CONFIGRET WINAPI CM_Unregister_Notification(HCMNOTIFICATION registration);
}
