#include "tests/lab/usbip/UsbIpClient.h"

#include <utility>

namespace lab::test {
namespace {

using Bytes = UsbIpClient::Bytes;

void Put(Bytes& bytes, std::uint32_t value) {
    for (const int shift : {24, 16, 8, 0}) {
        bytes.push_back(static_cast<std::uint8_t>(value >> shift & 0xFF));
    }
}

std::uint32_t LongAt(const Bytes& bytes, std::size_t offset) {
    std::uint32_t value = 0;
    for (std::size_t index = 0; index < 4; ++index) {
        value = value << 8 | bytes.at(offset + index);
    }
    return value;
}

Bytes Head(std::uint32_t code, std::uint32_t sequence, bool isToHost, std::uint32_t endpoint) {
    Bytes bytes;
    for (const std::uint32_t value : {code, sequence, 0x00010001U, isToHost ? 1U : 0U, endpoint}) {
        Put(bytes, value);
    }
    return bytes;
}

}  // namespace

void UsbIpClient::AskForList() {
    Send({0x01, 0x11, 0x80, 0x05, 0, 0, 0, 0});
}

void UsbIpClient::Import(const std::string& busId) {
    Bytes bytes{0x01, 0x11, 0x80, 0x03, 0, 0, 0, 0};
    bytes.insert(bytes.end(), busId.begin(), busId.end());
    bytes.resize(40);
    Send(bytes);
}

void UsbIpClient::Submit(std::uint32_t sequence, std::uint32_t endpoint, bool isToHost, std::uint32_t length,
                         const Bytes& setup, const Bytes& data, std::uint32_t packets) {
    Bytes bytes = Head(1, sequence, isToHost, endpoint);
    for (const std::uint32_t value : {0U, length, 0U, packets, 0U}) {
        Put(bytes, value);
    }
    bytes.insert(bytes.end(), setup.begin(), setup.end());
    bytes.insert(bytes.end(), data.begin(), data.end());
    Send(bytes);
}

void UsbIpClient::Unlink(std::uint32_t sequence, std::uint32_t unlinked) {
    Bytes bytes = Head(2, sequence, false, 0);
    Put(bytes, unlinked);
    bytes.resize(48);
    Send(bytes);
}

std::optional<Bytes> UsbIpClient::Take(std::size_t count) {
    const auto received = channel_.Received();
    if (received.size() < count) {
        return std::nullopt;
    }
    Bytes taken(received.begin(), received.begin() + static_cast<std::ptrdiff_t>(count));
    channel_.Drop(count);
    return taken;
}

std::optional<UsbIpClient::Reply> UsbIpClient::TakeReply(bool isToHost) {
    const auto head = Take(48);
    if (!head) {
        return std::nullopt;
    }
    Reply reply{.code = LongAt(*head, 0),
                .sequence = LongAt(*head, 4),
                .status = static_cast<std::int32_t>(LongAt(*head, 20)),
                .transferred = LongAt(*head, 24)};
    if (isToHost) {
        reply.data = Take(reply.transferred).value_or(Bytes{});
    }
    return reply;
}

}  // namespace lab::test
