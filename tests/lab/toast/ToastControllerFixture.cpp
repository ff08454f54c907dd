#include "tests/lab/toast/ToastControllerFixture.h"

#include <tlhelp32.h>

#include <algorithm>
#include <stdexcept>

#include <nlohmann/json.hpp>

using Microsoft::WRL::ComPtr;
using win32::UniqueKernelHandle;

namespace {

constexpr DWORD kProgramPatienceMs = 30'000;

std::string ReadToEnd(HANDLE pipe) {
    std::string text;
    char buffer[512];
    for (DWORD count = 0; ReadFile(pipe, buffer, sizeof buffer, &count, nullptr) && count > 0;) {
        text.append(buffer, count);
    }
    return text;
}

PROCESS_INFORMATION Start(const wchar_t* commandLine, HANDLE errors) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdError = errors;
    std::wstring line = commandLine;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(ToastControllerFile().c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                        nullptr, &startup, &process)) {
        throw std::runtime_error("the server's file does not start: " + std::to_string(GetLastError()));
    }
    return process;
}

}  // namespace

std::wstring ToastControllerFile() {
    const std::string path = VEYRA_TOAST_CONTROLLER;
    std::wstring file = L"Z:" + std::wstring(path.begin(), path.end());
    std::replace(file.begin(), file.end(), L'/', L'\\');
    return file;
}

ProgramEnd RunToastControllerFile(const wchar_t* commandLine) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    UniqueKernelHandle readEnd;
    UniqueKernelHandle writeEnd;
    if (!CreatePipe(readEnd.Receive(), writeEnd.Receive(), &inherited, 0)) {
        throw std::runtime_error("no pipe");
    }
    SetHandleInformation(readEnd.Get(), HANDLE_FLAG_INHERIT, 0);
    const PROCESS_INFORMATION started = Start(commandLine, writeEnd.Get());
    const UniqueKernelHandle process(started.hProcess);
    const UniqueKernelHandle thread(started.hThread);
    writeEnd.Reset();
    ProgramEnd end{STILL_ACTIVE, ReadToEnd(readEnd.Get())};
    WaitForSingleObject(process.Get(), kProgramPatienceMs);
    GetExitCodeProcess(process.Get(), &end.exitCode);
    return end;
}

void ToastControllerFixture::SetUpTestSuite() {
    EXPECT_EQ(RunToastControllerFile(L"/RegServer").exitCode, 0u);
}

void ToastControllerFixture::TearDownTestSuite() {
    EXPECT_EQ(RunToastControllerFile(L"/UnregServer").exitCode, 0u);
}

ToastControllerFixture::ToastControllerFixture() {
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
}

ToastControllerFixture::~ToastControllerFixture() {
    wire_.reset();
    CoUninitialize();
    const UniqueKernelHandle process = ServerProcess();
    if (process && !ExitCodeWithin(process, std::chrono::seconds(20))) {
        ADD_FAILURE() << "the server is still there";
        TerminateProcess(process.Get(), 1);
    }
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\VeyraLaboratory");
}

// An old wire takes its port out of the registry, so it has to go first.
void ToastControllerFixture::OpenWire() {
    wire_.reset();
    wire_ = std::make_unique<WirePeer>();
}

ComPtr<IToastCntr> ToastControllerFixture::Activate() {
    ComPtr<IToastCntr> controller;
    const HRESULT result = CoCreateInstance(__uuidof(ToastCntr), nullptr, CLSCTX_LOCAL_SERVER,
                                            __uuidof(IToastCntr), &controller);
    if (FAILED(result)) {
        throw std::runtime_error("the activation failed: " + std::to_string(result));
    }
    if (wire_ != nullptr) {
        const nlohmann::json hello = wire_->NextEvent();
        EXPECT_EQ(hello.value("event", ""), "hello");
        EXPECT_EQ(hello.value("source", ""), "toast");
    }
    return controller;
}

ComPtr<IConnectionPoint> ToastControllerFixture::EventsOf(IToastCntr& controller) {
    ComPtr<IConnectionPointContainer> container;
    EXPECT_EQ(controller.QueryInterface(__uuidof(IConnectionPointContainer), &container), S_OK);
    ComPtr<IConnectionPoint> events;
    EXPECT_EQ(container->FindConnectionPoint(__uuidof(IToastCntrEvents), &events), S_OK);
    return events;
}

UniqueKernelHandle ToastControllerFixture::ServerProcess() {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    DWORD found = 0;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry)) {
        if (lstrcmpiW(entry.szExeFile, L"VeyraCameraToastCntl.exe") == 0) {
            found = entry.th32ProcessID;
        }
    }
    CloseHandle(snapshot);
    return found == 0 ? UniqueKernelHandle()
                      : UniqueKernelHandle(OpenProcess(PROCESS_ALL_ACCESS, FALSE, found));
}

std::optional<DWORD> ToastControllerFixture::ExitCodeWithin(const UniqueKernelHandle& process,
                                                            std::chrono::milliseconds patience) {
    DWORD code = 0;
    if (WaitForSingleObject(process.Get(), static_cast<DWORD>(patience.count())) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(process.Get(), &code)) {
        return std::nullopt;
    }
    return code;
}
