#include <windows.h>

#include <string_view>

#include "lab/rig/bus/DeviceLinks.h"
#include "lab/rig/process/ImportTable.h"
#include "lab/rig/redirects/Redirects.h"
#include "lab/rig/run/Rig.h"

namespace lab::rig {
namespace {

constexpr std::wstring_view kUsbPrefix = LR"(\\?\usb#)";

decltype(&::CreateFileW) createFile = nullptr;
decltype(&::CloseHandle) closeHandle = nullptr;

bool IsUsbLink(const wchar_t* path) {
    return path != nullptr && SameLink(std::wstring_view(path).substr(0, kUsbPrefix.size()), kUsbPrefix);
}

HANDLE WINAPI CreateFileOrDevice(const wchar_t* path, DWORD access, DWORD share,
                                 SECURITY_ATTRIBUTES* security, DWORD disposition, DWORD flags,
                                 HANDLE templateFile) {
    Rig* const rig = IsUsbLink(path) ? Rig::Get() : nullptr;
    if (rig == nullptr) {
        return createFile(path, access, share, security, disposition, flags, templateFile);
    }
    HANDLE file = INVALID_HANDLE_VALUE;
    const DWORD error = rig->Devices().Open(path, flags, file);
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
    }
    return file;
}

BOOL WINAPI CloseHandleOrDevice(HANDLE handle) {
    if (Rig* const rig = Rig::IfConnected()) {
        rig->Devices().Closing(handle);
    }
    return closeHandle(handle);
}

}  // namespace

void RedirectDeviceFiles() {
    Redirect("CreateFileW", &CreateFileOrDevice, createFile);
    Redirect("CloseHandle", &CloseHandleOrDevice, closeHandle);
}

}  // namespace lab::rig
