#include "dfu/DfuCommand.h"

#include "win32/BinaryFile.h"
#include "win32/UnquotedPath.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace dfu {
namespace {

constexpr std::uint16_t kDetachTimeoutMs = 1000;
constexpr DWORD kPollPeriodMs = 200;
constexpr std::uint32_t kBlockTimeoutMs = 5000;
constexpr std::uint32_t kManifestTimeoutMs = 30000;

// GETSTATUS reply. bwPollTimeout (bytes 1 to 3) is deliberately not used: the device is polled at a fixed
// period.
constexpr std::size_t kStatusReplySize = 6;
constexpr std::size_t kStatusByte = 0;
constexpr std::size_t kStateByte = 4;
using StatusReply = std::array<UCHAR, kStatusReplySize>;
constexpr StatusReply kNoStatusYet{kStatusErrUnknown, 0, 0, 0, static_cast<UCHAR>(DFU_STATE::dfuERROR), 0};

HRESULT GetStatus(usb_core::IUsbControlEndpoint& endpoint, StatusReply& reply) {
    reply = kNoStatusYet;
    WINUSB_SETUP_PACKET packet{kClassIn, kGetStatus, 0, 0, kStatusReplySize};
    return endpoint.Transfer(packet, reply.data(), reply.size());
}

}  // namespace

DfuCommand::DfuCommand(std::shared_ptr<usb_core::IUsbControlEndpoint> usbEndpoint, std::size_t fwStatusSize,
                       std::ostream* logStream, ProgressCallback progress)
    : DfuLogger(logStream),
      progress_(std::move(progress)),
      usbEndpoint_(std::move(usbEndpoint)),
      fwStatusSize_(fwStatusSize) {}

DfuCommand::~DfuCommand() = default;

HRESULT DfuCommand::UpdateFromFile(const wchar_t* path) {
    std::ifstream file = win32::OpenBinaryFile(win32::UnquotedPath(path));
    if (!file.is_open() || file.fail()) {
        // The address of the text, not the text: deliberate, the message has always had this form.
        LogLine("Failed to open file ", static_cast<const void*>(path));
        return E_FAIL;
    }

    file.seekg(0, std::ios::end);
    const std::streamoff size = file.tellg();
    file.seekg(0, std::ios::beg);
    std::vector<char> image(size > 0 ? static_cast<std::size_t>(size) : 0);
    file.read(image.data(), static_cast<std::streamsize>(image.size()));
    if (file.fail() || size < 0) {
        LogLine("Failed to read file");
        return E_FAIL;
    }
    return Update(image.data(), image.size());
}

HRESULT DfuCommand::Update(const void* firmwareImage, std::size_t imageLength) {
    if (!usbEndpoint_->IsConnected()) {
        return E_ACCESSDENIED;
    }

    std::int32_t state = 0;
    HRESULT result = GetDfuState(state);  // what it says is deliberately not examined
    if (FAILED(result)) {
        LogFailure("GetDfuState(state)", result);
        return result;
    }
    result = Detach();
    if (FAILED(result)) {
        LogFailure("Detach()", result);
        return result;
    }
    result = AssertState(DFU_STATE::dfuIDLE);
    if (FAILED(result)) {
        LogFailure("AssertState(DFU_STATE::dfuIDLE)", result);
        return result;
    }
    if (fwStatusSize_ != 0) {
        result = TestConnection();
        if (FAILED(result)) {
            LogFailure("TestConnection()", result);
            return result;
        }
    }
    result = DownloadImage(static_cast<const BYTE*>(firmwareImage), imageLength);
    if (FAILED(result)) {
        LogFailure("DownloadImage(reinterpret_cast<const BYTE *>(firmwareImage), imageLength)", result);
        return result;
    }
    result = ManifestAndReset();
    if (FAILED(result)) {
        LogFailure("ManifestAndReset()", result);
        return result;
    }
    return S_OK;
}

HRESULT DfuCommand::WaitForState(DFU_STATE wanted, std::uint32_t timeoutMs) {
    const ULONGLONG start = GetTickCount64();
    while (true) {
        StatusReply reply{};
        if (SUCCEEDED(GetStatus(*usbEndpoint_, reply))) {
            const auto state = static_cast<DFU_STATE>(reply[kStateByte]);
            const bool isOk = reply[kStatusByte] == kStatusOk;
            if (isOk && state == wanted) {
                return S_OK;
            }
            if (!isOk || state == DFU_STATE::dfuERROR) {
                return E_FAIL;
            }
        }
        Sleep(kPollPeriodMs);
        if (GetTickCount64() - start >= timeoutMs) {
            return E_FAIL;
        }
    }
}

HRESULT DfuCommand::DownloadImage(const BYTE* pBuffer, std::size_t length) {
    const std::uint16_t maxChunk = usbEndpoint_->GetMaxTransferSize();
    if (length == 0) {
        SendBlock(0, nullptr, 0);  // outcome deliberately ignored, as for every zero-length block
        return S_OK;
    }
    if (maxChunk == 0) {
        return E_FAIL;
    }

    std::uint16_t blockNumber = 0;
    std::size_t remaining = length;
    while (remaining > 0) {
        const auto chunkSize = static_cast<std::uint16_t>(std::min<std::size_t>(maxChunk, remaining));
        HRESULT result = SendBlock(blockNumber, pBuffer, chunkSize);
        if (FAILED(result)) {
            LogFailure("usbEndpoint->Transfer(downloadPacket, pBuffer, chunkSize)", result);
            return result;
        }
        result = WaitForState(DFU_STATE::dfuDNLOAD_IDLE, kBlockTimeoutMs);
        if (FAILED(result)) {
            LogFailure("WaitForState(DFU_STATE::dfuDNLOAD_IDLE, 5000)", result);
            return result;
        }
        ++blockNumber;
        remaining -= chunkSize;
        pBuffer += chunkSize;
        LogLine("Downloaded ", chunkSize, ", bytes remaining ", remaining);
        if (progress_) {
            progress_(blockNumber);
        }
    }
    SendBlock(blockNumber, nullptr, 0);
    return S_OK;
}

HRESULT DfuCommand::GetDfuState(std::int32_t& state) {
    state = 0;
    WINUSB_SETUP_PACKET packet{kClassIn, kGetState, 0, 0, sizeof(UCHAR)};
    const HRESULT result = usbEndpoint_->Transfer(packet, reinterpret_cast<PUCHAR>(&state), sizeof(UCHAR));
    if (FAILED(result)) {
        LogFailure("usbEndpoint->Transfer(packet, reinterpret_cast<PUCHAR>(&state), sizeof(UCHAR))", result);
    }
    return result;
}

HRESULT DfuCommand::Detach() {
    WINUSB_SETUP_PACKET packet{kClassOut, kDetach, kDetachTimeoutMs, 0, 0};
    const HRESULT result = usbEndpoint_->Transfer(packet, nullptr, 0);
    if (FAILED(result)) {
        LogFailure("usbEndpoint->Transfer(packet, nullptr, 0)", result);
    }
    return result;
}

HRESULT DfuCommand::AssertState(DFU_STATE wanted) {
    std::int32_t state = 0;
    const HRESULT result = GetDfuState(state);
    if (FAILED(result)) {
        LogFailure("GetDfuState(state)", result);
        return result;
    }
    return state == static_cast<std::int32_t>(wanted) ? S_OK : E_FAIL;
}

HRESULT DfuCommand::TestConnection() {
    std::vector<UCHAR> fwStatus(fwStatusSize_);
    WINUSB_SETUP_PACKET packet{kClassIn, kUpload, 0, 0, static_cast<USHORT>(fwStatusSize_)};
    const HRESULT result = usbEndpoint_->Transfer(packet, fwStatus.data(), fwStatusSize_);
    if (FAILED(result)) {
        LogFailure("usbEndpoint->Transfer(packet, reinterpret_cast<PUCHAR>(fwStatus.data()), fwStatusSize)",
                   result);
    }
    return result;
}

HRESULT DfuCommand::SendBlock(std::uint16_t blockNumber, const BYTE* block, std::uint16_t size) {
    WINUSB_SETUP_PACKET downloadPacket{kClassOut, kDnload, blockNumber, 0, size};
    return usbEndpoint_->Transfer(downloadPacket, const_cast<PUCHAR>(block), size);
}

HRESULT DfuCommand::ManifestAndReset() {
    const HRESULT result = WaitForState(DFU_STATE::dfuMANIFEST_WAIT_RESET, kManifestTimeoutMs);
    if (FAILED(result)) {
        LogFailure("WaitForState(DFU_STATE::dfuMANIFEST_WAIT_RESET, 30000)", result);
        return result;
    }
    StatusReply reply{};
    GetStatus(*usbEndpoint_, reply);  // the device is expected to reset: outcome deliberately ignored
    return S_OK;
}

}  // namespace dfu
