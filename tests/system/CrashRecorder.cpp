// Windows starts it for a program that crashes, as the registry's AeDebug says: `crash_recorder FILE PROCESS
// EVENT`. It writes what Windows' own record of a crash has (program and module with their versions, code,
// offset) into FILE, a dump into FILE.dmp, and ends the program.

#include <windows.h>

#include <dbghelp.h>
#include <psapi.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <vector>

namespace {

constexpr DWORD kPatienceMs = 20000;
constexpr int kArguments = 4;

std::wstring PathOf(HANDLE process, HMODULE module) {
    std::array<wchar_t, MAX_PATH> path{};
    GetModuleFileNameExW(process, module, path.data(), MAX_PATH);
    return path.data();
}

std::wstring NameOf(const std::wstring& path) {
    return path.substr(path.find_last_of(L'\\') + 1);
}

std::wstring VersionOf(const std::wstring& path) {
    DWORD none = 0;
    std::vector<BYTE> block(GetFileVersionInfoSizeW(path.c_str(), &none));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT size = 0;
    if (block.empty() ||
        !GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(block.size()), block.data()) ||
        !VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &size)) {
        return L"0.0.0.0";
    }
    std::array<wchar_t, 64> text{};
    std::swprintf(text.data(), text.size(), L"%u.%u.%u.%u", HIWORD(fixed->dwFileVersionMS),
                  LOWORD(fixed->dwFileVersionMS), HIWORD(fixed->dwFileVersionLS),
                  LOWORD(fixed->dwFileVersionLS));
    return text.data();
}

// The module that has the address; the program itself when none has.
HMODULE ModuleAt(HANDLE process, ULONG_PTR address) {
    std::array<HMODULE, 256> modules{};
    DWORD size = 0;
    EnumProcessModules(process, modules.data(), sizeof modules, &size);
    for (std::size_t index = 0; index < size / sizeof(HMODULE); ++index) {
        MODULEINFO info{};
        GetModuleInformation(process, modules.at(index), &info, sizeof info);
        const auto base = reinterpret_cast<ULONG_PTR>(info.lpBaseOfDll);
        if (address >= base && address < base + info.SizeOfImage) {
            return modules.at(index);
        }
    }
    return modules[0];
}

void WriteRecord(const wchar_t* file, HANDLE process, const EXCEPTION_RECORD& record) {
    const auto address = reinterpret_cast<ULONG_PTR>(record.ExceptionAddress);
    const HMODULE module = ModuleAt(process, address);
    const std::wstring program = PathOf(process, nullptr);
    const std::wstring path = PathOf(process, module);
    std::FILE* const out = _wfopen(file, L"wb");
    if (out == nullptr) {
        return;
    }
    std::fprintf(out, "%ls %ls %ls %ls %08lx %016llx\n", NameOf(program).c_str(), VersionOf(program).c_str(),
                 NameOf(path).c_str(), VersionOf(path).c_str(), record.ExceptionCode,
                 static_cast<unsigned long long>(address - reinterpret_cast<ULONG_PTR>(module)));
    std::fclose(out);
}

void WriteDump(const std::wstring& file, HANDLE process, const DEBUG_EVENT& event) {
    const HANDLE thread = OpenThread(THREAD_ALL_ACCESS, FALSE, event.dwThreadId);
    CONTEXT context{};
    context.ContextFlags = CONTEXT_ALL;
    GetThreadContext(thread, &context);
    EXCEPTION_RECORD record = event.u.Exception.ExceptionRecord;
    EXCEPTION_POINTERS pointers{&record, &context};
    MINIDUMP_EXCEPTION_INFORMATION information{event.dwThreadId, &pointers, FALSE};
    const HANDLE dump = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    MiniDumpWriteDump(process, event.dwProcessId, dump, MiniDumpNormal, &information, nullptr, nullptr);
    CloseHandle(dump);
    CloseHandle(thread);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc != kArguments) {
        return 2;
    }
    const auto number = static_cast<DWORD>(std::wcstoul(argv[2], nullptr, 10));
    const HANDLE process = OpenProcess(PROCESS_ALL_ACCESS, FALSE, number);
    if (process == nullptr || !DebugActiveProcess(number)) {
        return 1;
    }
    // The crashing thread goes on from here, and crashes for good.
    SetEvent(reinterpret_cast<HANDLE>(static_cast<ULONG_PTR>(std::wcstoull(argv[3], nullptr, 10))));
    DEBUG_EVENT event{};
    while (WaitForDebugEvent(&event, kPatienceMs)) {
        if (event.dwDebugEventCode == EXCEPTION_DEBUG_EVENT) {
            const EXCEPTION_DEBUG_INFO& exception = event.u.Exception;
            if (exception.ExceptionRecord.ExceptionCode != EXCEPTION_BREAKPOINT && !exception.dwFirstChance) {
                WriteDump(std::wstring(argv[1]) + L".dmp", process, event);
                WriteRecord(argv[1], process, exception.ExceptionRecord);
                TerminateProcess(process, exception.ExceptionRecord.ExceptionCode);
                return 0;
            }
        }
        const bool unhandled = event.dwDebugEventCode == EXCEPTION_DEBUG_EVENT &&
                               event.u.Exception.ExceptionRecord.ExceptionCode != EXCEPTION_BREAKPOINT;
        ContinueDebugEvent(event.dwProcessId, event.dwThreadId,
                           unhandled ? DBG_EXCEPTION_NOT_HANDLED : DBG_CONTINUE);
    }
    return 1;
}
