#pragma once

#include <windows.h>
#include <cfgmgr32.h>

// Older cfgmgr32.h of mingw-w64 have the types of device notifications, and their library the functions, but
// not their declarations. Newer ones declare them like this too.
extern "C" {

CMAPI CONFIGRET WINAPI CM_Register_Notification(PCM_NOTIFY_FILTER filter, PVOID context,
                                                PCM_NOTIFY_CALLBACK callback, PHCMNOTIFICATION registration);
CMAPI CONFIGRET WINAPI CM_Unregister_Notification(HCMNOTIFICATION registration);
}
