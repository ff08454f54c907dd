#include "lab/rig/process/ProcessResources.h"

#include <windows.h>
#include <psapi.h>
#include <tlhelp32.h>
#include <winternl.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace lab::rig {
namespace {

using QuerySystemInformation = NTSTATUS(NTAPI*)(ULONG kind, void* buffer, ULONG size, ULONG* length);

constexpr NTSTATUS kTooShort = static_cast<NTSTATUS>(0xC0000004);
constexpr ULONG_PTR kHandleStep = 4;  // between the values of two handles
constexpr std::size_t kMostBytes = std::size_t{64} << 20;

// A SYSTEM_PROCESS_INFORMATION for each process.
std::vector<std::byte> ProcessList() {
    const auto query = reinterpret_cast<QuerySystemInformation>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    for (std::size_t size = 1 << 16; size <= kMostBytes; size *= 2) {
        std::vector<std::byte> list(size);
        const NTSTATUS status =
            query(SystemProcessInformation, list.data(), static_cast<ULONG>(size), nullptr);
        if (status >= 0) {
            return list;
        }
        if (status != kTooShort) {
            break;
        }
    }
    throw std::runtime_error("the system does not list the processes");
}

// How many handles this process's handle table has room for, which is what Wine tells as its handle count.
DWORD HandleTableSize() {
    const std::vector<std::byte> list = ProcessList();
    SYSTEM_PROCESS_INFORMATION process{};
    for (std::size_t offset = 0; offset + sizeof process <= list.size(); offset += process.NextEntryOffset) {
        // Wine does not align the entries.
        std::memcpy(&process, list.data() + offset, sizeof process);
        if (reinterpret_cast<ULONG_PTR>(process.UniqueProcessId) == GetCurrentProcessId()) {
            return process.HandleCount;
        }
        if (process.NextEntryOffset == 0) {
            break;
        }
    }
    throw std::runtime_error("the system does not list this process");
}

// Asks for every handle there may be. The list of all processes' handles would tell at once, but Wine's
// server dies of that request when one of the processes has no handle yet.
DWORD HandlesInTable() {
    const ULONG_PTR last = HandleTableSize() * kHandleStep;
    DWORD handles = 0;
    for (ULONG_PTR value = kHandleStep; value <= last; value += kHandleStep) {
        DWORD flags = 0;
        handles += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) ? 1U : 0U;
    }
    return handles;
}

// Wine answers GetProcessHandleCount with success and 0.
DWORD Handles() {
    DWORD handles = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &handles) && handles != 0) {
        return handles;
    }
    return HandlesInTable();
}

DWORD Threads() {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        throw std::runtime_error("the system does not list the threads");
    }
    DWORD threads = 0;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
        threads += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1U : 0U;
    }
    CloseHandle(snapshot);
    return threads;
}

// Wine leaves the usage out of its answer.
std::uint64_t CommittedPrivateBytes() {
    std::uint64_t bytes = 0;
    const char* address = nullptr;
    MEMORY_BASIC_INFORMATION region{};
    while (VirtualQuery(address, &region, sizeof region) == sizeof region) {
        bytes += region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize : 0;
        address = static_cast<const char*>(region.BaseAddress) + region.RegionSize;
    }
    return bytes;
}

std::uint64_t PrivateBytes() {
    PROCESS_MEMORY_COUNTERS_EX counters{};
    counters.cb = sizeof counters;
    if (!K32GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                                 sizeof counters)) {
        throw std::runtime_error("the system does not tell the process's memory");
    }
    return counters.PrivateUsage != 0 ? counters.PrivateUsage : CommittedPrivateBytes();
}

}  // namespace

ProcessResources ProcessResources::Now() {
    return {.handles = Handles(), .threads = Threads(), .privateBytes = PrivateBytes()};
}

}  // namespace lab::rig
