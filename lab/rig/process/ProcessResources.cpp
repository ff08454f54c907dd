#include "lab/rig/process/ProcessResources.h"

#include <windows.h>
#include <psapi.h>
#include <tlhelp32.h>
#include <winternl.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <set>
#include <stdexcept>
#include <vector>

namespace lab::rig {
namespace {

using QuerySystemInformation = NTSTATUS(NTAPI*)(ULONG kind, void* buffer, ULONG size, ULONG* length);
using QueryInformationThread = NTSTATUS(NTAPI*)(HANDLE thread, ULONG kind, void* buffer, ULONG size,
                                                ULONG* length);

// What ntdll tells of a thread.
struct ThreadBasics {
    NTSTATUS exitStatus;
    void* block;
    HANDLE process;
    HANDLE thread;
    ULONG_PTR affinity;
    LONG priority;
    LONG basePriority;
};

constexpr ULONG kThreadBasics = 0;
constexpr NTSTATUS kTooShort = static_cast<NTSTATUS>(0xC0000004);
constexpr ULONG_PTR kHandleStep = 4;  // between the values of two handles
constexpr std::size_t kMostBytes = std::size_t{64} << 20;

template <typename Function>
Function Ntdll(const char* name) {
    return reinterpret_cast<Function>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name)));
}

// A SYSTEM_PROCESS_INFORMATION for each process.
std::vector<std::byte> ProcessList() {
    const auto query = Ntdll<QuerySystemInformation>("NtQuerySystemInformation");
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

// The numbers of this process's threads.
std::vector<DWORD> Threads() {
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        throw std::runtime_error("the system does not list the threads");
    }
    std::vector<DWORD> threads;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
        if (entry.th32OwnerProcessID == GetCurrentProcessId()) {
            threads.push_back(entry.th32ThreadID);
        }
    }
    CloseHandle(snapshot);
    return threads;
}

// Where the allocation begins that has the thread's block; null when the thread is gone.
const void* AllocationOfBlock(DWORD threadId) {
    const HANDLE thread = OpenThread(THREAD_QUERY_INFORMATION, FALSE, threadId);
    if (thread == nullptr) {
        return nullptr;
    }
    ThreadBasics basics{};
    const NTSTATUS status = Ntdll<QueryInformationThread>("NtQueryInformationThread")(
        thread, kThreadBasics, &basics, sizeof basics, nullptr);
    CloseHandle(thread);
    MEMORY_BASIC_INFORMATION region{};
    if (status < 0 || VirtualQuery(basics.block, &region, sizeof region) != sizeof region) {
        return nullptr;
    }
    return region.AllocationBase;
}

// The committed private memory of the allocations for which `counts` holds.
template <typename Counts>
std::uint64_t CommittedPrivateBytes(Counts counts) {
    std::uint64_t bytes = 0;
    const char* address = nullptr;
    MEMORY_BASIC_INFORMATION region{};
    while (VirtualQuery(address, &region, sizeof region) == sizeof region) {
        const bool isPrivate = region.State == MEM_COMMIT && region.Type == MEM_PRIVATE;
        bytes += isPrivate && counts(region.AllocationBase) ? region.RegionSize : 0;
        address = static_cast<const char*>(region.BaseAddress) + region.RegionSize;
    }
    return bytes;
}

std::uint64_t ThreadBlockBytes(const std::vector<DWORD>& threads) {
    std::set<const void*> allocations;
    for (const DWORD thread : threads) {
        allocations.insert(AllocationOfBlock(thread));
    }
    return CommittedPrivateBytes([&](const void* allocation) { return allocations.contains(allocation); });
}

// Wine leaves the usage out of its answer.
std::uint64_t PrivateBytes() {
    PROCESS_MEMORY_COUNTERS_EX counters{};
    counters.cb = sizeof counters;
    if (!K32GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                                 sizeof counters)) {
        throw std::runtime_error("the system does not tell the process's memory");
    }
    return counters.PrivateUsage != 0 ? counters.PrivateUsage
                                      : CommittedPrivateBytes([](const void*) { return true; });
}

}  // namespace

ProcessResources ProcessResources::Now() {
    const std::vector<DWORD> threads = Threads();
    return {.handles = Handles(),
            .threads = static_cast<DWORD>(threads.size()),
            .privateBytes = PrivateBytes(),
            .threadBlockBytes = ThreadBlockBytes(threads)};
}

}  // namespace lab::rig
