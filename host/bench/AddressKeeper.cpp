#include "host/bench/AddressKeeper.h"

#include "dfu/DfuProtocol.h"

#include <cstring>

namespace bench {

HRESULT AddressKeeper::Transfer(WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) {
    if (packet.Request == dfu::kDnload && length != 0) {
        first_ = first_ == nullptr ? buffer : first_;
        next_ = next_ == nullptr ? buffer : next_;
        areInOneRow_ = areInOneRow_ && buffer == next_;
        next_ += length;
    }
    isOver_ = isOver_ || (packet.Request == dfu::kDnload && length == 0);
    if (packet.Request == dfu::kGetState) {
        *buffer = static_cast<UCHAR>(dfu::DFU_STATE::dfuIDLE);
    } else if (packet.Request == dfu::kGetStatus) {
        constexpr std::size_t kState = 4;
        std::memset(buffer, 0, length);
        buffer[kState] = static_cast<UCHAR>(isOver_ ? dfu::DFU_STATE::dfuMANIFEST_WAIT_RESET
                                                    : dfu::DFU_STATE::dfuDNLOAD_IDLE);
    }
    return S_OK;
}

}  // namespace bench
