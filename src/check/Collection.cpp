#include "check/Collection.h"

#include "check/CheckArguments.h"
#include "check/ComputerNames.h"
#include "check/Console.h"
#include "check/EventRecords.h"
#include "check/FileInspector.h"
#include "check/Judgement.h"
#include "check/MachineQuery.h"
#include "check/ProgramName.h"
#include "check/Redaction.h"
#include "check/SetupLog.h"
#include "check/StatusReport.h"
#include "check/TraceLine.h"
#include "check/TraceSession.h"
#include "check/Utf8.h"
#include "check/VersionList.h"
#include "check/Words.h"
#include "win32/BinaryFile.h"
#include "win32/UniqueHandle.h"

#include <sddl.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace check {
namespace {

constexpr wchar_t kTraceFile[] = L"trace.etl";
constexpr const char* kCabinet = "bundle.cab";
constexpr DWORD kPathCapacity = 520;

// Nobody but its maker, the administrators and Windows gets at it: it may be made by an administrator in a
// folder in which everybody makes files.
bool MakePrivateFolder(const std::wstring& path) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(
            L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;OW)", SDDL_REVISION_1, &descriptor, nullptr)) {
        return false;
    }
    SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor, FALSE};
    const BOOL isMade = CreateDirectoryW(path.c_str(), &attributes);
    const DWORD error = GetLastError();
    LocalFree(descriptor);
    SetLastError(error);
    return isMade != FALSE;
}

// Below Windows' own folder: a path in the file of the trace has no user's name in it then.
std::wstring MakeFolder() {
    std::array<wchar_t, kPathCapacity> base{};
    GetSystemWindowsDirectoryW(base.data(), kPathCapacity);
    const std::wstring name = L"\\VeyraCheck-" + std::to_wstring(GetCurrentProcessId());
    std::wstring folder = std::wstring(base.data()) + L"\\Temp" + name;
    if (MakePrivateFolder(folder)) {
        return folder;
    }
    GetTempPathW(kPathCapacity, base.data());
    folder = std::wstring(base.data()) + name.substr(1);
    return MakePrivateFolder(folder) ? folder : std::wstring();
}

std::string ContentOf(const std::wstring& path) {
    std::ifstream file = win32::OpenBinaryFile(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool WriteContent(const std::wstring& path, const std::string& content) {
    const HANDLE opened =
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (opened == INVALID_HANDLE_VALUE) {
        return false;
    }
    const win32::UniqueKernelHandle file(opened);
    DWORD written = 0;
    return WriteFile(file.Get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr) !=
               FALSE &&
           written == content.size();
}

std::wstring OwnFolder() {
    std::array<wchar_t, kPathCapacity> path{};
    GetModuleFileNameW(nullptr, path.data(), kPathCapacity);
    return Wide(FolderOf(Utf8(path.data())));
}

// The names of the files in a folder that a pattern means.
std::vector<std::wstring> FilesIn(const std::wstring& folder, const wchar_t* pattern) {
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW found{};
    const HANDLE search = FindFirstFileW((folder + pattern).c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return names;
    }
    do {
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            names.emplace_back(found.cFileName);
        }
    } while (FindNextFileW(search, &found));
    FindClose(search);
    std::sort(names.begin(), names.end());
    return names;
}

// It lives as long as its process at the longest: a collection that was killed holds none back.
win32::UniqueKernelHandle TakeOnly() {
    win32::UniqueKernelHandle mutex(CreateMutexW(nullptr, FALSE, L"Global\\VeyraCameraDfuCheckCollects"));
    const DWORD error = GetLastError();
    if (error == ERROR_ALREADY_EXISTS || error == ERROR_ACCESS_DENIED) {
        throw std::runtime_error("another collect is at work on this machine");
    }
    return mutex;
}

// Those of the package, which lie beside the program.
TraceFormats ReadFormats() {
    TraceFormats formats;
    const std::wstring folder = OwnFolder() + L"\\trace\\";
    for (const std::wstring& name : FilesIn(folder, L"*.tmf")) {
        formats.Read(ContentOf(folder + name));
    }
    return formats;
}

}  // namespace

Collection::Collection(std::string cabinet)
    : onlyOne_(TakeOnly()), cabinet_(std::move(cabinet)), names_(ComputerNames()) {
    const std::wstring path = Wide(cabinet_);
    if (GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES) {
        throw UsageError("there is a file already: " + cabinet_);
    }
    // Made and removed again: what is collected for minutes must not be lost at the end.
    const HANDLE opened = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                      FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (opened == INVALID_HANDLE_VALUE) {
        throw UsageError("the file cannot be written (" + Code(GetLastError()) + "): " + cabinet_);
    }
    CloseHandle(opened);
    folder_ = MakeFolder();
    if (folder_.empty()) {
        throw UsageError("there is no folder for temporary files (" + Code(GetLastError()) + ")");
    }
}

Collection::~Collection() {
    for (const std::wstring& name : FilesIn(folder_ + L"\\", L"*")) {
        if (!isKept_ || name != Wide(kCabinet)) {
            DeleteFileW((folder_ + L"\\" + name).c_str());
        }
    }
    RemoveDirectoryW(folder_.c_str());
}

std::string Collection::Make(std::optional<std::uint32_t> seconds, std::string_view programVersion) {
    constexpr const char* kEnded = "it was ended before it was done";
    RecordTrace(seconds);
    if (EndSignal::IsToGiveUp()) {
        return kEnded;
    }
    const MachineState machine = WithoutPersons(QueryMachine(), names_);
    Add("status.json", StatusJson(machine, Judge(machine), programVersion),
        R"(what "status --json" says; accounts of persons are "another account")");
    Add("versions.txt", WithoutTraces(ListVersions(machine, programVersion), names_),
        "versions of Windows, programs and drivers");
    AddEventRecords();
    AddSetupLogs();
    const std::string list = contents_ + "contents.txt  this list\n";
    Add("contents.txt", "VeyraCameraDfuCheck " + std::string(programVersion) + "\n\n" + list, "this list");

    if (EndSignal::IsToGiveUp()) {
        return kEnded;
    }
    std::string failure = WriteCabinet(entries_, Utf8(folder_), kCabinet);
    if (!failure.empty()) {
        return failure;
    }
    if (!CopyFileW(PathOf(kCabinet).c_str(), Wide(cabinet_).c_str(), TRUE)) {
        const DWORD error = GetLastError();
        isKept_ = true;
        return "the cabinet could not be put in place (" + Code(error) + "): " + cabinet_ + "; it lies at " +
               Utf8(PathOf(kCabinet));
    }
    WriteOutput("\n" + cabinet_ + " holds:\n" + list);
    return {};
}

void Collection::AddEventRecords() {
    DWORD error = ERROR_SUCCESS;
    const std::string records = ReadEventRecords(names_, error);
    if (error != ERROR_SUCCESS) {
        LeaveOut("events.xml",
                 (records.empty() ? "no event log could be read (" : "not all of it could be read (") +
                     Code(error) + ")");
    }
    if (!records.empty()) {
        Add("events.xml", records,
            "event log records of service and toast controller, without computer and user");
    }
}

// The log of today, and those of before, which have their time in their name.
void Collection::AddSetupLogs() {
    std::array<wchar_t, kPathCapacity> windows{};
    GetSystemWindowsDirectoryW(windows.data(), kPathCapacity);
    const std::wstring folder = std::wstring(windows.data()) + L"\\INF\\";
    std::string sections;
    bool isRead = false;
    for (const std::wstring& name : FilesIn(folder, L"setupapi.dev*.log")) {
        std::ifstream file = win32::OpenBinaryFile(folder + name);
        const std::string log(std::istreambuf_iterator<char>(file), {});
        if (!file.is_open() || file.bad()) {
            LeaveOut("setup.txt", Utf8(name) + " could not be read");
            continue;
        }
        sections += VendorSections(log, names_);
        isRead = true;
    }
    if (isRead) {
        Add("setup.txt", sections, "the device installation logs' sections of this vendor's devices");
    } else {
        LeaveOut("setup.txt", "there is no device installation log that can be read");
    }
}

void Collection::RecordTrace(std::optional<std::uint32_t> seconds) {
    const TraceFormats formats = ReadFormats();
    std::mutex lock;
    std::string text;
    TraceSession session(folder_ + L"\\" + kTraceFile, [&](const TraceEvent& event) {
        const std::string line = TraceLine(formats, event);
        const std::scoped_lock guard(lock);
        text += line;
        WriteOutput(line);
    });
    const DWORD error = session.Start();
    if (error != ERROR_SUCCESS) {
        WriteOutput("The trace is not recorded (" + Code(error) +
                    "): run this at an elevated prompt for it.\n");
        LeaveOut("trace.txt, trace.etl", "the trace was not recorded (" + Code(error) + ")");
        return;
    }
    WriteOutput(seconds ? "Recording for " + std::to_string(*seconds) + " s: plug the camera in now.\n"
                        : "Recording: plug the camera in now, and press Enter when it is over.\n");
    end_.Wait(seconds);
    session.Stop();
    if (session.ListeningError() != ERROR_SUCCESS) {
        LeaveOut("trace.txt",
                 "not all was told while it was recorded (" + Code(session.ListeningError()) + ")");
    }
    const std::scoped_lock guard(lock);
    Add("trace.txt", WithoutTraces(text, names_),
        formats.Count() == 0
            ? "the service's trace, in numbers: the folder \"trace\" is not beside this program"
            : "the service's trace in words");
    if (FileInspector::IsFile(Utf8(PathOf("trace.etl")))) {
        entries_.push_back({"trace.etl", Utf8(PathOf("trace.etl"))});
        contents_ += "trace.etl     the same as Windows recorded it, for tracefmt\n";
    }
}

void Collection::Add(const std::string& name, const std::string& content, const std::string& about) {
    if (!WriteContent(PathOf(name), content)) {
        LeaveOut(name, "it could not be written (" + Code(GetLastError()) + ")");
        return;
    }
    entries_.push_back({name, Utf8(PathOf(name))});
    contents_ += name + std::string(name.size() < 14 ? 14 - name.size() : 1, ' ') + about + "\n";
}

void Collection::LeaveOut(const std::string& name, const std::string& why) {
    contents_ += name + ": " + why + "\n";
}

std::wstring Collection::PathOf(const std::string& name) const {
    return folder_ + L"\\" + Wide(name);
}

}  // namespace check
