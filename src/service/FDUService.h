#pragma once

#include "camera/ICameraDevice.h"
#include "camera/MediaFoundationPlatform.h"
#include "discovery/DeviceInterfaceWatcher.h"
#include "prompt/CNotifyClient.h"
#include "prompt/CSink.h"
#include "service/DFUServiceBase.h"
#include "service/KeepAlive.h"
#include "usb_core/IUsbControlEndpoint.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

// The name under which the program installs and runs.
inline constexpr const wchar_t* kServiceName = L"VeyraCameraDfuService";

// The camera firmware update service. Runs two passes, each started by a device event on the dispatcher's
// thread: the camera pass asks the user when a camera's firmware differs from the image, the DFU-mode pass
// downloads the image to a camera in DFU mode. Neither does anything unless the update mode is "Service
// Controlled".
//
// One static object of the process, made before wmain on the main thread.
class FDUService final : public DFUServiceBase {
  public:
    // Registers the trace provider, initialises COM with its process-wide security, and connects to the toast
    // controller. An apartment that it has entered then stays until the process ends. When COM or the
    // controller cannot be had, the service runs without prompts. Raises win32::Win32Error when it cannot
    // have its event, and _com_error when the controller has no event interface; either ends the process.
    FDUService();
    ~FDUService() override;

    // Notes the start in the event log and queues the keep-alive work item: passes run on device events only.
    // Raises win32::Win32Error when the item cannot be queued.
    void OnStart(DWORD argc, wchar_t** argv) override;
    // Waits for the work item's end, up to one second, and leaves COM. Raises win32::Win32Error when the wait
    // fails.
    void OnStop() override;

    // The DFU-mode pass. 1058 when the update mode forbids it; E_NOINTERFACE when no device in DFU mode came
    // within 100 ms or it has no endpoint; 0x80070006 when it cannot be opened; otherwise the result of the
    // download. Raises _com_error (0x8007000E) when there is no memory for a text to the user.
    HRESULT OnUsbDeviceArrival() override;
    // The camera pass. 1058 when the update mode forbids it; E_FAIL when the camera's version is unknown;
    // otherwise 0, whether or not anybody was asked. Raises as OnUsbDeviceArrival does.
    HRESULT OnCameraArrival(const DEV_BROADCAST_DEVICEINTERFACE_W& broadcast) override;

    // The version text of the image file: its four bytes at offset 398. E_FAIL when it cannot be read; the
    // positive Win32 code, with the text untouched, when the Windows directory cannot be told.
    static HRESULT ReadImageVersion(std::wstring& versionText);

    // Tells the user how many blocks were sent. Called between blocks, on the thread of the DFU-mode pass.
    void ReportProgress(std::int32_t value) const;

  private:
    // Read by the event sink on a thread of COM while a camera pass writes it; shared with the sink, whose
    // last call may come while the service is being destroyed.
    using PendingCamera = std::atomic<std::shared_ptr<ICameraDevice>>;

    void SetUpPrompt();
    [[nodiscard]] HRESULT CCheckToastCntrl();
    [[nodiscard]] std::shared_ptr<ICameraDevice> FindArrivedCamera(
        const DEV_BROADCAST_DEVICEINTERFACE_W& broadcast);
    [[nodiscard]] HRESULT DownloadImageTo(const std::shared_ptr<usb_core::IUsbControlEndpoint>& endpoint);
    void NotifyStart(std::uint64_t imageSize, std::uint16_t transferSize) const;
    void NotifyComplete() const;

    // The members' order is the reverse of that in which they are released.
    std::shared_ptr<KeepAlive> keepAlive_;
    std::shared_ptr<CNotifyClient> promptClient_;
    std::shared_ptr<CSink> eventSink_;
    std::shared_ptr<IToastCntrPtr> promptServer_;
    DeviceInterfaceWatcher watcher_;
    MediaFoundationPlatform mediaFoundation_;
    std::shared_ptr<PendingCamera> pendingCamera_;
};
