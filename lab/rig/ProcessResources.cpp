#include "lab/rig/ProcessResources.h"

#include <windows.h>
#include <psapi.h>
#include <tlhelp32.h>
#include <winternl.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace lab::rig {
namespace {

using QuerySystemInformation = NTSTATUS(NTAPI*)(ULONG kind, void* buffer, ULONG size, ULONG* length);

constexpr ULONG kHandleList = 64;  // all handles of all processes
constexpr NTSTATUS kTooShort = static_cast<NTSTATUS>(0xC0000004);
constexpr std::size_t kMostBytes = std::size_t{64} << 20;

struct HandleEntry {
    void* object;
    ULONG_PTR processId;
    ULONG_PTR handle;
    ULONG access;
    USHORT creatorBackTrace;
    USHORT objectType;
    ULONG attributes;
    ULONG reserved;
};

struct HandleList {
    ULONG_PTR count;
    ULONG_PTR reserved;
    HandleEntry entries[1];
};

// Wine answers GetProcessHandleCount with success and 0.
DWORD HandlesFromList() {
    const auto query = reinterpret_cast<QuerySystemInformation>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    for (std::size_t size = 1 << 16; size <= kMostBytes; size *= 2) {
        std::vector<std::byte> buffer(size);
        const NTSTATUS status = query(kHandleList, buffer.data(), static_cast<ULONG>(size), nullptr);
        if (status == kTooShort) {
            continue;
        }
        if (status < 0) {
            break;
        }
        const auto& list = *reinterpret_cast<const HandleList*>(buffer.data());
        DWORD handles = 0;
        for (ULONG_PTR index = 0; index < list.count; ++index) {
            handles += list.entries[index].processId == GetCurrentProcessId() ? 1U : 0U;
        }
        return handles;
    }
    throw std::runtime_error("the system does not list the handles");
}

DWORD Handles() {
    DWORD handles = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &handles) && handles != 0) {
        return handles;
    }
    return HandlesFromList();
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

nlohmann::json ProcessResources() {
    return {{"handles", Handles()}, {"threads", Threads()}, {"private_bytes", PrivateBytes()}};
}

}  // namespace lab::rig
