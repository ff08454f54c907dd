#pragma once

#include "host/campaign/Crossing.h"
#include "host/campaign/VirtualTime.h"
#include "lab/camera/VirtualCamera.h"
#include "tests/support/ImportRedirect.h"
#include "tests/support/OnlyOne.h"

#include <windows.h>
#include <cfgmgr32.h>
#include <winusb.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace campaign {

// A bus with virtual cameras, and devices that are none, under Windows' calls. While it lives, the program's
// CreateFileW and CloseHandle of their links, its WinUSB calls and its list of device interfaces go to them,
// with the error codes that the laboratory's rig has. One at a time, for one thread.
class CameraBus : public test_support::OnlyOne<CameraBus> {
  public:
    // None is owned; all outlive the bus.
    CameraBus(VirtualTime& time, ICrossingListener& listener, std::vector<lab::VirtualCamera*> cameras);
    ~CameraBus();

    [[nodiscard]] lab::VirtualCamera& Camera(std::size_t camera) { return *places_[camera].camera; }

    // The running camera's control, as the kernel-streaming property handler gives it: a write, then a read
    // of as much as the buffer takes.
    [[nodiscard]] HRESULT WriteControl(std::size_t camera, std::span<const std::uint8_t> frame);
    [[nodiscard]] HRESULT ReadControl(std::size_t camera, std::span<std::uint8_t> reply, ULONG& returned);

    // Files and interfaces that the service has not closed.
    [[nodiscard]] std::size_t OpenHandles() const { return files_.size() + interfaces_.size(); }
    // Whether every handle of the bus that was used or closed was open. A destructor of the service's may
    // have done it, through which nothing can be thrown.
    [[nodiscard]] bool HandlesWereOpen() const { return handlesWereOpen_; }

  private:
    static constexpr std::uintptr_t kFirstHandle = 0x7000'0000;

    struct Place {
        lab::VirtualCamera* camera;
        std::wstring link;
        bool isPresent = false;  // in DFU mode
        unsigned stay = 0;
        std::uint64_t leftAtMs = 0;
    };
    struct OpenFile {
        std::size_t camera = 0;
        unsigned stay = 0;
    };
    struct OpenInterface {
        OpenFile file;
        std::size_t position = 0;
    };

    static HANDLE WINAPI RedirectedCreateFile(LPCWSTR path, DWORD access, DWORD sharing,
                                              LPSECURITY_ATTRIBUTES security, DWORD disposition,
                                              DWORD attributes, HANDLE templateFile);
    static BOOL WINAPI RedirectedCloseHandle(HANDLE handle);
    static CONFIGRET CMAPI ListSize(ULONG* length, GUID* interfaceClass, DEVINSTID_W device, ULONG flags);
    static CONFIGRET CMAPI List(GUID* interfaceClass, DEVINSTID_W device, wchar_t* buffer, ULONG length,
                                ULONG flags);
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

    void Look(std::uint64_t nowMs);
    [[nodiscard]] std::wstring PresentLinks() const;
    // Null, with the last error, when it is not open.
    [[nodiscard]] const OpenInterface* Find(WINUSB_INTERFACE_HANDLE handle);
    BOOL RefuseHandle();
    [[nodiscard]] HANDLE NewHandle();
    // The error of a call to a device that is gone; none when it is there.
    [[nodiscard]] std::optional<DWORD> WhyGone(const OpenInterface& opened) const;
    BOOL Finish(Crossing& crossing, const lab::TransferResult& result, std::span<std::uint8_t> buffer,
                ULONG* transferred);
    BOOL FinishGone(Crossing& crossing, DWORD error, std::span<std::uint8_t> buffer, ULONG* transferred);
    void Pass(const lab::TransferResult& result);
    [[nodiscard]] Crossing Begin(Crossing::What what, std::size_t camera,
                                 std::span<const std::uint8_t> buffer);

    VirtualTime& time_;
    ICrossingListener& listener_;
    std::vector<Place> places_;
    std::map<HANDLE, OpenFile> files_;
    std::map<WINUSB_INTERFACE_HANDLE, OpenInterface> interfaces_;
    std::uintptr_t lastHandle_ = kFirstHandle;
    bool handlesWereOpen_ = true;
    std::vector<std::uint8_t> before_;
    test_support::ImportRedirect createFile_;
    test_support::ImportRedirect closeHandle_;
    test_support::ImportRedirect listSize_;
    test_support::ImportRedirect list_;
    test_support::ImportRedirect initialize_;
    test_support::ImportRedirect free_;
    test_support::ImportRedirect getDescriptor_;
    test_support::ImportRedirect queryInterfaceSettings_;
    test_support::ImportRedirect getAssociatedInterface_;
    test_support::ImportRedirect setCurrentAlternateSetting_;
    test_support::ImportRedirect controlTransfer_;
};

}  // namespace campaign
