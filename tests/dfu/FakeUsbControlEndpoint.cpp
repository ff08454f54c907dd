#include "tests/dfu/FakeUsbControlEndpoint.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace {

constexpr std::uint8_t kDnload = 1;
constexpr std::uint8_t kUpload = 2;
constexpr std::uint8_t kGetStatus = 3;
constexpr std::uint8_t kGetState = 5;
constexpr std::uint8_t kIdle = 2;
constexpr std::uint8_t kDownloadIdle = 5;
constexpr std::uint8_t kManifestWaitReset = 8;
constexpr std::uint8_t kDeviceToHost = 0x80;
constexpr USHORT kInterfaceNumber = 7;

void WriteHex(std::ostream& text, unsigned value, int digits) {
    text << std::hex << std::uppercase << std::setfill('0') << std::setw(digits) << value << std::dec;
}

void WriteBytes(std::ostream& text, const UCHAR* bytes, std::size_t count, const char* separator) {
    for (std::size_t place = 0; place < count; ++place) {
        text << (place == 0 ? "" : separator);
        WriteHex(text, bytes[place], 2);
    }
}

}  // namespace

void FakeUsbControlEndpoint::FailRequest(std::uint8_t request, HRESULT result, std::size_t skip,
                                         std::size_t count) {
    failures_.push_back(Failure{request, result, skip, count});
}

std::size_t FakeUsbControlEndpoint::CountOf(std::uint8_t request) const {
    return static_cast<std::size_t>(std::count(requestNumbers_.begin(), requestNumbers_.end(), request));
}

HRESULT FakeUsbControlEndpoint::Transfer(WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) {
    if (beforeTransfer_) {
        beforeTransfer_();
    }
    Record(packet, buffer, length);
    packet.Index = kInterfaceNumber;
    const HRESULT failure = TakeFailure(packet.Request);
    if (FAILED(failure)) {
        return failure;
    }
    switch (packet.Request) {
        case kDnload:
            if (length != 0) {
                downloaded_.insert(downloaded_.end(), buffer, buffer + length);
            }
            state_ = length == 0 ? kManifestWaitReset : kDownloadIdle;
            return S_OK;
        case kUpload:
            std::fill_n(buffer, length, uploadByte_);
            return S_OK;
        case kGetStatus:
            return GetStatus(buffer);
        case kGetState:
            GetState(buffer);
            return S_OK;
        default:
            return S_OK;
    }
}

void FakeUsbControlEndpoint::Record(const WINUSB_SETUP_PACKET& packet, const UCHAR* buffer,
                                    std::size_t length) {
    std::ostringstream text;
    WriteHex(text, packet.RequestType, 2);
    text << ' ';
    WriteHex(text, packet.Request, 2);
    for (const USHORT field : {packet.Value, packet.Index, packet.Length}) {
        text << ' ';
        WriteHex(text, field, 4);
    }
    if (buffer == nullptr && length == 0) {
        text << " none";
    } else if ((packet.RequestType & kDeviceToHost) != 0) {
        text << " in " << length << " [";
        WriteBytes(text, buffer, length, " ");
        text << ']';
    } else {
        text << " out ";
        WriteBytes(text, buffer, length, " ");
    }
    requests_.push_back(text.str());
    requestNumbers_.push_back(packet.Request);
    if (packet.Request == kDnload) {
        blockNumbers_.push_back(packet.Value);
    }
}

HRESULT FakeUsbControlEndpoint::TakeFailure(std::uint8_t request) {
    for (Failure& failure : failures_) {
        if (failure.request != request || failure.count == 0) {
            continue;
        }
        if (failure.skip > 0) {
            --failure.skip;
            return S_OK;
        }
        --failure.count;
        return failure.result;
    }
    return S_OK;
}

HRESULT FakeUsbControlEndpoint::GetStatus(PUCHAR buffer) {
    const StatusAnswer answer = getStatus_ ? getStatus_() : StatusAnswer{.bState = state_};
    if (SUCCEEDED(answer.result) && answer.writes) {
        buffer[0] = answer.bStatus;
        buffer[1] = static_cast<UCHAR>(answer.bwPollTimeout & 0xFF);
        buffer[2] = static_cast<UCHAR>((answer.bwPollTimeout >> 8) & 0xFF);
        buffer[3] = static_cast<UCHAR>((answer.bwPollTimeout >> 16) & 0xFF);
        buffer[4] = answer.bState;
        buffer[5] = 0;
    }
    return answer.result;
}

void FakeUsbControlEndpoint::GetState(PUCHAR buffer) {
    if (!writesGetState_) {
        return;
    }
    if (getStateAnswers_.empty()) {
        *buffer = kIdle;
        return;
    }
    *buffer = getStateAnswers_.front();
    getStateAnswers_.pop_front();
}
