#include "lab/camera/RuntimeInterface.h"

namespace lab {

void RuntimeInterface::Restart() {
    state_ = DfuState::AppIdle;
    deadline_.reset();
}

TransferEnd RuntimeInterface::Handle(const SetupPacket& setup, std::uint64_t nowMs,
                                     std::vector<std::uint8_t>& reply) {
    const bool toHost = (setup.requestType & 0x80) != 0;
    const DfuRequest request{setup.request};
    if (!toHost && request == DfuRequest::Detach && state_ == DfuState::AppIdle) {
        state_ = DfuState::AppDetach;
        deadline_ = nowMs + setup.value;
        return TransferEnd::Ok;
    }
    if (toHost && request == DfuRequest::GetStatus) {
        reply = {0, 0, 0, 0, static_cast<std::uint8_t>(state_), 0};
        return TransferEnd::Ok;
    }
    if (toHost && request == DfuRequest::GetState) {
        reply = {static_cast<std::uint8_t>(state_)};
        return TransferEnd::Ok;
    }
    Restart();
    return TransferEnd::Stall;
}

}  // namespace lab
