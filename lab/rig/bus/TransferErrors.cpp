#include "lab/rig/bus/TransferErrors.h"

namespace lab::rig {
namespace {

constexpr DWORD kErrorNoSuchDevice = 433;
constexpr std::uint64_t kTakingAwayMs = 500;

}  // namespace

DWORD GoneError(std::uint64_t leftForMs) {
    return leftForMs < kTakingAwayMs ? DWORD{ERROR_BAD_COMMAND} : kErrorNoSuchDevice;
}

}  // namespace lab::rig
