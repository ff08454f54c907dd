#include "tests/dfu/FakeUsbControlEndpoint.h"

#include "tests/support/DfuNumbers.h"
#include "tests/support/Text.h"

#include <algorithm>

namespace {

using namespace test_support;

constexpr std::uint8_t kDeviceToHost = 0x80;
constexpr USHORT kInterfaceNumber = 7;

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
    std::string text = Text(Hex(packet.RequestType, 2), ' ', Hex(packet.Request, 2), ' ',
                            Hex(packet.Value, 4), ' ', Hex(packet.Index, 4), ' ', Hex(packet.Length, 4));
    if (buffer == nullptr && length == 0) {
        text += " none";
    } else if ((packet.RequestType & kDeviceToHost) != 0) {
        text += Text(" in ", length, " [", HexBytes(buffer, length), ']');
    } else {
        text += " out " + HexBytes(buffer, length);
    }
    requests_.push_back(text);
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
