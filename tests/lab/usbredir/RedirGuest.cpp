#include "tests/lab/usbredir/RedirGuest.h"

#include <array>
#include <utility>

namespace lab::test {

struct RedirGuest::Callbacks {
    static RedirGuest& Self(void* self) { return *static_cast<RedirGuest*>(self); }

    static void Log(void*, int, const char*) {}

    static int Read(void* self, std::uint8_t* data, int count) {
        const auto read = Self(self).socket_.Receive({data, static_cast<std::size_t>(count)});
        return read ? static_cast<int>(*read) : -1;
    }

    static int Write(void* self, std::uint8_t* data, int count) {
        const auto written = Self(self).socket_.Send({data, static_cast<std::size_t>(count)});
        return written ? static_cast<int>(*written) : -1;
    }

    static void Hello(void* self, usb_redir_hello_header*) { Self(self).told.emplace_back("hello"); }

    static void Connect(void* self, usb_redir_device_connect_header* header) {
        Self(self).told.emplace_back("connect");
        Self(self).device = *header;
    }

    static void Disconnect(void* self) {
        Self(self).told.emplace_back("disconnect");
        Self(self).device.reset();
    }

    static void Interfaces(void* self, usb_redir_interface_info_header* header) {
        Self(self).told.emplace_back("interfaces");
        Self(self).interfaces = *header;
    }

    static void Endpoints(void* self, usb_redir_ep_info_header* header) {
        Self(self).told.emplace_back("endpoints");
        Self(self).endpoints = *header;
    }

    static void Configuration(void* self, std::uint64_t, usb_redir_configuration_status_header* header) {
        Self(self).configuration = *header;
    }

    static void Alternate(void* self, std::uint64_t, usb_redir_alt_setting_status_header* header) {
        Self(self).alternate = *header;
    }

    static void IsoStream(void* self, std::uint64_t, usb_redir_iso_stream_status_header* header) {
        Self(self).isoStream = *header;
    }

    static void InterruptReceiving(void* self, std::uint64_t,
                                   usb_redir_interrupt_receiving_status_header* header) {
        Self(self).interruptReceiving = *header;
    }

    static void Control(void* self, std::uint64_t id, usb_redir_control_packet_header* header,
                        std::uint8_t* data, int length) {
        Self(self).controls.push_back({.id = id, .header = *header, .data = {data, data + length}});
        usbredirparser_free_packet_data(Self(self).parser_.get(), data);
    }

    static void Bulk(void* self, std::uint64_t, usb_redir_bulk_packet_header* header, std::uint8_t* data,
                     int) {
        Self(self).bulk = *header;
        usbredirparser_free_packet_data(Self(self).parser_.get(), data);
    }
};

RedirGuest::RedirGuest(Socket socket) : socket_(std::move(socket)), parser_(usbredirparser_create()) {
    parser_->priv = this;
    parser_->log_func = Callbacks::Log;
    parser_->read_func = Callbacks::Read;
    parser_->write_func = Callbacks::Write;
    parser_->hello_func = Callbacks::Hello;
    parser_->device_connect_func = Callbacks::Connect;
    parser_->device_disconnect_func = Callbacks::Disconnect;
    parser_->interface_info_func = Callbacks::Interfaces;
    parser_->ep_info_func = Callbacks::Endpoints;
    parser_->configuration_status_func = Callbacks::Configuration;
    parser_->alt_setting_status_func = Callbacks::Alternate;
    parser_->iso_stream_status_func = Callbacks::IsoStream;
    parser_->interrupt_receiving_status_func = Callbacks::InterruptReceiving;
    parser_->control_packet_func = Callbacks::Control;
    parser_->bulk_packet_func = Callbacks::Bulk;
    std::array<std::uint32_t, USB_REDIR_CAPS_SIZE> abilities{};
    for (const int ability : {usb_redir_cap_connect_device_version, usb_redir_cap_device_disconnect_ack,
                              usb_redir_cap_ep_info_max_packet_size, usb_redir_cap_64bits_ids}) {
        usbredirparser_caps_set_cap(abilities.data(), ability);
    }
    usbredirparser_init(parser_.get(), "a guest", abilities.data(), USB_REDIR_CAPS_SIZE, 0);
}

void RedirGuest::Exchange() {
    if (usbredirparser_has_data_to_write(parser_.get()) != 0) {
        usbredirparser_do_write(parser_.get());
    }
    isClosed = usbredirparser_do_read(parser_.get()) != 0;
}

void RedirGuest::Send(std::uint64_t id, std::uint8_t requestType, std::uint8_t request, std::uint16_t value,
                      std::uint16_t index, std::uint16_t length, std::vector<std::uint8_t> data) {
    usb_redir_control_packet_header header{};
    header.endpoint = static_cast<std::uint8_t>(requestType & 0x80);
    header.request = request;
    header.requesttype = requestType;
    header.value = value;
    header.index = index;
    header.length = length;
    usbredirparser_send_control_packet(parser_.get(), id, &header, data.data(),
                                       static_cast<int>(data.size()));
}

}  // namespace lab::test
