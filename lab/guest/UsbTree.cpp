#include "lab/guest/UsbTree.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <system_error>

#include "lab/guest/FileContent.h"
#include "lab/guest/KernelError.h"
#include "lab/guest/UsbPath.h"

namespace lab::guest {
namespace {

namespace fs = std::filesystem;

// The kernel takes no configuration of more than 64 KiB, and no more than eight of them.
constexpr std::size_t kMostDescriptorBytes = 18 + 8 * 65536;

std::uint32_t Number(const std::string& digits) {
    std::uint32_t number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

// The names in a folder, in order; none when it is not there.
std::vector<std::string> NamesIn(const fs::path& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        names.push_back(entry->path().filename().native());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The name of what a link leads to; empty when there is none.
std::string TargetName(const fs::path& link) {
    std::error_code error;
    return fs::read_symlink(link, error).filename().native();
}

}  // namespace

std::vector<UsbDevice> UsbTree::Devices() const {
    std::vector<UsbDevice> devices;
    for (const std::string& name : NamesIn(places_.sys / "bus/usb/devices")) {
        if (!IsUsbPath(name)) {
            continue;
        }
        if (auto device = Read(name)) {
            devices.push_back(std::move(*device));
        }
    }
    return devices;
}

UsbDevice UsbTree::Find(std::string_view path) const {
    const fs::path folder = FolderOf(path);
    auto device = Read(std::string(path));
    if (!device) {
        throw KernelError(ENODEV, folder.native());
    }
    return std::move(*device);
}

std::vector<std::uint8_t> UsbTree::Descriptors(std::string_view path) const {
    const fs::path file = FolderOf(path) / "descriptors";
    const auto content = FileContent(file, kMostDescriptorBytes);
    if (!content) {
        throw KernelError(ENODEV, file.native());
    }
    return {content->begin(), content->end()};
}

fs::path UsbTree::NodeOf(const UsbDevice& device) const {
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "%03u/%03u", device.bus, device.number);
    return places_.dev / "bus/usb" / name.data();
}

fs::path UsbTree::FolderOf(std::string_view path) const {
    if (!IsUsbPath(path)) {
        throw KernelError(EINVAL, std::string(path));
    }
    return places_.sys / "bus/usb/devices" / path;
}

// Nothing when it is not there, or is leaving: its attributes go one after another.
std::optional<UsbDevice> UsbTree::Read(const std::string& path) const {
    const fs::path folder = FolderOf(path);
    const auto attribute = [&folder](const char* name) { return Attribute(folder / name); };
    UsbDevice device{
        .path = path,
        .bus = Number(attribute("busnum")),
        .number = Number(attribute("devnum")),
        .vendor = attribute("idVendor"),
        .product = attribute("idProduct"),
        .release = attribute("bcdDevice"),
        .usb = attribute("version"),
        .speed = attribute("speed"),
        .configuration = attribute("bConfigurationValue"),
        .manufacturerText = attribute("manufacturer"),
        .productText = attribute("product"),
        .serialText = attribute("serial"),
        .videoNode = VideoNode(path),
        .interfaces = Interfaces(path),
    };
    const bool isThere =
        device.bus != 0 && device.number != 0 && !device.vendor.empty() && !device.product.empty();
    return isThere ? std::optional(std::move(device)) : std::nullopt;
}

std::vector<UsbInterface> UsbTree::Interfaces(const std::string& path) const {
    const fs::path folder = FolderOf(path);
    std::vector<UsbInterface> interfaces;
    for (const std::string& name : NamesIn(folder)) {
        // "1-2:1.0": device, configuration, interface. A root hub's are called after its bus: "1-0:1.0".
        if (name.find(':') == std::string::npos) {
            continue;
        }
        const auto attribute = [&](const char* which) { return Attribute(folder / name / which); };
        UsbInterface interface {
            .number = attribute("bInterfaceNumber"), .setting = attribute("bAlternateSetting"),
            .deviceClass = attribute("bInterfaceClass"), .subClass = attribute("bInterfaceSubClass"),
            .protocol = attribute("bInterfaceProtocol"), .driver = TargetName(folder / name / "driver"),
        };
        if (!interface.number.empty()) {
            interfaces.push_back(std::move(interface));
        }
    }
    return interfaces;
}

// A camera has several nodes; the one that takes extension-unit commands is the first, with index 0.
std::string UsbTree::VideoNode(std::string_view path) const {
    const fs::path nodes = places_.sys / "class/video4linux";
    const std::string interfaces = std::string(path) + ':';
    for (const std::string& name : NamesIn(nodes)) {
        const bool isOfThisDevice = TargetName(nodes / name / "device").starts_with(interfaces);
        if (isOfThisDevice && Attribute(nodes / name / "index") == "0") {
            return name;
        }
    }
    return {};
}

}  // namespace lab::guest
