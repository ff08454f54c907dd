#include "lab/rig/usb/UsbDevices.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "lab/vocabulary/BusEvents.h"
#include "lab/wire/Utf8.h"

namespace lab::rig {
namespace {

using InterfaceDescriptor = std::array<std::uint8_t, 9>;

constexpr std::size_t kInterfaceNumber = 2;  // offset of bInterfaceNumber
constexpr std::size_t kAlternateSetting = 3;

// The settings of each interface, in the order in which the interfaces first come up.
std::vector<std::vector<InterfaceDescriptor>> Settings(const InterfaceDescriptors& descriptors) {
    std::vector<std::vector<InterfaceDescriptor>> interfaces;
    for (const InterfaceDescriptor& descriptor : descriptors) {
        const auto same = std::ranges::find_if(interfaces, [&](const auto& settings) {
            return settings.front()[kInterfaceNumber] == descriptor[kInterfaceNumber];
        });
        if (same == interfaces.end()) {
            interfaces.push_back({descriptor});
        } else {
            same->push_back(descriptor);
        }
    }
    return interfaces;
}

}  // namespace

DWORD UsbDevices::Open(const std::wstring& link, DWORD flags, HANDLE& file) {
    auto presence = bus_.FindDfuDevice(link);
    if (presence && !bus_.DriverHasStarted(*presence)) {
        presence.reset();
    }
    DWORD error = ERROR_SUCCESS;
    {
        const std::lock_guard lock(mutex_);
        const bool taken = presence && std::ranges::any_of(files_, [&](const auto& entry) {
                               return entry.second.presence == *presence;
                           });
        if (!presence) {
            error = ERROR_FILE_NOT_FOUND;
        } else if (taken) {
            error = ERROR_ACCESS_DENIED;
        } else {
            file = CreateEventW(nullptr, TRUE, FALSE, nullptr);
            files_[file] = {*presence, link, (flags & FILE_FLAG_OVERLAPPED) != 0};
        }
    }
    record_({{"event", "usb-open"}, {"link", Utf8(link)}, {"ok", error == ERROR_SUCCESS}});
    return error;
}

void UsbDevices::Closing(HANDLE file) {
    std::wstring link;
    {
        const std::lock_guard lock(mutex_);
        const auto entry = files_.find(file);
        if (entry == files_.end()) {
            return;
        }
        link = entry->second.link;
        files_.erase(entry);
    }
    record_({{"event", "usb-close"}, {"link", Utf8(link)}, {"ok", true}});
}

DWORD UsbDevices::Initialize(HANDLE file, WINUSB_INTERFACE_HANDLE& handle) {
    const std::lock_guard lock(mutex_);
    const auto entry = files_.find(file);
    if (entry == files_.end() || !entry->second.overlapped) {
        return ERROR_INVALID_HANDLE;
    }
    handle = Add({file, entry->second.presence, 0});
    return ERROR_SUCCESS;
}

DWORD UsbDevices::Free(WINUSB_INTERFACE_HANDLE handle) {
    const std::lock_guard lock(mutex_);
    const auto erased = interfaces_.erase(reinterpret_cast<std::uintptr_t>(handle));
    return erased == 1 ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

DWORD UsbDevices::GetDescriptor(WINUSB_INTERFACE_HANDLE handle, std::uint8_t type, std::uint8_t index,
                                std::span<std::uint8_t> buffer, ULONG& transferred) {
    const auto opened = Find(handle);
    if (!opened) {
        return ERROR_INVALID_HANDLE;
    }
    const DriverResult result = bus_.ReadDescriptor(opened->presence, type, index, buffer);
    transferred = static_cast<ULONG>(result.transferred);
    return result.error;
}

DWORD UsbDevices::QueryInterfaceSettings(WINUSB_INTERFACE_HANDLE handle, std::uint8_t alternate,
                                         USB_INTERFACE_DESCRIPTOR& descriptor) {
    const auto opened = Find(handle);
    if (!opened) {
        return ERROR_INVALID_HANDLE;
    }
    const auto descriptors = bus_.Interfaces(opened->presence);
    if (!descriptors) {
        return bus_.ErrorOfGone(opened->presence);
    }
    const auto interfaces = Settings(*descriptors);
    if (opened->position >= interfaces.size() || alternate >= interfaces[opened->position].size()) {
        return ERROR_NO_MORE_ITEMS;
    }
    static_assert(sizeof descriptor == sizeof(InterfaceDescriptor));
    std::memcpy(&descriptor, interfaces[opened->position][alternate].data(), sizeof descriptor);
    return ERROR_SUCCESS;
}

DWORD UsbDevices::GetAssociatedInterface(WINUSB_INTERFACE_HANDLE handle, std::uint8_t index,
                                         WINUSB_INTERFACE_HANDLE& associated) {
    const auto opened = Find(handle);
    if (!opened) {
        return ERROR_INVALID_HANDLE;
    }
    const auto descriptors = bus_.Interfaces(opened->presence);
    if (!descriptors) {
        return bus_.ErrorOfGone(opened->presence);
    }
    const std::size_t position = opened->position + 1 + index;
    if (position >= Settings(*descriptors).size()) {
        return ERROR_NO_MORE_ITEMS;
    }
    const std::lock_guard lock(mutex_);
    const bool isOut = std::ranges::any_of(interfaces_, [&](const auto& entry) {
        return entry.second.file == opened->file && entry.second.position == position;
    });
    if (isOut) {
        return ERROR_ALREADY_EXISTS;
    }
    associated = Add({opened->file, opened->presence, position});
    return ERROR_SUCCESS;
}

DWORD UsbDevices::SetCurrentAlternateSetting(WINUSB_INTERFACE_HANDLE handle, std::uint8_t setting) {
    const auto opened = Find(handle);
    if (!opened) {
        return ERROR_INVALID_HANDLE;
    }
    const auto descriptors = bus_.Interfaces(opened->presence);
    DWORD error = ERROR_SUCCESS;
    std::uint8_t interfaceNumber = 0;
    if (!descriptors) {
        error = bus_.ErrorOfGone(opened->presence);
    } else {
        const auto interfaces = Settings(*descriptors);
        error = ERROR_NOT_FOUND;
        for (const InterfaceDescriptor& descriptor : opened->position < interfaces.size()
                                                         ? interfaces[opened->position]
                                                         : std::vector<InterfaceDescriptor>()) {
            interfaceNumber = descriptor[kInterfaceNumber];
            error = descriptor[kAlternateSetting] == setting ? ERROR_SUCCESS : error;
        }
    }
    if (error == ERROR_SUCCESS) {
        error = bus_.SetInterface(opened->presence, interfaceNumber, setting);
    }
    record_(AlternateSettingEvent(interfaceNumber, setting, error));
    return error;
}

DWORD UsbDevices::ControlTransfer(WINUSB_INTERFACE_HANDLE handle, const SetupPacket& setup,
                                  std::span<std::uint8_t> buffer, ULONG& transferred) {
    const auto opened = Find(handle);
    transferred = 0;
    if (!opened) {
        return ERROR_INVALID_HANDLE;
    }
    if (setup.length > buffer.size()) {
        return ERROR_INVALID_PARAMETER;
    }
    const DriverResult result = bus_.ControlTransfer(opened->presence, setup, buffer);
    transferred = static_cast<ULONG>(result.transferred);
    return result.error;
}

// A handle whose file is closed reaches nothing any more; it can only be freed.
std::optional<UsbDevices::Interface> UsbDevices::Find(WINUSB_INTERFACE_HANDLE handle) {
    const std::lock_guard lock(mutex_);
    const auto entry = interfaces_.find(reinterpret_cast<std::uintptr_t>(handle));
    if (entry == interfaces_.end() || !files_.contains(entry->second.file)) {
        return std::nullopt;
    }
    return entry->second;
}

WINUSB_INTERFACE_HANDLE UsbDevices::Add(const Interface& opened) {
    lastHandle_ += 8;
    interfaces_[lastHandle_] = opened;
    return reinterpret_cast<WINUSB_INTERFACE_HANDLE>(lastHandle_);
}

}  // namespace lab::rig
