#pragma once

#include <windows.h>
#include <usb.h>
#include <winusb.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "lab/rig/bus/Bus.h"

namespace lab::rig {

// The cameras in DFU mode as the WinUSB driver shows them: the files opened on them and the interface handles
// made from those. Every function gives the last error of the call that it stands for, 0 for success. Any
// thread.
class UsbDevices {
  public:
    using Recorder = std::function<void(const nlohmann::json& event)>;

    UsbDevices(Bus& bus, Recorder record) : bus_(bus), record_(std::move(record)) {}

    // Opens the device of that link: `file` is a real handle, the caller's to close. ERROR_FILE_NOT_FOUND
    // when it is not present in DFU mode, ERROR_ACCESS_DENIED while an earlier file on it is open: the driver
    // serves one only.
    DWORD Open(const std::wstring& link, DWORD flags, HANDLE& file);
    // Tells that the handle is about to be closed; nothing happens when it is none of Open's.
    void Closing(HANDLE file);

    // ERROR_INVALID_HANDLE for a file that is none of Open's or was not opened for overlapped use.
    DWORD Initialize(HANDLE file, WINUSB_INTERFACE_HANDLE& handle);
    DWORD Free(WINUSB_INTERFACE_HANDLE handle);
    DWORD GetDescriptor(WINUSB_INTERFACE_HANDLE handle, std::uint8_t type, std::uint8_t index,
                        std::span<std::uint8_t> buffer, ULONG& transferred);
    // ERROR_NO_MORE_ITEMS behind the last alternate setting, and behind the last associated interface.
    DWORD QueryInterfaceSettings(WINUSB_INTERFACE_HANDLE handle, std::uint8_t alternate,
                                 USB_INTERFACE_DESCRIPTOR& descriptor);
    // Index 0 is the interface behind the handle's own. ERROR_ALREADY_EXISTS while a handle to it is out.
    DWORD GetAssociatedInterface(WINUSB_INTERFACE_HANDLE handle, std::uint8_t index,
                                 WINUSB_INTERFACE_HANDLE& associated);
    DWORD SetCurrentAlternateSetting(WINUSB_INTERFACE_HANDLE handle, std::uint8_t setting);
    DWORD ControlTransfer(WINUSB_INTERFACE_HANDLE handle, const SetupPacket& setup,
                          std::span<std::uint8_t> buffer, ULONG& transferred);

  private:
    struct File {
        Presence presence;
        std::wstring link;
        bool overlapped = false;
    };
    struct Interface {
        HANDLE file = nullptr;
        Presence presence;
        std::size_t position = 0;  // among the configuration's interfaces
    };

    [[nodiscard]] std::optional<Interface> Find(WINUSB_INTERFACE_HANDLE handle);
    [[nodiscard]] WINUSB_INTERFACE_HANDLE Add(const Interface& opened);

    Bus& bus_;
    const Recorder record_;
    std::mutex mutex_;  // guards everything below; never held while the bus is called
    std::map<HANDLE, File> files_;
    std::map<std::uintptr_t, Interface> interfaces_;
    std::uintptr_t lastHandle_ = 0;
};

}  // namespace lab::rig
