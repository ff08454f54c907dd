#include <windows.h>

#include <cstdlib>
#include <string>

#include <nlohmann/json.hpp>

#include "lab/rig/process/ImportTable.h"
#include "lab/rig/process/LastErrorKeeper.h"
#include "lab/rig/redirects/Redirects.h"
#include "lab/rig/run/Rig.h"
#include "lab/wire/Utf8.h"

namespace lab::rig {
namespace {

decltype(&std::system) runCommand = nullptr;
decltype(&::CreateProcessAsUserW) createProcessAsUser = nullptr;

int __cdecl RunCommandRecorded(const char* command) {
    const int result = runCommand(command);
    if (Rig* const rig = Rig::Get()) {
        rig->Record({{"event", "command-run"},
                     {"command", command != nullptr ? Utf8FromAnsi(command) : std::string()},
                     {"result", result}});
    }
    return result;
}

BOOL WINAPI CreateProcessAsUserRecorded(HANDLE token, const wchar_t* application, wchar_t* commandLine,
                                        SECURITY_ATTRIBUTES* processAttributes,
                                        SECURITY_ATTRIBUTES* threadAttributes, BOOL inheritHandles,
                                        DWORD flags, void* environment, const wchar_t* directory,
                                        STARTUPINFOW* startup, PROCESS_INFORMATION* process) {
    // Taken before the call, which may write into the command line.
    const std::string commandLineText = commandLine != nullptr ? Utf8(commandLine) : std::string();
    const BOOL ok = createProcessAsUser(token, application, commandLine, processAttributes, threadAttributes,
                                        inheritHandles, flags, environment, directory, startup, process);
    const LastErrorKeeper keeper;
    const DWORD error = ok ? ERROR_SUCCESS : GetLastError();
    if (Rig* const rig = Rig::Get()) {
        rig->Record({{"event", "process"},
                     {"application", application != nullptr ? Utf8(application) : std::string()},
                     {"command_line", commandLineText},
                     {"ok", ok != FALSE},
                     {"error", error}});
    }
    return ok;
}

}  // namespace

void RedirectProcesses() {
    Redirect("system", &RunCommandRecorded, runCommand);
    Redirect("CreateProcessAsUserW", &CreateProcessAsUserRecorded, createProcessAsUser);
}

}  // namespace lab::rig
