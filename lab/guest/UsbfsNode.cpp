#include "lab/guest/UsbfsNode.h"

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include "lab/guest/KernelError.h"

namespace lab::guest {
namespace {

constexpr std::uint8_t kFromDevice = 0x80;

std::uint16_t Word(const UsbfsNode::Setup& setup, std::size_t place) {
    return static_cast<std::uint16_t>(setup[place] | setup[place + 1] << 8);
}

}  // namespace

UsbfsNode::UsbfsNode(const std::filesystem::path& node) : node_(FileDescriptor::Open(node, O_RDWR)) {}

std::size_t UsbfsNode::Control(const Setup& setup, std::span<std::uint8_t> data,
                               std::chrono::milliseconds limit) {
    usbdevfs_ctrltransfer transfer{};
    transfer.bRequestType = setup[0];
    transfer.bRequest = setup[1];
    transfer.wValue = Word(setup, 2);
    transfer.wIndex = Word(setup, 4);
    transfer.wLength = Word(setup, 6);
    transfer.timeout = static_cast<std::uint32_t>(limit.count());
    transfer.data = data.data();
    return static_cast<std::size_t>(
        Checked(ioctl(node_.Number(), USBDEVFS_CONTROL, &transfer), "the control transfer"));
}

void UsbfsNode::Claim(unsigned interface) {
    Checked(ioctl(node_.Number(), USBDEVFS_CLAIMINTERFACE, &interface), "claiming the interface");
}

void UsbfsNode::Release(unsigned interface) {
    Checked(ioctl(node_.Number(), USBDEVFS_RELEASEINTERFACE, &interface), "releasing the interface");
}

void UsbfsNode::SetInterface(unsigned interface, unsigned setting) {
    usbdevfs_setinterface choice{};
    choice.interface = interface;
    choice.altsetting = setting;
    Checked(ioctl(node_.Number(), USBDEVFS_SETINTERFACE, &choice), "choosing the interface's setting");
}

void UsbfsNode::Reset() {
    Checked(ioctl(node_.Number(), USBDEVFS_RESET, nullptr), "resetting the port");
}

std::size_t LengthOf(const UsbfsNode::Setup& setup) {
    return Word(setup, 6);
}

bool IsFromDevice(const UsbfsNode::Setup& setup) {
    return (setup[0] & kFromDevice) != 0;
}

}  // namespace lab::guest
