#include "host/bench/BareDownload.h"

#include "dfu/DfuProtocol.h"

#include <algorithm>
#include <array>

namespace bench {
namespace {

void GetState(CameraEndpoint& endpoint) {
    UCHAR state = 0;
    WINUSB_SETUP_PACKET packet{dfu::kClassIn, dfu::kGetState, 0, 0, sizeof state};
    endpoint.Transfer(packet, &state, sizeof state);
}

void Detach(CameraEndpoint& endpoint) {
    WINUSB_SETUP_PACKET packet{dfu::kClassOut, dfu::kDetach, 1000, 0, 0};
    endpoint.Transfer(packet, nullptr, 0);
}

void Probe(CameraEndpoint& endpoint) {
    std::array<UCHAR, 68> reply{};
    WINUSB_SETUP_PACKET packet{dfu::kClassIn, dfu::kUpload, 0, 0, static_cast<USHORT>(reply.size())};
    endpoint.Transfer(packet, reply.data(), reply.size());
}

void SendBlock(CameraEndpoint& endpoint, std::uint16_t number, const BYTE* block, std::size_t size) {
    WINUSB_SETUP_PACKET packet{dfu::kClassOut, dfu::kDnload, number, 0, static_cast<USHORT>(size)};
    endpoint.Transfer(packet, const_cast<PUCHAR>(block), size);
}

void GetStatus(CameraEndpoint& endpoint) {
    std::array<UCHAR, 6> reply{};
    WINUSB_SETUP_PACKET packet{dfu::kClassIn, dfu::kGetStatus, 0, 0, static_cast<USHORT>(reply.size())};
    endpoint.Transfer(packet, reply.data(), reply.size());
}

}  // namespace

void DownloadBare(const ReadyCamera& camera, const std::vector<std::uint8_t>& image) {
    CameraEndpoint& endpoint = *camera.Endpoint();
    GetState(endpoint);
    Detach(endpoint);
    GetState(endpoint);
    Probe(endpoint);
    std::uint16_t number = 0;
    for (std::size_t offset = 0; offset < image.size(); offset += kBlockSize) {
        SendBlock(endpoint, number++, image.data() + offset, std::min(kBlockSize, image.size() - offset));
        GetStatus(endpoint);
    }
    SendBlock(endpoint, number, nullptr, 0);
    GetStatus(endpoint);
    GetStatus(endpoint);
}

}  // namespace bench
