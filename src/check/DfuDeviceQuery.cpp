#include "check/DfuDeviceQuery.h"

#include "check/ServiceQuery.h"
#include "check/Utf8.h"
#include "dfu/DfuFunctionalDescriptor.h"
#include "dfu/WinUsbHandle.h"
#include "discovery/DevicePathMatching.h"
#include "discovery/WatchedProducts.h"
#include "win32/UniqueHandle.h"

#include <cfgmgr32.h>

#include <algorithm>
#include <array>
#include <cwchar>
#include <span>

namespace check {
namespace {

constexpr GUID kUsbDeviceInterface{
    0xA5DCBF10, 0x6530, 0x11D2, {0x90, 0x1F, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xED}};
constexpr UCHAR kApplicationSpecificClass = 0xFE;  // the class of a DFU interface
constexpr ULONG kConfigurationBufferSize = 1024;
constexpr int kListAttempts = 5;

// The links of the USB devices present, each with its terminator, ended by a further one. Devices may come
// between the two calls.
CONFIGRET ListUsbDevices(std::vector<wchar_t>& links) {
    GUID interfaceClass = kUsbDeviceInterface;
    CONFIGRET result = CR_SUCCESS;
    for (int attempt = 0; attempt < kListAttempts; ++attempt) {
        ULONG size = 0;
        result = CM_Get_Device_Interface_List_SizeW(&size, &interfaceClass, nullptr,
                                                    CM_GET_DEVICE_INTERFACE_LIST_PRESENT);
        if (result != CR_SUCCESS || size == 0) {
            return result;
        }
        links.assign(size, L'\0');
        result = CM_Get_Device_Interface_ListW(&interfaceClass, nullptr, links.data(), size,
                                               CM_GET_DEVICE_INTERFACE_LIST_PRESENT);
        if (result != CR_BUFFER_SMALL) {
            break;
        }
    }
    return result;
}

// The device while it is open; everything is closed with it.
class OpenedDevice {
  public:
    // Sets `device` to what became of it.
    explicit OpenedDevice(DfuDeviceState& device) : device_(device) {}

    void Look(const std::wstring& link) {
        device_.wasTried = true;
        device_.opens = Open(link) && HasDfuInterface() && ReadFunctionalDescriptor();
    }

  private:
    bool Fail(const char* step, DWORD error) {
        device_.failedStep = step;
        device_.error = error;
        return false;
    }

    bool Open(const std::wstring& link) {
        const HANDLE opened =
            CreateFileW(link.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OVERLAPPED, nullptr);
        if (opened == INVALID_HANDLE_VALUE) {
            return Fail("opening it", GetLastError());
        }
        file_.Reset(opened);
        if (!WinUsb_Initialize(file_.Get(), winUsb_.Receive())) {
            return Fail("taking it with WinUSB", GetLastError());
        }
        USB_DEVICE_DESCRIPTOR descriptor{};
        ULONG read = 0;
        if (!WinUsb_GetDescriptor(winUsb_.Get(), USB_DEVICE_DESCRIPTOR_TYPE, 0, 0,
                                  reinterpret_cast<PUCHAR>(&descriptor), sizeof descriptor, &read) ||
            read != sizeof descriptor) {
            return Fail("reading its device descriptor", GetLastError());
        }
        return true;
    }

    bool HasDfuInterface() {
        WINUSB_INTERFACE_HANDLE handle = winUsb_.Get();
        dfu::UniqueWinUsbHandle associated;
        for (UCHAR index = 0;; ++index) {
            USB_INTERFACE_DESCRIPTOR descriptor{};
            if (WinUsb_QueryInterfaceSettings(handle, 0, &descriptor) &&
                descriptor.bInterfaceClass == kApplicationSpecificClass) {
                return true;
            }
            if (!WinUsb_GetAssociatedInterface(winUsb_.Get(), index, associated.Receive())) {
                return Fail("finding its interface of class 0xFE", GetLastError());
            }
            handle = associated.Get();
        }
    }

    bool ReadFunctionalDescriptor() {
        std::array<UCHAR, kConfigurationBufferSize> configuration{};
        ULONG read = 0;
        if (!WinUsb_GetDescriptor(winUsb_.Get(), USB_CONFIGURATION_DESCRIPTOR_TYPE, 0, 0,
                                  configuration.data(), kConfigurationBufferSize, &read)) {
            return Fail("reading its configuration descriptor", GetLastError());
        }
        const auto descriptor = dfu::FindDfuFunctionalDescriptor(
            std::span(configuration).first(std::min(read, kConfigurationBufferSize)));
        if (!descriptor) {
            return Fail("finding its DFU functional descriptor", ERROR_NOT_FOUND);
        }
        device_.transferSize = descriptor->wTransferSize;
        return true;
    }

    DfuDeviceState& device_;
    // WinUSB's handle goes before the file under it.
    win32::UniqueKernelHandle file_;
    dfu::UniqueWinUsbHandle winUsb_;
};

DfuDeviceState Inspect(const std::wstring& link) {
    DfuDeviceState device;
    device.link = Utf8(link);
    if (ServiceLeavesDevicesAlone()) {
        OpenedDevice(device).Look(link);
    }
    return device;
}

}  // namespace

DfuDevicesState QueryDfuDevices() {
    static const std::vector<DeviceFilter> kFilters{{kVendorText, kFirstDfuProductText, L""},
                                                    {kVendorText, kSecondDfuProductText, L""}};
    DfuDevicesState state;
    std::vector<wchar_t> links;
    if (const CONFIGRET result = ListUsbDevices(links); result != CR_SUCCESS) {
        state.error = result;
        return state;
    }
    FoldToLower(links);
    std::wstring_view rest(links.data(), links.size());
    while (!rest.empty() && rest.front() != L'\0') {
        const std::wstring link(rest.substr(0, rest.find(L'\0')));
        if (MatchesFilters(link, kFilters)) {
            state.devices.push_back(Inspect(link));
        }
        rest.remove_prefix(std::min(link.size() + 1, rest.size()));
    }
    return state;
}

}  // namespace check
