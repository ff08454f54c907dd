#include "camera/FirmwareCommandPipe.h"

#include "camera/FirmwareCommandFrame.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace {

constexpr DWORD kReplyDelayMs = 100;

}  // namespace

HRESULT FirmwareCommandPipe::SendCommand(std::uint32_t opcode, const BYTE* data, std::size_t dataLength,
                                         std::uint32_t p1, std::uint32_t p2, std::uint32_t p3,
                                         std::uint32_t p4) {
    // Without data nothing is copied, but the length field still counts dataLength: deliberate.
    FirmwareFrame frame = BuildFirmwareFrame(opcode, dataLength, {p1, p2, p3, p4});
    if (data != nullptr && dataLength != 0) {
        if (dataLength > kMaxCommandData) {
            throw std::invalid_argument("failed to copy data");
        }
        std::copy_n(data, dataLength, frame.begin() + kCommandDataOffset);
    }
    HRESULT result = Set(frame);
    if (FAILED(result)) {
        return result;
    }

    // No pause before the read here, unlike in SendCommandAndRead: deliberate.
    FirmwareFrame reply{};
    ULONG bytesReturned = 0;
    result = Get(reply, bytesReturned);
    if (FAILED(result)) {
        return result;
    }
    return IsReplyTo(reply, bytesReturned, opcode, 0) ? S_OK : E_FAIL;
}

HRESULT FirmwareCommandPipe::SendCommandAndRead(BYTE* reply, std::uint32_t opcode, std::size_t replyLength,
                                                std::uint32_t p1, std::uint32_t p2, std::uint32_t p3,
                                                std::uint32_t p4) {
    if (replyLength > kMaxReplyData) {
        return E_INVALIDARG;
    }
    FirmwareFrame frame = BuildFirmwareFrame(opcode, 0, {p1, p2, p3, p4});
    HRESULT result = Set(frame);
    if (FAILED(result)) {
        return result;
    }
    Sleep(kReplyDelayMs);

    FirmwareFrame received{};
    ULONG bytesReturned = 0;
    result = Get(received, bytesReturned);
    if (FAILED(result)) {
        return result;
    }
    if (!IsReplyTo(received, bytesReturned, opcode, replyLength)) {
        return E_FAIL;
    }
    if (replyLength == 0) {
        return S_OK;
    }
    // The checked copy raises the C runtime's invalid-parameter report when `reply` is null.
    return memcpy_s(reply, replyLength, received.data() + kReplyDataOffset, replyLength) == 0 ? S_OK : E_FAIL;
}
