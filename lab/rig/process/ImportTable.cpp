#include "lab/rig/process/ImportTable.h"

#include <windows.h>

#include <cstring>

namespace lab::rig {
namespace {

void** FindImportEntry(const char* functionName) {
    auto* const base = reinterpret_cast<BYTE*>(GetModuleHandleW(nullptr));
    const auto* const dosHeader = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dosHeader->e_lfanew);
    const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
    for (; library->Name != 0; ++library) {
        const auto* name = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + library->OriginalFirstThunk);
        auto* entry = reinterpret_cast<IMAGE_THUNK_DATA*>(base + library->FirstThunk);
        for (; name->u1.AddressOfData != 0; ++name, ++entry) {
            if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) {
                continue;
            }
            const auto* const byName =
                reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<const char*>(byName->Name), functionName) == 0) {
                return reinterpret_cast<void**>(&entry->u1.Function);
            }
        }
    }
    return nullptr;
}

}  // namespace

void* RedirectImport(const char* functionName, void* replacement) {
    void** const entry = FindImportEntry(functionName);
    DWORD protection = 0;
    if (entry == nullptr || !VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &protection)) {
        return nullptr;
    }
    void* const original = *entry;
    *static_cast<void* volatile*>(entry) = replacement;
    VirtualProtect(entry, sizeof *entry, protection, &protection);
    return original;
}

bool IsImported(const char* functionName) {
    return FindImportEntry(functionName) != nullptr;
}

}  // namespace lab::rig
