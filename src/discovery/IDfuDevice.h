#pragma once

#include <windows.h>

#include <string>

// A camera that is present in DFU mode. Held by shared ownership.
class IDfuDevice {
  public:
    IDfuDevice() = default;
    IDfuDevice(const IDfuDevice&) = delete;
    IDfuDevice& operator=(const IDfuDevice&) = delete;
    virtual ~IDfuDevice() = default;

    // Connects to the device and downloads the firmware image behind the path, on the caller's thread. 2 when
    // the device does not appear within 10 s, E_FAIL when it cannot be opened, otherwise the result of the
    // download.
    virtual HRESULT Update(const wchar_t* path) = 0;

    // The device's symbolic link, folded to lower case.
    [[nodiscard]] virtual std::wstring GetSymbolicLink() const = 0;

    // The name to show for the device.
    [[nodiscard]] virtual std::wstring GetName() const = 0;

    // Nobody calls it; it keeps its place in the interface and answers 0.
    [[nodiscard]] virtual DWORD Reserved() const = 0;

    // Waits until the device is present. 0 when it is, 2 when it did not appear within the time-out.
    [[nodiscard]] virtual DWORD WaitForConnection(DWORD timeoutMs) = 0;
};
