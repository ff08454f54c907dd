#pragma once

#include "tests/support/FakeUsbDevice.h"
#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>
#include <winusb.h>

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace test_support {

// A USB bus with scripted devices. While it lives, the program's CreateFileW of USB device links and all its
// WinUSB calls go to it; files of any other path, and handles that it did not make, are Windows' own. For one
// thread.
//
// Handles have names in the recorded calls: "file" for a device's file, "main" for the handle of
// WinUsb_Initialize, "interface 1" for the associated handle of the device's second interface, "a freed
// handle" and "no handle".
class FakeUsbBus : public OnlyOne<FakeUsbBus> {
  public:
    FakeUsbBus();
    ~FakeUsbBus();

    // Puts a device on the bus; it opens under exactly its link.
    FakeUsbDevice& Add(const std::wstring& link, std::uint16_t transferSize = 4096);
    // Takes it off: it does not open any more, and every call on its handles fails with
    // ERROR_DEVICE_NOT_CONNECTED.
    void Remove(const std::wstring& link);

    // The function ("CreateFileW", "WinUsb_GetDescriptor"...) fails once with this last error, 0 among them,
    // after `skip` calls that do as usual. CreateFileW counts only for device links.
    void Fail(const std::string& function, DWORD error, std::size_t skip = 0);

    // One line a call, in order, with every argument, for example
    //   CreateFileW(\\?\usb#..., access C0000000, sharing 3, no security, disposition 3, attributes 40000080,
    //   no template) WinUsb_GetDescriptor(main, type 2, index 0, language 0, 1024 bytes)
    //   WinUsb_ControlTransfer(main, 21 01 0003 0000 0040, 64 bytes, no overlapped)
    //   CloseHandle(file)
    //   WinUsb_ControlTransfer(main, 21 00 03E8 0000 0000, no buffer, 0 bytes, no overlapped)
    // A setup packet reads: request type, request, value, index, length, in hex.
    [[nodiscard]] const std::vector<std::string>& Calls() const { return calls_; }
    void ForgetCalls() { calls_.clear(); }

    // What is not closed yet.
    [[nodiscard]] std::size_t OpenFiles() const { return files_.size(); }
    [[nodiscard]] std::size_t OpenInterfaces() const { return interfaces_.size(); }

  private:
    struct OpenInterface {
        std::shared_ptr<FakeUsbDevice> device;
        std::size_t number;  // place in the device's list of interfaces; 0 is the main one
    };

    static HANDLE WINAPI RedirectedCreateFile(LPCWSTR path, DWORD access, DWORD sharing,
                                              LPSECURITY_ATTRIBUTES security, DWORD disposition,
                                              DWORD attributes, HANDLE templateFile);
    static BOOL WINAPI RedirectedCloseHandle(HANDLE handle);
    static BOOL WINAPI Initialize(HANDLE file, WINUSB_INTERFACE_HANDLE* handle);
    static BOOL WINAPI Free(WINUSB_INTERFACE_HANDLE handle);
    static BOOL WINAPI GetDescriptor(WINUSB_INTERFACE_HANDLE handle, UCHAR type, UCHAR index, USHORT language,
                                     UCHAR* buffer, ULONG size, ULONG* transferred);
    static BOOL WINAPI QueryInterfaceSettings(WINUSB_INTERFACE_HANDLE handle, UCHAR alternateNumber,
                                              USB_INTERFACE_DESCRIPTOR* descriptor);
    static BOOL WINAPI GetAssociatedInterface(WINUSB_INTERFACE_HANDLE handle, UCHAR index,
                                              WINUSB_INTERFACE_HANDLE* associated);
    static BOOL WINAPI SetCurrentAlternateSetting(WINUSB_INTERFACE_HANDLE handle, UCHAR setting);
    static BOOL WINAPI ControlTransfer(WINUSB_INTERFACE_HANDLE handle, WINUSB_SETUP_PACKET setup,
                                       UCHAR* buffer, ULONG size, ULONG* transferred, OVERLAPPED* overlapped);

    // True, with the last error set, when the call is to fail.
    [[nodiscard]] bool TakeFailure(const std::string& function);
    [[nodiscard]] bool IsPresent(const FakeUsbDevice& device) const;
    // The device behind a handle; null, with the last error set, when the handle or the device is gone.
    [[nodiscard]] const OpenInterface* Usable(WINUSB_INTERFACE_HANDLE handle) const;
    [[nodiscard]] std::string Name(WINUSB_INTERFACE_HANDLE handle) const;
    [[nodiscard]] WINUSB_INTERFACE_HANDLE Open(std::shared_ptr<FakeUsbDevice> device, std::size_t number);

    struct Failure {
        std::string function;
        DWORD error;
        std::size_t skip;
    };

    std::vector<std::shared_ptr<FakeUsbDevice>> devices_;
    std::map<HANDLE, std::shared_ptr<FakeUsbDevice>> files_;
    std::map<WINUSB_INTERFACE_HANDLE, OpenInterface> interfaces_;
    std::vector<std::unique_ptr<char>> handleValues_;  // distinct addresses, never reused
    std::vector<Failure> failures_;
    std::vector<std::string> calls_;
    ImportRedirect createFile_;
    ImportRedirect closeHandle_;
    ImportRedirect initialize_;
    ImportRedirect free_;
    ImportRedirect getDescriptor_;
    ImportRedirect queryInterfaceSettings_;
    ImportRedirect getAssociatedInterface_;
    ImportRedirect setCurrentAlternateSetting_;
    ImportRedirect controlTransfer_;
};

}  // namespace test_support
