#include "host/libusb/CameraSession.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include <libusb-1.0/libusb.h>

// The part of libusb's interface that a DFU host uses, on a bus with one device: the virtual camera of
// CameraSession. The library stands in for libusb-1.0.so.0 in a process that is started for that.

struct libusb_context {
    CameraSession session;
};
struct libusb_device {};
struct libusb_device_handle {};

namespace {

// The process's one bus. It outlives a host that leaves without libusb_exit, so that the flash is always
// kept.
std::unique_ptr<libusb_context> bus;
libusb_device device;
libusb_device_handle handle;

constexpr std::size_t kDescriptorHead = 9;  // of a configuration and of an interface

bool IsPresent() {
    return bus != nullptr && bus->session.Camera().Mode() == lab::BusMode::Dfu;
}

std::uint16_t WordAt(std::span<const std::uint8_t> bytes, std::size_t place) {
    return static_cast<std::uint16_t>(bytes[place] | bytes[place + 1] << 8);
}

// A configuration descriptor in libusb's form, with what stands behind each interface as its extra bytes.
struct Configuration {
    libusb_config_descriptor descriptor{};
    std::vector<std::uint8_t> bytes;
    std::vector<libusb_interface_descriptor> settings;
    std::vector<libusb_interface> interfaces;

    explicit Configuration(std::vector<std::uint8_t> read) : bytes(std::move(read)) {
        descriptor.bLength = bytes.at(0);
        descriptor.bDescriptorType = bytes.at(1);
        descriptor.wTotalLength = WordAt(bytes, 2);
        descriptor.bNumInterfaces = bytes.at(4);
        descriptor.bConfigurationValue = bytes.at(5);
        descriptor.iConfiguration = bytes.at(6);
        descriptor.bmAttributes = bytes.at(7);
        descriptor.MaxPower = bytes.at(8);
        for (std::size_t place = kDescriptorHead; place + 1 < bytes.size(); place += bytes[place]) {
            Add(place);
        }
        for (const libusb_interface_descriptor& setting : settings) {
            interfaces.push_back({.altsetting = &setting, .num_altsetting = 1});
        }
        descriptor.interface = interfaces.data();
    }

  private:
    void Add(std::size_t place) {
        const std::span<const std::uint8_t> rest = std::span(bytes).subspan(place);
        if (rest[1] != LIBUSB_DT_INTERFACE) {
            settings.back().extra_length += rest[0];
            return;
        }
        settings.push_back({.bLength = rest[0],
                            .bDescriptorType = rest[1],
                            .bInterfaceNumber = rest[2],
                            .bAlternateSetting = rest[3],
                            .bNumEndpoints = rest[4],
                            .bInterfaceClass = rest[5],
                            .bInterfaceSubClass = rest[6],
                            .bInterfaceProtocol = rest[7],
                            .iInterface = rest[8],
                            .endpoint = nullptr,
                            .extra = bytes.data() + place + kDescriptorHead,
                            .extra_length = 0});
    }
};

std::vector<std::unique_ptr<Configuration>> configurations;

int ResultOf(const lab::TransferResult& result) {
    switch (result.end) {
        case lab::TransferEnd::Ok:
            return static_cast<int>(result.transferred);
        case lab::TransferEnd::Stall:
            return LIBUSB_ERROR_PIPE;
        case lab::TransferEnd::Timeout:
            return LIBUSB_ERROR_TIMEOUT;
        case lab::TransferEnd::Disconnected:
            return LIBUSB_ERROR_NO_DEVICE;
    }
    return LIBUSB_ERROR_OTHER;
}

}  // namespace

extern "C" {

int libusb_init(libusb_context** context) {
    try {
        bus = std::make_unique<libusb_context>();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "virtual camera: %s\n", error.what());
        return LIBUSB_ERROR_OTHER;
    }
    if (context != nullptr) {
        *context = bus.get();
    }
    return LIBUSB_SUCCESS;
}

void libusb_exit(libusb_context*) {
    bus.reset();
}

int libusb_set_option(libusb_context*, libusb_option, ...) {
    return LIBUSB_SUCCESS;
}

const libusb_version* libusb_get_version() {
    static const libusb_version version{1, 0, 26, 0, "", "virtual camera"};
    return &version;
}

const char* libusb_error_name(int code) {
    switch (code) {
        case LIBUSB_ERROR_PIPE:
            return "LIBUSB_ERROR_PIPE";
        case LIBUSB_ERROR_TIMEOUT:
            return "LIBUSB_ERROR_TIMEOUT";
        case LIBUSB_ERROR_NO_DEVICE:
            return "LIBUSB_ERROR_NO_DEVICE";
        case LIBUSB_ERROR_NOT_FOUND:
            return "LIBUSB_ERROR_NOT_FOUND";
        default:
            return code < 0 ? "LIBUSB_ERROR_OTHER" : "LIBUSB_SUCCESS";
    }
}

ssize_t libusb_get_device_list(libusb_context*, libusb_device*** list) {
    *list = static_cast<libusb_device**>(std::calloc(2, sizeof(libusb_device*)));
    (*list)[0] = IsPresent() ? &device : nullptr;
    return IsPresent() ? 1 : 0;
}

void libusb_free_device_list(libusb_device** list, int) {
    std::free(list);
}

libusb_device* libusb_ref_device(libusb_device* each) {
    return each;
}

void libusb_unref_device(libusb_device*) {}

std::uint8_t libusb_get_bus_number(libusb_device*) {
    return 1;
}

std::uint8_t libusb_get_device_address(libusb_device*) {
    return 2;
}

int libusb_get_port_numbers(libusb_device*, std::uint8_t* numbers, int count) {
    if (count < 1) {
        return LIBUSB_ERROR_OVERFLOW;
    }
    numbers[0] = 1;
    return 1;
}

int libusb_get_device_descriptor(libusb_device*, libusb_device_descriptor* descriptor) {
    const std::vector<std::uint8_t> bytes = bus->session.Camera().DeviceDescriptor();
    *descriptor = {.bLength = bytes[0],
                   .bDescriptorType = bytes[1],
                   .bcdUSB = WordAt(bytes, 2),
                   .bDeviceClass = bytes[4],
                   .bDeviceSubClass = bytes[5],
                   .bDeviceProtocol = bytes[6],
                   .bMaxPacketSize0 = bytes[7],
                   .idVendor = WordAt(bytes, 8),
                   .idProduct = WordAt(bytes, 10),
                   .bcdDevice = WordAt(bytes, 12),
                   .iManufacturer = bytes[14],
                   .iProduct = bytes[15],
                   .iSerialNumber = bytes[16],
                   .bNumConfigurations = bytes[17]};
    return LIBUSB_SUCCESS;
}

int libusb_get_config_descriptor(libusb_device*, std::uint8_t index, libusb_config_descriptor** descriptor) {
    if (index != 0) {
        return LIBUSB_ERROR_NOT_FOUND;
    }
    configurations.push_back(
        std::make_unique<Configuration>(bus->session.Camera().ConfigurationDescriptor()));
    *descriptor = &configurations.back()->descriptor;
    return LIBUSB_SUCCESS;
}

void libusb_free_config_descriptor(libusb_config_descriptor* descriptor) {
    std::erase_if(configurations, [descriptor](const auto& each) { return &each->descriptor == descriptor; });
}

int libusb_open(libusb_device*, libusb_device_handle** opened) {
    *opened = &handle;
    return IsPresent() ? LIBUSB_SUCCESS : LIBUSB_ERROR_NO_DEVICE;
}

void libusb_close(libusb_device_handle*) {}

int libusb_claim_interface(libusb_device_handle*, int) {
    return IsPresent() ? LIBUSB_SUCCESS : LIBUSB_ERROR_NO_DEVICE;
}

int libusb_release_interface(libusb_device_handle*, int) {
    return LIBUSB_SUCCESS;
}

int libusb_set_interface_alt_setting(libusb_device_handle*, int, int) {
    return IsPresent() ? LIBUSB_SUCCESS : LIBUSB_ERROR_NO_DEVICE;
}

int libusb_reset_device(libusb_device_handle*) {
    return bus->session.Reset() ? LIBUSB_SUCCESS : LIBUSB_ERROR_NOT_FOUND;
}

int libusb_control_transfer(libusb_device_handle*, std::uint8_t requestType, std::uint8_t request,
                            std::uint16_t value, std::uint16_t index, unsigned char* data,
                            std::uint16_t length, unsigned int) {
    const lab::SetupPacket setup{
        .requestType = requestType, .request = request, .value = value, .index = index, .length = length};
    return ResultOf(bus->session.Transfer(setup, {data, length}));
}
}
