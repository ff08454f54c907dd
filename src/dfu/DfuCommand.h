#pragma once

#include "dfu/DfuProtocol.h"
#include "diagnostics/DfuLogger.h"
#include "usb_core/IUsbControlEndpoint.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace dfu {

// Downloads one firmware image into a device that is in DFU mode, with the requests of the USB DFU 1.1
// standard. Built for one update, run once, destroyed. The image is sent whole and unchanged; nothing in it
// is looked at.
//
// Nothing is retried and no recovery request is sent: the first failing step ends the update and its status
// is returned. Each failing step, and each step around it, leaves one line on the log stream, innermost
// first. Runs wholly on the caller's thread, in its sleeps and synchronous transfers.
class DfuCommand : public DfuLogger {
  public:
    // Called between blocks, on the updating thread, with the number of blocks sent so far.
    using ProgressCallback = std::function<void(std::int32_t)>;

    // `fwStatusSize` is the size in bytes of the probe read that is made before the download, 0 for none;
    // `logStream` and `progress` may be null and empty.
    DfuCommand(std::shared_ptr<usb_core::IUsbControlEndpoint> usbEndpoint, std::size_t fwStatusSize,
               std::ostream* logStream, ProgressCallback progress);
    virtual ~DfuCommand();

    DfuCommand(const DfuCommand&) = delete;
    DfuCommand& operator=(const DfuCommand&) = delete;

    // Loads the file and downloads it. A path in double quotes opens the unquoted file; a path of a single
    // double quote raises std::out_of_range. E_FAIL when the file cannot be opened or read, otherwise the
    // result of Update.
    HRESULT UpdateFromFile(const wchar_t* path);

    // Downloads an image that is in memory. E_ACCESSDENIED (not logged) when the endpoint is not connected,
    // the status of a failing transfer, E_FAIL for an unexpected state or a time-out.
    HRESULT Update(const void* firmwareImage, std::size_t imageLength);

    // Polls GETSTATUS every 200 ms until the device is in the state. E_FAIL as soon as the device reports an
    // error state or status, or when `timeoutMs` is over; a poll that fails as a transfer is no error and is
    // repeated. Polls at least once; the time is judged after a sleep, so the wait may exceed the time-out by
    // one poll.
    HRESULT WaitForState(DFU_STATE wanted, std::uint32_t timeoutMs);

    // Sends the image in blocks of the endpoint's maximum transfer size and ends it with a zero-length block.
    // Block numbers have 16 bits and wrap. The status of a block's failing transfer; E_FAIL when a block is
    // not taken at the last look at it, which is 4.8 s after the first when the device answers at once, or
    // with an error, and before any block when the device's transfer size is 0.
    // `length` in bytes; what becomes of the zero-length block is ignored.
    HRESULT DownloadImage(const BYTE* pBuffer, std::size_t length);

  private:
    HRESULT GetDfuState(std::int32_t& state);
    HRESULT Detach();
    HRESULT AssertState(DFU_STATE wanted);
    HRESULT TestConnection();
    HRESULT SendBlock(std::uint16_t blockNumber, const BYTE* block, std::uint16_t size);
    HRESULT ManifestAndReset();

    ProgressCallback progress_;
    std::shared_ptr<usb_core::IUsbControlEndpoint> usbEndpoint_;
    std::size_t fwStatusSize_;
};

}  // namespace dfu
