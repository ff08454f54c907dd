#include "dfu/WinUsbDfuConnection.h"

#include "dfu/WinUsbControlEndpoint.h"
#include "win32/HResultFromWin32.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace {

constexpr UCHAR kApplicationSpecificClass = 0xFE;  // the class of a DFU interface
constexpr ULONG kConfigurationBufferSize = 1024;

static_assert(sizeof(USB_DEVICE_DESCRIPTOR) == 18);
static_assert(sizeof(USB_CONFIGURATION_DESCRIPTOR) == 9);

}  // namespace

WinUsbDfuConnection::WinUsbDfuConnection(std::wstring symbolicLink) : symbolicLink_(std::move(symbolicLink)) {
    if (!OpenDevice()) {
        return;
    }
    if (FAILED(SelectDfuInterface())) {
        winUsbHandle_.Reset();
        deviceFile_.Reset();
        return;
    }
    opened_ = true;
}

WinUsbDfuConnection::~WinUsbDfuConnection() {
    Close();
}

std::shared_ptr<usb_core::IUsbControlEndpoint> WinUsbDfuConnection::AcquireEndpoint() {
    if (!opened_) {
        return nullptr;
    }
    // A copy, since the packed descriptor's field may be misaligned and must not be referred to.
    const std::uint16_t maxTransferSize = functionalDescriptor_.wTransferSize;
    auto endpoint = std::make_shared<dfu::WinUsbControlEndpoint>(dfuInterfaceNumber_, maxTransferSize, this);
    endpoints_.push_back(endpoint);
    return endpoint;
}

void WinUsbDfuConnection::Close() {
    opened_ = false;
    winUsbHandle_.Reset();
    deviceFile_.Reset();
    for (const auto& endpoint : endpoints_) {
        endpoint->Disconnect();
    }
    endpoints_.clear();
}

bool WinUsbDfuConnection::OpenDevice() {
    const HANDLE file =
        CreateFileW(symbolicLink_.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OVERLAPPED, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    deviceFile_.Reset(file);

    WINUSB_INTERFACE_HANDLE handle = nullptr;
    if (!WinUsb_Initialize(file, &handle)) {
        deviceFile_.Reset();
        return false;
    }
    winUsbHandle_.Reset(handle);
    return true;
}

HRESULT WinUsbDfuConnection::SelectDfuInterface() {
    HRESULT result = ReadDescriptor(USB_DEVICE_DESCRIPTOR_TYPE, &deviceDescriptor_, sizeof deviceDescriptor_);
    if (FAILED(result)) {
        return result;
    }
    result =
        ReadDescriptor(USB_CONFIGURATION_DESCRIPTOR_TYPE, &configurationHeader_, sizeof configurationHeader_);
    if (FAILED(result)) {
        return result;
    }
    if (configurationHeader_.bNumInterfaces == 0) {
        return E_NOINTERFACE;
    }
    DfuInterface selected;
    result = FindDfuInterface(selected);
    if (FAILED(result)) {
        return result;
    }
    result = ReadFunctionalDescriptor();
    if (FAILED(result)) {
        return result;
    }
    if (!WinUsb_SetCurrentAlternateSetting(selected.handle, dfuAlternateSetting_)) {
        return win32::HResultFromLastError();
    }
    return S_OK;
}

HRESULT WinUsbDfuConnection::ReadDescriptor(UCHAR type, void* descriptor, ULONG size) const {
    ULONG read = 0;
    if (!WinUsb_GetDescriptor(winUsbHandle_.Get(), type, 0, 0, static_cast<PUCHAR>(descriptor), size,
                              &read) ||
        read != size) {
        return win32::HResultFromLastError();
    }
    return S_OK;
}

HRESULT WinUsbDfuConnection::FindDfuInterface(DfuInterface& found) {
    found.handle = winUsbHandle_.Get();
    UCHAR index = 0;
    while (true) {
        USB_INTERFACE_DESCRIPTOR descriptor{};
        if (!WinUsb_QueryInterfaceSettings(found.handle, 0, &descriptor)) {
            // A last error of 0 deliberately lets the search go on.
            const HRESULT result = win32::HResultFromLastError();
            if (FAILED(result)) {
                return result;
            }
        }
        if (descriptor.bInterfaceClass == kApplicationSpecificClass) {
            dfuInterfaceNumber_ = descriptor.bInterfaceNumber;
            dfuAlternateSetting_ = descriptor.bAlternateSetting;
            return S_OK;
        }

        found.associated.Reset();
        WINUSB_INTERFACE_HANDLE next = nullptr;
        if (!WinUsb_GetAssociatedInterface(winUsbHandle_.Get(), index, &next)) {
            const HRESULT result = win32::HResultFromLastError();
            if (FAILED(result)) {
                return result;
            }
        }
        found.associated.Reset(next);
        found.handle = next;
        ++index;
        if (index >= configurationHeader_.bNumInterfaces) {
            return E_NOINTERFACE;
        }
    }
}

HRESULT WinUsbDfuConnection::ReadFunctionalDescriptor() {
    std::array<UCHAR, kConfigurationBufferSize> configuration{};
    ULONG read = 0;
    if (!WinUsb_GetDescriptor(winUsbHandle_.Get(), USB_CONFIGURATION_DESCRIPTOR_TYPE, 0, 0,
                              configuration.data(), kConfigurationBufferSize, &read)) {
        return E_NOINTERFACE;
    }
    const auto descriptor = dfu::FindDfuFunctionalDescriptor(
        std::span(configuration).first(std::min(read, kConfigurationBufferSize)));
    if (!descriptor) {
        return E_NOINTERFACE;
    }
    functionalDescriptor_ = *descriptor;
    return S_OK;
}
