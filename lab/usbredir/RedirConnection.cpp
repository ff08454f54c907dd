#include "lab/usbredir/RedirConnection.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "lab/camera/InterfaceSettings.h"

namespace lab {
namespace {

constexpr char kVersion[] = "veyra laboratory";
constexpr std::uint8_t kNoEndpoint = usb_redir_type_invalid;
constexpr std::uint8_t kSuccess = usb_redir_success;
constexpr std::uint8_t kStall = usb_redir_stall;
constexpr std::size_t kMostInterfaces = 32;  // that the protocol has room for

std::uint8_t SpeedCode(Speed speed) {
    switch (speed) {
        case Speed::Full:
            return usb_redir_speed_full;
        case Speed::High:
            return usb_redir_speed_high;
        case Speed::Super:
            return usb_redir_speed_super;
    }
    return usb_redir_speed_unknown;
}

std::uint8_t StatusCode(TransferEnd end) {
    switch (end) {
        case TransferEnd::Ok:
            return usb_redir_success;
        case TransferEnd::Stall:
            return usb_redir_stall;
        case TransferEnd::Timeout:
            return usb_redir_timeout;
        case TransferEnd::Disconnected:
            return usb_redir_ioerror;
    }
    return usb_redir_ioerror;
}

// The protocol's place for an endpoint: those to the host stand behind the others.
std::size_t PlaceOf(std::uint8_t address) {
    constexpr std::size_t kToHost = 16;
    return (address & 0x0FU) + ((address & 0x80U) != 0 ? kToHost : 0);
}

std::uint16_t WordAt(const std::vector<std::uint8_t>& bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

void Log(void*, int level, const char* text) {
    if (level <= usbredirparser_warning) {
        std::fprintf(stderr, "%s\n", text);
    }
}

}  // namespace

// The parser's callbacks. It owns what it reads: data is given back here, whatever becomes of a packet.
struct RedirConnection::Callbacks {
    static RedirConnection& Self(void* self) { return *static_cast<RedirConnection*>(self); }

    static int Read(void* self, std::uint8_t* data, int count) {
        const auto read = Self(self).socket_.Receive({data, static_cast<std::size_t>(count)});
        return read ? static_cast<int>(*read) : -1;
    }

    static int Write(void* self, std::uint8_t* data, int count) {
        const auto written = Self(self).socket_.Send({data, static_cast<std::size_t>(count)});
        return written ? static_cast<int>(*written) : -1;
    }

    static void Hello(void* self, usb_redir_hello_header*) { Self(self).isGreeted_ = true; }

    static void Reset(void* self) {
        RedirConnection& connection = Self(self);
        if (connection.ReachesDevice()) {
            connection.held_.Clear();
            connection.camera_.Reset(connection.nowMs_);
            connection.TellInterfaces();
        }
    }

    static void Control(void* self, std::uint64_t id, usb_redir_control_packet_header* header,
                        std::uint8_t* data, int length) {
        RedirConnection& connection = Self(self);
        if (connection.ReachesDevice()) {
            connection.HandleControl(id, *header, {data, static_cast<std::size_t>(length)});
        }
        usbredirparser_free_packet_data(connection.parser_.get(), data);
    }

    static void SetConfiguration(void* self, std::uint64_t id, usb_redir_set_configuration_header* header) {
        Self(self).HandleSetConfiguration(id, header->configuration);
    }

    static void GetConfiguration(void* self, std::uint64_t id) { Self(self).SendConfiguration(id, true); }

    static void SetAlternate(void* self, std::uint64_t id, usb_redir_set_alt_setting_header* header) {
        Self(self).HandleSetAlternate(id, header->interface, header->alt);
    }

    static void GetAlternate(void* self, std::uint64_t id, usb_redir_get_alt_setting_header* header) {
        Self(self).SendAlternate(id, header->interface, true);
    }

    static void Cancel(void* self, std::uint64_t id) { Self(self).HandleCancel(id); }

    static void Farewell(void* self) { Self(self).awaitsFarewell_ = false; }

    // The one stream that there is begins, and stays silent.
    static void StartIso(void* self, std::uint64_t id, usb_redir_start_iso_stream_header* header) {
        SendIsoStatus(self, id, header->endpoint, Self(self).HasEndpoint(header->endpoint));
    }

    static void StopIso(void* self, std::uint64_t id, usb_redir_stop_iso_stream_header* header) {
        SendIsoStatus(self, id, header->endpoint, true);
    }

    static void SendIsoStatus(void* self, std::uint64_t id, std::uint8_t endpoint, bool isOk) {
        usb_redir_iso_stream_status_header status{};
        status.status = isOk ? kSuccess : kStall;
        status.endpoint = endpoint;
        usbredirparser_send_iso_stream_status(Self(self).parser_.get(), id, &status);
    }

    static void StartInterrupt(void* self, std::uint64_t id,
                               usb_redir_start_interrupt_receiving_header* header) {
        usb_redir_interrupt_receiving_status_header status{};
        status.status = usb_redir_stall;
        status.endpoint = header->endpoint;
        usbredirparser_send_interrupt_receiving_status(Self(self).parser_.get(), id, &status);
    }

    static void StopInterrupt(void* self, std::uint64_t id,
                              usb_redir_stop_interrupt_receiving_header* header) {
        usb_redir_interrupt_receiving_status_header status{};
        status.status = usb_redir_success;
        status.endpoint = header->endpoint;
        usbredirparser_send_interrupt_receiving_status(Self(self).parser_.get(), id, &status);
    }

    static void AllocateStreams(void* self, std::uint64_t id, usb_redir_alloc_bulk_streams_header* header) {
        SendStreamsStatus(self, id, header->endpoints);
    }

    static void FreeStreams(void* self, std::uint64_t id, usb_redir_free_bulk_streams_header* header) {
        SendStreamsStatus(self, id, header->endpoints);
    }

    static void SendStreamsStatus(void* self, std::uint64_t id, std::uint32_t endpoints) {
        usb_redir_bulk_streams_status_header status{};
        status.endpoints = endpoints;
        status.status = usb_redir_inval;
        usbredirparser_send_bulk_streams_status(Self(self).parser_.get(), id, &status);
    }

    static void Bulk(void* self, std::uint64_t id, usb_redir_bulk_packet_header* header, std::uint8_t* data,
                     int) {
        usbredirparser* const parser = Self(self).parser_.get();
        usb_redir_bulk_packet_header reply = *header;
        reply.status = usb_redir_stall;
        reply.length = 0;
        reply.length_high = 0;
        usbredirparser_send_bulk_packet(parser, id, &reply, nullptr, 0);
        usbredirparser_free_packet_data(parser, data);
    }

    static void Iso(void* self, std::uint64_t, usb_redir_iso_packet_header*, std::uint8_t* data, int) {
        usbredirparser_free_packet_data(Self(self).parser_.get(), data);
    }

    static void Interrupt(void* self, std::uint64_t id, usb_redir_interrupt_packet_header* header,
                          std::uint8_t* data, int) {
        usbredirparser* const parser = Self(self).parser_.get();
        usb_redir_interrupt_packet_header reply = *header;
        reply.status = usb_redir_stall;
        reply.length = 0;
        usbredirparser_send_interrupt_packet(parser, id, &reply, nullptr, 0);
        usbredirparser_free_packet_data(parser, data);
    }

    // The host does not want the device; nothing follows from it.
    static void Reject(void*) {}

    static void Filter(void*, usbredirfilter_rule* rules, int) { std::free(rules); }
};

RedirConnection::RedirConnection(Socket socket, ServedCamera& camera, std::function<void()> onClosed)
    : socket_(std::move(socket)),
      camera_(camera),
      onClosed_(std::move(onClosed)),
      parser_(usbredirparser_create()) {
    if (parser_ == nullptr) {
        throw std::runtime_error("no memory for a usbredir parser");
    }
    parser_->priv = this;
    parser_->log_func = Log;
    parser_->read_func = Callbacks::Read;
    parser_->write_func = Callbacks::Write;
    parser_->hello_func = Callbacks::Hello;
    parser_->reset_func = Callbacks::Reset;
    parser_->control_packet_func = Callbacks::Control;
    parser_->set_configuration_func = Callbacks::SetConfiguration;
    parser_->get_configuration_func = Callbacks::GetConfiguration;
    parser_->set_alt_setting_func = Callbacks::SetAlternate;
    parser_->get_alt_setting_func = Callbacks::GetAlternate;
    parser_->cancel_data_packet_func = Callbacks::Cancel;
    parser_->device_disconnect_ack_func = Callbacks::Farewell;
    parser_->start_iso_stream_func = Callbacks::StartIso;
    parser_->stop_iso_stream_func = Callbacks::StopIso;
    parser_->start_interrupt_receiving_func = Callbacks::StartInterrupt;
    parser_->stop_interrupt_receiving_func = Callbacks::StopInterrupt;
    parser_->alloc_bulk_streams_func = Callbacks::AllocateStreams;
    parser_->free_bulk_streams_func = Callbacks::FreeStreams;
    parser_->bulk_packet_func = Callbacks::Bulk;
    parser_->iso_packet_func = Callbacks::Iso;
    parser_->interrupt_packet_func = Callbacks::Interrupt;
    parser_->filter_reject_func = Callbacks::Reject;
    parser_->filter_filter_func = Callbacks::Filter;
    std::array<std::uint32_t, USB_REDIR_CAPS_SIZE> abilities{};
    for (const int ability : {usb_redir_cap_connect_device_version, usb_redir_cap_filter,
                              usb_redir_cap_device_disconnect_ack, usb_redir_cap_ep_info_max_packet_size,
                              usb_redir_cap_64bits_ids, usb_redir_cap_32bits_bulk_length}) {
        usbredirparser_caps_set_cap(abilities.data(), ability);
    }
    usbredirparser_init(parser_.get(), kVersion, abilities.data(), USB_REDIR_CAPS_SIZE,
                        usbredirparser_fl_usb_host);
}

RedirConnection::~RedirConnection() {
    onClosed_();
}

bool RedirConnection::WantsToSend() const {
    return usbredirparser_has_data_to_write(parser_.get()) != 0;
}

bool RedirConnection::Serve(std::uint64_t nowMs) {
    nowMs_ = nowMs;
    return usbredirparser_do_read(parser_.get()) == 0 && Flush();
}

bool RedirConnection::KeepUp(std::uint64_t nowMs) {
    nowMs_ = nowMs;
    FollowCamera();
    held_.SendDue(nowMs);
    return Flush();
}

bool RedirConnection::Flush() {
    return !WantsToSend() || usbredirparser_do_write(parser_.get()) == 0;
}

bool RedirConnection::ReachesDevice() {
    camera_.Advance(nowMs_);
    return toldStay_ != 0 && camera_.Stay() == toldStay_;
}

// The camera comes and goes; the host is told of one device after the other.
void RedirConnection::FollowCamera() {
    const unsigned stay = camera_.Stay();
    if (toldStay_ != 0 && stay != toldStay_) {
        toldStay_ = 0;
        held_.Clear();
        usbredirparser_send_device_disconnect(parser_.get());
        awaitsFarewell_ =
            usbredirparser_peer_has_cap(parser_.get(), usb_redir_cap_device_disconnect_ack) != 0;
    }
    if (toldStay_ == 0 && stay != 0 && isGreeted_ && !awaitsFarewell_) {
        toldStay_ = stay;
        TellInterfaces();
        TellDevice();
    }
}

void RedirConnection::TellDevice() {
    const std::vector<std::uint8_t> device = camera_.Device().Descriptors().Device();
    usb_redir_device_connect_header header{};
    header.speed = SpeedCode(camera_.Device().Camera().Settings().speed);
    header.device_class = device[4];
    header.device_subclass = device[5];
    header.device_protocol = device[6];
    header.vendor_id = WordAt(device, 8);
    header.product_id = WordAt(device, 10);
    header.device_version_bcd = WordAt(device, 12);
    usbredirparser_send_device_connect(parser_.get(), &header);
}

// Of the configuration that is chosen, or that there is to choose.
void RedirConnection::TellInterfaces() {
    const UsbDevice& device = camera_.Device();
    const InterfaceSettings unchosen(device.Descriptors().Configuration());
    const InterfaceSettings& settings = device.Interfaces() != nullptr ? *device.Interfaces() : unchosen;
    usb_redir_interface_info_header interfaces{};
    usb_redir_ep_info_header endpoints{};
    std::fill(std::begin(endpoints.type), std::end(endpoints.type), kNoEndpoint);
    for (const std::uint8_t defaultPipe : std::array<std::uint8_t, 2>{0x00, 0x80}) {
        endpoints.type[PlaceOf(defaultPipe)] = usb_redir_type_control;
    }
    for (const InterfaceSettings::Setting& setting : settings.Chosen()) {
        const std::uint32_t place = interfaces.interface_count;
        if (place == kMostInterfaces) {
            break;
        }
        interfaces.interface[place] = setting.number;
        interfaces.interface_class[place] = setting.interfaceClass;
        interfaces.interface_subclass[place] = setting.subclass;
        interfaces.interface_protocol[place] = setting.protocol;
        ++interfaces.interface_count;
        for (const InterfaceSettings::Endpoint& endpoint : setting.endpoints) {
            const std::size_t at = PlaceOf(endpoint.address);
            endpoints.type[at] = static_cast<std::uint8_t>(endpoint.attributes & 0x03);
            endpoints.interval[at] = endpoint.interval;
            endpoints.interface[at] = setting.number;
            endpoints.max_packet_size[at] = endpoint.packetSize;
        }
    }
    usbredirparser_send_interface_info(parser_.get(), &interfaces);
    usbredirparser_send_ep_info(parser_.get(), &endpoints);
}

TransferResult RedirConnection::Request(std::uint8_t requestType, StandardRequest request,
                                        std::uint16_t value, std::uint16_t index,
                                        std::span<std::uint8_t> data) {
    const SetupPacket setup{.requestType = requestType,
                            .request = static_cast<std::uint8_t>(request),
                            .value = value,
                            .index = index,
                            .length = static_cast<std::uint16_t>(data.size())};
    return camera_.Transfer(setup, data, nowMs_);
}

void RedirConnection::HandleControl(std::uint64_t id, const usb_redir_control_packet_header& header,
                                    std::span<const std::uint8_t> sent) {
    const SetupPacket setup{.requestType = header.requesttype,
                            .request = header.request,
                            .value = header.value,
                            .index = header.index,
                            .length = header.length};
    std::vector<std::uint8_t> data(sent.begin(), sent.end());
    data.resize(setup.length);
    const TransferResult result = camera_.Transfer(setup, data, nowMs_);
    if (result.end == TransferEnd::Disconnected) {
        return;
    }
    if (result.end == TransferEnd::Timeout) {
        held_.Hold(id, std::nullopt, [] {});
        return;
    }
    usb_redir_control_packet_header reply = header;
    reply.length = static_cast<std::uint16_t>(result.transferred);
    data.resize(IsToHost(setup) ? result.transferred : 0);
    const auto send = [this, id, reply, status = StatusCode(result.end), data] {
        SendControl(id, reply, status, data);
    };
    if (result.tookMs == 0) {
        send();
    } else {
        held_.Hold(id, nowMs_ + result.tookMs, send);
    }
}

void RedirConnection::SendControl(std::uint64_t id, usb_redir_control_packet_header header,
                                  std::uint8_t status, std::vector<std::uint8_t> data) {
    header.status = status;
    usbredirparser_send_control_packet(parser_.get(), id, &header, data.data(),
                                       static_cast<int>(data.size()));
}

void RedirConnection::HandleSetConfiguration(std::uint64_t id, std::uint8_t value) {
    if (!ReachesDevice()) {
        return;
    }
    const TransferResult result = Request(0x00, StandardRequest::SetConfiguration, value, 0, {});
    if (result.end == TransferEnd::Ok) {
        TellInterfaces();
    }
    SendConfiguration(id, result.end == TransferEnd::Ok);
}

void RedirConnection::SendConfiguration(std::uint64_t id, bool isOk) {
    usb_redir_configuration_status_header status{};
    status.status = isOk ? kSuccess : kStall;
    status.configuration = camera_.Device().Configuration();
    usbredirparser_send_configuration_status(parser_.get(), id, &status);
}

// An alternate setting that nobody answers is one that fails: the packet cannot be taken back.
void RedirConnection::HandleSetAlternate(std::uint64_t id, std::uint8_t number, std::uint8_t alternate) {
    if (!ReachesDevice()) {
        return;
    }
    const TransferResult result = Request(0x01, StandardRequest::SetInterface, alternate, number, {});
    if (result.end == TransferEnd::Ok) {
        TellInterfaces();
    }
    SendAlternate(id, number, result.end == TransferEnd::Ok);
}

void RedirConnection::SendAlternate(std::uint64_t id, std::uint8_t number, bool isOk) {
    const InterfaceSettings* const settings = camera_.Device().Interfaces();
    const auto alternate = settings != nullptr ? settings->Alternate(number) : std::nullopt;
    usb_redir_alt_setting_status_header status{};
    status.status = isOk && alternate ? kSuccess : kStall;
    status.interface = number;
    status.alt = alternate.value_or(0);
    usbredirparser_send_alt_setting_status(parser_.get(), id, &status);
}

void RedirConnection::HandleCancel(std::uint64_t id) {
    if (held_.Cancel(id)) {
        SendControl(id, {}, usb_redir_cancelled, {});
    }
}

bool RedirConnection::HasEndpoint(std::uint8_t address) const {
    const InterfaceSettings* const settings = camera_.Device().Interfaces();
    return settings != nullptr && settings->IsHalted(address).has_value();
}

}  // namespace lab
