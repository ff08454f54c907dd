#pragma once

#include "diagnostics/DfuLogger.h"

#include <windows.h>
#include <mfidl.h>
#include <wrl/client.h>

#include <string>

// A camera that Media Foundation offers. Held by shared ownership. A plain camera refuses everything that has
// to do with updating with E_FAIL. Used by one thread at a time, but for EnterDfuMode, which answers the user
// on a COM thread.
class ICameraDevice : public DfuLogger {
  public:
    ICameraDevice() = default;
    ICameraDevice(const ICameraDevice&) = delete;
    ICameraDevice& operator=(const ICameraDevice&) = delete;
    virtual ~ICameraDevice() = default;

    // Whether the service may update the camera through this object.
    [[nodiscard]] virtual bool IsUpdatable() const = 0;

    // Carries out one whole update with the image behind the path, which may stand in double quotes: sets the
    // update mode to "Disabled" and leaves it there, sends the camera into DFU mode and has every DFU-mode
    // device download the image. The result of the last download; E_FAIL when the file does not open, the
    // mode cannot be stored or no device comes in 10 s.
    virtual HRESULT UpdateFirmware(const wchar_t* imagePath) = 0;

    // Sends the camera into DFU mode.
    virtual HRESULT EnterDfuMode() = 0;

    // Store the update mode. S_OK or E_FAIL.
    virtual HRESULT SetDfuModeDisabled() = 0;
    virtual HRESULT SetDfuModeAuto() = 0;
    virtual HRESULT SetDfuModeServiceControlled() = 0;

    // The name to show, and the device-interface link as the system gave it; "Unknown" before Open.
    [[nodiscard]] virtual std::wstring GetFriendlyName() const = 0;
    [[nodiscard]] virtual std::wstring GetSymbolicLink() const = 0;

    // Four decimal numbers joined by "."; "0.0.0.0" when the camera did not tell; "No FW version" of a plain
    // camera.
    [[nodiscard]] virtual std::wstring GetFirmwareVersion() const = 0;

    // The name, for an updatable camera its version, and on request the symbolic link, for a person to read.
    [[nodiscard]] virtual std::wstring GetDescription(bool withSymbolicLink) const = 0;

    // Nobody calls these two; they keep their places and their answers.
    [[nodiscard]] virtual bool QueryA() const = 0;
    [[nodiscard]] virtual bool QueryB() const = 0;

    // Opens the camera behind an activation object, whose reference is released on return. S_OK or the
    // failing call's HRESULT.
    [[nodiscard]] virtual HRESULT Open(Microsoft::WRL::ComPtr<IMFActivate> activation) = 0;
};
