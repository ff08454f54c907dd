#include "tests/support/ImportRedirect.h"

#include <windows.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace test_support {
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
    throw std::runtime_error(std::string("this program does not import ") + functionName);
}

void WriteEntry(void** entry, void* function) {
    DWORD protection = 0;
    if (!VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &protection)) {
        throw std::runtime_error("VirtualProtect of the import table failed");
    }
    *static_cast<void* volatile*>(entry) = function;
    VirtualProtect(entry, sizeof *entry, protection, &protection);
}

}  // namespace

ImportRedirect::ImportRedirect(const char* functionName, void* replacement)
    : entry_(FindImportEntry(functionName)), original_(*entry_) {
    WriteEntry(entry_, replacement);
}

ImportRedirect::~ImportRedirect() {
    WriteEntry(entry_, original_);
}

}  // namespace test_support
