#include <windows.h>
#include <cfgmgr32.h>
#include <winusb.h>

#include "Events.h"
#include "ImportTable.h"
#include "src/discovery/DeviceNotification.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>

#include <unistd.h>

// What the calls do on this side when no test has replaced them.

namespace {

thread_local DWORD lastError = 0;

BOOL Fail(LONG code) {
    lastError = static_cast<DWORD>(code);
    return FALSE;
}

void RealSleep(DWORD milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

ULONGLONG RealTickCount() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<ULONGLONG>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

HANDLE RealCreateEvent(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL signalled, LPCWSTR name) {
    return host::Events::OfProcess().Create(manualReset != FALSE, signalled != FALSE, name);
}

BOOL RealSetEvent(HANDLE event) {
    return host::Events::OfProcess().Signal(event, true) ? TRUE : Fail(ERROR_INVALID_HANDLE);
}

BOOL RealResetEvent(HANDLE event) {
    return host::Events::OfProcess().Signal(event, false) ? TRUE : Fail(ERROR_INVALID_HANDLE);
}

DWORD RealWait(HANDLE object, DWORD milliseconds) {
    const std::optional<bool> wasSignalled =
        host::Events::OfProcess().Wait(object, std::chrono::milliseconds(milliseconds));
    if (!wasSignalled) {
        Fail(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    return *wasSignalled ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

HANDLE NoFile(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
    Fail(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
}

BOOL RealClose(HANDLE handle) {
    return host::Events::OfProcess().Close(handle) ? TRUE : Fail(ERROR_INVALID_HANDLE);
}

CONFIGRET EmptyListSize(ULONG* length, GUID*, DEVINSTID_W, ULONG) {
    *length = 1;
    return CR_SUCCESS;
}

CONFIGRET EmptyList(GUID*, DEVINSTID_W, wchar_t* buffer, ULONG length, ULONG) {
    if (length == 0) {
        return CR_BUFFER_SMALL;
    }
    *buffer = L'\0';
    return CR_SUCCESS;
}

CONFIGRET NoRegistration(PCM_NOTIFY_FILTER, PVOID, PCM_NOTIFY_CALLBACK, PHCMNOTIFICATION) {
    return CR_CALL_NOT_IMPLEMENTED;
}

CONFIGRET NothingRegistered(HCMNOTIFICATION) {
    return CR_INVALID_DATA;
}

template <typename... Arguments>
BOOL NoBus(Arguments...) {
    return Fail(ERROR_BAD_COMMAND);
}

template <typename... Arguments>
host::Import<BOOL(Arguments...)> BusImport(const char* name, BOOL (*)(Arguments...)) {
    return {name, &NoBus<Arguments...>};
}

const host::Import<decltype(::Sleep)> sleepImport("Sleep", &RealSleep);
const host::Import<decltype(::GetTickCount64)> tickImport("GetTickCount64", &RealTickCount);
const host::Import<decltype(::CreateEventW)> createEventImport("CreateEventW", &RealCreateEvent);
const host::Import<decltype(::SetEvent)> setEventImport("SetEvent", &RealSetEvent);
const host::Import<decltype(::ResetEvent)> resetEventImport("ResetEvent", &RealResetEvent);
const host::Import<decltype(::WaitForSingleObject)> waitImport("WaitForSingleObject", &RealWait);
const host::Import<decltype(::CreateFileW)> createFileImport("CreateFileW", &NoFile);
const host::Import<decltype(::CloseHandle)> closeImport("CloseHandle", &RealClose);
const host::Import<decltype(::CM_Get_Device_Interface_List_SizeW)> listSizeImport(
    "CM_Get_Device_Interface_List_SizeW", &EmptyListSize);
const host::Import<decltype(::CM_Get_Device_Interface_ListW)> listImport("CM_Get_Device_Interface_ListW",
                                                                         &EmptyList);
const host::Import<decltype(::CM_Register_Notification)> registerImport("CM_Register_Notification",
                                                                        &NoRegistration);
const host::Import<decltype(::CM_Unregister_Notification)> unregisterImport("CM_Unregister_Notification",
                                                                            &NothingRegistered);
const auto initialize = BusImport("WinUsb_Initialize", &::WinUsb_Initialize);
const auto freeHandle = BusImport("WinUsb_Free", &::WinUsb_Free);
const auto getDescriptor = BusImport("WinUsb_GetDescriptor", &::WinUsb_GetDescriptor);
const auto queryInterface = BusImport("WinUsb_QueryInterfaceSettings", &::WinUsb_QueryInterfaceSettings);
const auto getAssociated = BusImport("WinUsb_GetAssociatedInterface", &::WinUsb_GetAssociatedInterface);
const auto setAlternate =
    BusImport("WinUsb_SetCurrentAlternateSetting", &::WinUsb_SetCurrentAlternateSetting);
const auto controlTransfer = BusImport("WinUsb_ControlTransfer", &::WinUsb_ControlTransfer);

}  // namespace

DWORD GetLastError() {
    return lastError;
}

void SetLastError(DWORD code) {
    lastError = code;
}

void Sleep(DWORD milliseconds) {
    sleepImport(milliseconds);
}

ULONGLONG GetTickCount64() {
    return tickImport();
}

DWORD GetCurrentThreadId() {
    return static_cast<DWORD>(std::hash<std::thread::id>{}(std::this_thread::get_id()));
}

DWORD GetCurrentProcessId() {
    return static_cast<DWORD>(getpid());
}

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL signalled, LPCWSTR name) {
    return createEventImport(security, manualReset, signalled, name);
}

BOOL SetEvent(HANDLE event) {
    return setEventImport(event);
}

BOOL ResetEvent(HANDLE event) {
    return resetEventImport(event);
}

DWORD WaitForSingleObject(HANDLE object, DWORD milliseconds) {
    return waitImport(object, milliseconds);
}

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES security,
                   DWORD disposition, DWORD attributes, HANDLE templateFile) {
    return createFileImport(path, access, sharing, security, disposition, attributes, templateFile);
}

BOOL CloseHandle(HANDLE handle) {
    return closeImport(handle);
}

BOOL DeleteFileW(LPCWSTR path) {
    std::error_code error;
    return std::filesystem::remove(path, error) ? TRUE : Fail(ERROR_FILE_NOT_FOUND);
}

CONFIGRET CM_Get_Device_Interface_List_SizeW(ULONG* length, GUID* interfaceClass, DEVINSTID_W device,
                                             ULONG flags) {
    return listSizeImport(length, interfaceClass, device, flags);
}

CONFIGRET CM_Get_Device_Interface_ListW(GUID* interfaceClass, DEVINSTID_W device, wchar_t* buffer,
                                        ULONG length, ULONG flags) {
    return listImport(interfaceClass, device, buffer, length, flags);
}

CONFIGRET CM_Register_Notification(PCM_NOTIFY_FILTER filter, PVOID context, PCM_NOTIFY_CALLBACK callback,
                                   PHCMNOTIFICATION registration) {
    return registerImport(filter, context, callback, registration);
}

CONFIGRET CM_Unregister_Notification(HCMNOTIFICATION registration) {
    return unregisterImport(registration);
}

BOOL WinUsb_Initialize(HANDLE file, WINUSB_INTERFACE_HANDLE* handle) {
    return initialize(file, handle);
}

BOOL WinUsb_Free(WINUSB_INTERFACE_HANDLE handle) {
    return freeHandle(handle);
}

BOOL WinUsb_GetDescriptor(WINUSB_INTERFACE_HANDLE handle, UCHAR type, UCHAR index, USHORT language,
                          UCHAR* buffer, ULONG size, ULONG* transferred) {
    return getDescriptor(handle, type, index, language, buffer, size, transferred);
}

BOOL WinUsb_QueryInterfaceSettings(WINUSB_INTERFACE_HANDLE handle, UCHAR alternateNumber,
                                   USB_INTERFACE_DESCRIPTOR* descriptor) {
    return queryInterface(handle, alternateNumber, descriptor);
}

BOOL WinUsb_GetAssociatedInterface(WINUSB_INTERFACE_HANDLE handle, UCHAR index,
                                   WINUSB_INTERFACE_HANDLE* associated) {
    return getAssociated(handle, index, associated);
}

BOOL WinUsb_SetCurrentAlternateSetting(WINUSB_INTERFACE_HANDLE handle, UCHAR setting) {
    return setAlternate(handle, setting);
}

BOOL WinUsb_ControlTransfer(WINUSB_INTERFACE_HANDLE handle, WINUSB_SETUP_PACKET setup, UCHAR* buffer,
                            ULONG size, ULONG* transferred, OVERLAPPED* overlapped) {
    return controlTransfer(handle, setup, buffer, size, transferred, overlapped);
}
