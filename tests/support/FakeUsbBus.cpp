#include "tests/support/FakeUsbBus.h"

#include "tests/support/Text.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace test_support {
namespace {

constexpr std::wstring_view kLinkStart = L"\\\\?\\usb#";
constexpr UCHAR kDeviceDescriptor = 1;
constexpr UCHAR kConfigurationDescriptor = 2;

}  // namespace

FakeUsbBus::FakeUsbBus()
    : createFile_("CreateFileW", &RedirectedCreateFile),
      closeHandle_("CloseHandle", &RedirectedCloseHandle),
      initialize_("WinUsb_Initialize", &Initialize),
      free_("WinUsb_Free", &Free),
      getDescriptor_("WinUsb_GetDescriptor", &GetDescriptor),
      queryInterfaceSettings_("WinUsb_QueryInterfaceSettings", &QueryInterfaceSettings),
      getAssociatedInterface_("WinUsb_GetAssociatedInterface", &GetAssociatedInterface),
      setCurrentAlternateSetting_("WinUsb_SetCurrentAlternateSetting", &SetCurrentAlternateSetting),
      controlTransfer_("WinUsb_ControlTransfer", &ControlTransfer) {}

FakeUsbBus::~FakeUsbBus() {
    for (const auto& [file, device] : files_) {
        closeHandle_.Original<decltype(::CloseHandle)>()(file);
    }
}

FakeUsbDevice& FakeUsbBus::Add(const std::wstring& link, std::uint16_t transferSize) {
    devices_.push_back(std::make_shared<FakeUsbDevice>(link, transferSize));
    return *devices_.back();
}

void FakeUsbBus::Remove(const std::wstring& link) {
    std::erase_if(devices_, [&link](const auto& device) { return device->link == link; });
}

void FakeUsbBus::Fail(const std::string& function, DWORD error, std::size_t skip) {
    failures_.push_back(Failure{function, error, skip});
}

bool FakeUsbBus::TakeFailure(const std::string& function) {
    const auto failure = std::find_if(failures_.begin(), failures_.end(),
                                      [&function](const Failure& each) { return each.function == function; });
    if (failure == failures_.end()) {
        return false;
    }
    if (failure->skip > 0) {
        --failure->skip;
        return false;
    }
    SetLastError(failure->error);
    failures_.erase(failure);
    return true;
}

bool FakeUsbBus::IsPresent(const FakeUsbDevice& device) const {
    return std::any_of(devices_.begin(), devices_.end(),
                       [&](const auto& each) { return each.get() == &device; });
}

const FakeUsbBus::OpenInterface* FakeUsbBus::Usable(WINUSB_INTERFACE_HANDLE handle) const {
    const auto found = interfaces_.find(handle);
    if (found == interfaces_.end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (!IsPresent(*found->second.device)) {
        SetLastError(ERROR_DEVICE_NOT_CONNECTED);
        return nullptr;
    }
    return &found->second;
}

std::string FakeUsbBus::Name(WINUSB_INTERFACE_HANDLE handle) const {
    if (handle == nullptr) {
        return "no handle";
    }
    const auto found = interfaces_.find(handle);
    if (found == interfaces_.end()) {
        return "a freed handle";
    }
    return found->second.number == 0 ? "main" : Text("interface ", found->second.number);
}

WINUSB_INTERFACE_HANDLE FakeUsbBus::Open(std::shared_ptr<FakeUsbDevice> device, std::size_t number) {
    handleValues_.push_back(std::make_unique<char>());
    const WINUSB_INTERFACE_HANDLE handle = handleValues_.back().get();
    interfaces_[handle] = OpenInterface{std::move(device), number};
    return handle;
}

HANDLE WINAPI FakeUsbBus::RedirectedCreateFile(LPCWSTR path, DWORD access, DWORD sharing,
                                               LPSECURITY_ATTRIBUTES security, DWORD disposition,
                                               DWORD attributes, HANDLE templateFile) {
    FakeUsbBus& bus = *current_;
    if (path == nullptr || !std::wstring_view(path).starts_with(kLinkStart)) {
        return bus.createFile_.Original<decltype(::CreateFileW)>()(path, access, sharing, security,
                                                                   disposition, attributes, templateFile);
    }
    bus.calls_.push_back(Text("CreateFileW(", Narrow(path), ", access ", Hex(access, 8), ", sharing ",
                              sharing, security == nullptr ? ", no security" : ", security", ", disposition ",
                              disposition, ", attributes ", Hex(attributes, 8),
                              templateFile == nullptr ? ", no template)" : ", template)"));
    if (bus.TakeFailure("CreateFileW")) {
        return INVALID_HANDLE_VALUE;
    }
    const auto device = std::find_if(bus.devices_.begin(), bus.devices_.end(),
                                     [path](const auto& each) { return each->link == path; });
    if (device == bus.devices_.end()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    const HANDLE file = CreateEventW(nullptr, TRUE, FALSE, nullptr);  // any handle of Windows will do
    bus.files_[file] = *device;
    return file;
}

BOOL WINAPI FakeUsbBus::RedirectedCloseHandle(HANDLE handle) {
    FakeUsbBus& bus = *current_;
    if (bus.files_.erase(handle) != 0) {
        bus.calls_.emplace_back("CloseHandle(file)");
    } else if (handle == INVALID_HANDLE_VALUE) {
        bus.calls_.emplace_back("CloseHandle(the invalid handle)");
    }
    return bus.closeHandle_.Original<decltype(::CloseHandle)>()(handle);
}

BOOL WINAPI FakeUsbBus::Initialize(HANDLE file, WINUSB_INTERFACE_HANDLE* handle) {
    FakeUsbBus& bus = *current_;
    const auto found = bus.files_.find(file);
    bus.calls_.emplace_back(found != bus.files_.end() ? "WinUsb_Initialize(file)"
                                                      : "WinUsb_Initialize(no file)");
    if (bus.TakeFailure("WinUsb_Initialize")) {
        return FALSE;
    }
    if (found == bus.files_.end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    *handle = bus.Open(found->second, 0);
    return TRUE;
}

BOOL WINAPI FakeUsbBus::Free(WINUSB_INTERFACE_HANDLE handle) {
    FakeUsbBus& bus = *current_;
    bus.calls_.push_back(Text("WinUsb_Free(", bus.Name(handle), ")"));
    // As the real one may: whoever asks for a last error afterwards asks too late.
    SetLastError(ERROR_SUCCESS);
    return bus.interfaces_.erase(handle) != 0 ? TRUE : FALSE;
}

BOOL WINAPI FakeUsbBus::GetDescriptor(WINUSB_INTERFACE_HANDLE handle, UCHAR type, UCHAR index,
                                      USHORT language, UCHAR* buffer, ULONG size, ULONG* transferred) {
    FakeUsbBus& bus = *current_;
    bus.calls_.push_back(Text("WinUsb_GetDescriptor(", bus.Name(handle), ", type ", static_cast<int>(type),
                              ", index ", static_cast<int>(index), ", language ", language, ", ", size,
                              " bytes)"));
    if (bus.TakeFailure("WinUsb_GetDescriptor")) {
        return FALSE;
    }
    const OpenInterface* const target = bus.Usable(handle);
    if (target == nullptr) {
        return FALSE;
    }
    const FakeUsbDevice& device = *target->device;
    if (type != kDeviceDescriptor && type != kConfigurationDescriptor) {
        SetLastError(ERROR_GEN_FAILURE);
        return FALSE;
    }
    const auto& descriptor =
        type == kDeviceDescriptor ? device.deviceDescriptor : device.configurationDescriptor;
    const ULONG length = std::min(size, static_cast<ULONG>(descriptor.size()));
    std::copy_n(descriptor.begin(), length, buffer);
    if (length < size) {
        SetLastError(device.shortReadError);
    }
    const bool isWholeConfiguration = type == kConfigurationDescriptor && size > 9;
    *transferred = isWholeConfiguration ? device.reportedConfigurationLength.value_or(length) : length;
    return TRUE;
}

BOOL WINAPI FakeUsbBus::QueryInterfaceSettings(WINUSB_INTERFACE_HANDLE handle, UCHAR alternateNumber,
                                               USB_INTERFACE_DESCRIPTOR* descriptor) {
    FakeUsbBus& bus = *current_;
    bus.calls_.push_back(Text("WinUsb_QueryInterfaceSettings(", bus.Name(handle), ", alternate ",
                              static_cast<int>(alternateNumber), ")"));
    if (bus.TakeFailure("WinUsb_QueryInterfaceSettings")) {
        return FALSE;
    }
    const OpenInterface* const target = bus.Usable(handle);
    if (target == nullptr) {
        return FALSE;
    }
    const FakeUsbDevice::Interface& queried = target->device->interfaces.at(target->number);
    *descriptor = USB_INTERFACE_DESCRIPTOR{
        9, 4, queried.number, queried.alternateSetting, 0, queried.interfaceClass, 1, 2, 0};
    return TRUE;
}

BOOL WINAPI FakeUsbBus::GetAssociatedInterface(WINUSB_INTERFACE_HANDLE handle, UCHAR index,
                                               WINUSB_INTERFACE_HANDLE* associated) {
    FakeUsbBus& bus = *current_;
    bus.calls_.push_back(
        Text("WinUsb_GetAssociatedInterface(", bus.Name(handle), ", index ", static_cast<int>(index), ")"));
    if (bus.TakeFailure("WinUsb_GetAssociatedInterface")) {
        return FALSE;
    }
    const OpenInterface* const target = bus.Usable(handle);
    if (target == nullptr) {
        return FALSE;
    }
    const std::size_t number = std::size_t{index} + 1;
    if (number >= target->device->interfaces.size()) {
        SetLastError(ERROR_NO_MORE_ITEMS);
        return FALSE;
    }
    *associated = bus.Open(target->device, number);
    return TRUE;
}

BOOL WINAPI FakeUsbBus::SetCurrentAlternateSetting(WINUSB_INTERFACE_HANDLE handle, UCHAR setting) {
    FakeUsbBus& bus = *current_;
    bus.calls_.push_back(Text("WinUsb_SetCurrentAlternateSetting(", bus.Name(handle), ", setting ",
                              static_cast<int>(setting), ")"));
    return !bus.TakeFailure("WinUsb_SetCurrentAlternateSetting") && bus.Usable(handle) != nullptr ? TRUE
                                                                                                  : FALSE;
}

BOOL WINAPI FakeUsbBus::ControlTransfer(WINUSB_INTERFACE_HANDLE handle, WINUSB_SETUP_PACKET setup,
                                        UCHAR* buffer, ULONG size, ULONG* transferred,
                                        OVERLAPPED* overlapped) {
    FakeUsbBus& bus = *current_;
    bus.calls_.push_back(Text("WinUsb_ControlTransfer(", bus.Name(handle), ", ", Hex(setup.RequestType, 2),
                              " ", Hex(setup.Request, 2), " ", Hex(setup.Value, 4), " ", Hex(setup.Index, 4),
                              " ", Hex(setup.Length, 4), buffer == nullptr ? ", no buffer, " : ", ", size,
                              " bytes", overlapped == nullptr ? ", no overlapped)" : ", overlapped)"));
    if (bus.TakeFailure("WinUsb_ControlTransfer")) {
        return FALSE;
    }
    const OpenInterface* const target = bus.Usable(handle);
    if (target == nullptr) {
        return FALSE;
    }
    FakeUsbDevice& device = *target->device;
    const std::span<std::uint8_t> data(buffer, buffer == nullptr ? 0 : size);
    const DWORD error = device.control ? device.control(setup, data) : device.AnswerInDfuMode(setup, data);
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return FALSE;
    }
    *transferred = device.reportedTransferLength.value_or(size);
    return TRUE;
}

}  // namespace test_support
