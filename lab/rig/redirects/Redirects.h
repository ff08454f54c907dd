#pragma once

namespace lab::rig {

// Each redirects the executable's imports of one part of the platform. Called once, from the DLL's DllMain,
// before any of the executable's own code runs; what they put in place connects at its first call and passes
// everything through when there is no rig.
void RedirectServiceControl();
void RedirectDiagnostics();
void RedirectTracing();
void RedirectTraceSessions();
void RedirectEventLog();
void RedirectConfigurationManager();
void RedirectMediaFoundation();
void RedirectCom();
void RedirectDeviceFiles();
void RedirectProcesses();
void RedirectTime();

}  // namespace lab::rig
