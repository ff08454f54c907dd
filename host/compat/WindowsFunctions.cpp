#include <windows.h>
#include <winusb.h>

#include "ImportTable.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include <unistd.h>

// What the calls do on this side when no test has replaced them.

namespace {

thread_local DWORD lastError = 0;

// Events are never signalled: nothing portable waits for one.
class Events {
  public:
    HANDLE Create() {
        const std::lock_guard lock(mutex_);
        return events_.insert(std::make_unique<char>()).first->get();
    }
    bool Close(HANDLE handle) {
        const std::lock_guard lock(mutex_);
        return std::erase_if(events_, [handle](const auto& event) { return event.get() == handle; }) == 1;
    }

  private:
    std::mutex mutex_;
    std::set<std::unique_ptr<char>> events_;
};

Events& AllEvents() {
    static Events events;
    return events;
}

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

DWORD RealWait(HANDLE, DWORD milliseconds) {
    RealSleep(milliseconds);
    return WAIT_TIMEOUT;
}

HANDLE NoFile(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
    Fail(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
}

BOOL RealClose(HANDLE handle) {
    return AllEvents().Close(handle) ? TRUE : Fail(ERROR_INVALID_HANDLE);
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
const host::Import<decltype(::WaitForSingleObject)> waitImport("WaitForSingleObject", &RealWait);
const host::Import<decltype(::CreateFileW)> createFileImport("CreateFileW", &NoFile);
const host::Import<decltype(::CloseHandle)> closeImport("CloseHandle", &RealClose);
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

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR) {
    return AllEvents().Create();
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
