#include <windows.h>

#include "lab/rig/redirects/Redirects.h"

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*) {
    if (reason == DLL_PROCESS_ATTACH) {
        lab::rig::RedirectServiceControl();
        lab::rig::RedirectDiagnostics();
        lab::rig::RedirectTracing();
        lab::rig::RedirectTraceSessions();
        lab::rig::RedirectEventLog();
        lab::rig::RedirectConfigurationManager();
        lab::rig::RedirectMediaFoundation();
        lab::rig::RedirectCom();
        lab::rig::RedirectDeviceFiles();
        lab::rig::RedirectProcesses();
        lab::rig::RedirectTime();
    }
    return TRUE;
}
