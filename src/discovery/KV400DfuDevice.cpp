#include "discovery/KV400DfuDevice.h"

#include "dfu/DfuCommand.h"
#include "dfu/WinUsbDfuConnection.h"
#include "discovery/DeviceInterfaceWatcher.h"
#include "discovery/WatchedProducts.h"
#include "win32/NarrowText.h"

#include <utility>

namespace {

constexpr DWORD kConnectionTimeoutMs = 10000;
constexpr std::size_t kNoProbe = 0;

}  // namespace

KV400DfuDevice::KV400DfuDevice(std::wstring foldedLink, std::ostream* logStream)
    : DfuLogger(logStream), symbolicLink_(std::move(foldedLink)) {}

HRESULT KV400DfuDevice::Update(const wchar_t* path) {
    const DWORD waitResult = WaitForConnection(kConnectionTimeoutMs);
    if (waitResult != 0) {
        // No blank before the link in this line and the next one: deliberate.
        LogLine("DFU device", win32::NarrowText(symbolicLink_), " is not connected");
        return static_cast<HRESULT>(waitResult);
    }
    WinUsbDfuConnection connection(symbolicLink_);
    if (!connection.IsOpened()) {
        LogLine("Failed to connect to DFU interface with symbolic link", win32::NarrowText(symbolicLink_));
        return E_FAIL;
    }
    auto endpoint = connection.AcquireEndpoint();
    if (!endpoint) {
        LogText("Failed to acquire endpoint\n");
        return E_FAIL;
    }
    HRESULT result = E_FAIL;
    {
        dfu::DfuCommand command(std::move(endpoint), kNoProbe, LogStream(), {});
        result = command.UpdateFromFile(path);
    }
    connection.Close();
    return result;
}

std::wstring KV400DfuDevice::GetSymbolicLink() const {
    return symbolicLink_;
}

std::wstring KV400DfuDevice::GetName() const {
    return L"KV400 DFU " + symbolicLink_;
}

DWORD KV400DfuDevice::Reserved() const {
    return 0;
}

DWORD KV400DfuDevice::WaitForConnection(DWORD timeoutMs) {
    DeviceInterfaceWatcher watcher(kDfuDeviceWatcherName, kVendorText, kFirstDfuProductText);
    watcher.AddFilter(kVendorText, kSecondDfuProductText);
    return watcher.WaitForDevice(timeoutMs, symbolicLink_);
}
