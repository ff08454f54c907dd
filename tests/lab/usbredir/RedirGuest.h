#pragma once

#include "lab/served/Socket.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <usbredirparser.h>

namespace lab::test {

// The other side of a connection: what QEMU's usb-redir is to a server. Keeps what it is told; for one
// thread.
class RedirGuest {
  public:
    struct Control {
        std::uint64_t id = 0;
        usb_redir_control_packet_header header = {};
        std::vector<std::uint8_t> data = {};
    };

    explicit RedirGuest(Socket socket);
    RedirGuest(const RedirGuest&) = delete;
    RedirGuest& operator=(const RedirGuest&) = delete;

    // Reads and writes what can be.
    void Exchange();

    void Send(std::uint64_t id, std::uint8_t requestType, std::uint8_t request, std::uint16_t value,
              std::uint16_t index, std::uint16_t length, std::vector<std::uint8_t> data = {});
    [[nodiscard]] usbredirparser* Parser() const { return parser_.get(); }

    std::vector<std::string> told;  // "connect", "disconnect", "interfaces", "endpoints" and so on, in order
    std::optional<usb_redir_device_connect_header> device;
    usb_redir_interface_info_header interfaces = {};
    usb_redir_ep_info_header endpoints = {};
    std::vector<Control> controls;
    std::optional<usb_redir_configuration_status_header> configuration;
    std::optional<usb_redir_alt_setting_status_header> alternate;
    std::optional<usb_redir_iso_stream_status_header> isoStream;
    std::optional<usb_redir_interrupt_receiving_status_header> interruptReceiving;
    std::optional<usb_redir_bulk_packet_header> bulk;
    bool isClosed = false;

  private:
    struct Callbacks;
    struct ParserDeleter {
        void operator()(usbredirparser* parser) const { usbredirparser_destroy(parser); }
    };

    Socket socket_;
    std::unique_ptr<usbredirparser, ParserDeleter> parser_;
};

}  // namespace lab::test
