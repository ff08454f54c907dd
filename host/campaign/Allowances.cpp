#include "host/campaign/Allowances.h"

#include <array>

namespace campaign {
namespace {

constexpr std::array<Allowance, 4> kAllowances{{
    {"state is believed",
     "a camera that tells dfuMANIFEST-WAIT-RESET is taken for updated, though it has not manifested: its "
     "state is all that the service looks at, nothing is read back"},
    {"half an image is started",
     "the boot loader looks at the first page alone, and starts what a power failure has left: no host can "
     "see it"},
    {"version decides",
     "such half an image has the version of the whole one: the service compares versions, and asks nobody"},
    {"version is missing",
     "such half an image ends before its version, and the camera tells 0.0.0.0: the service takes that for "
     "no answer, and asks nobody"},
}};

}  // namespace

std::span<const Allowance> Allowances() {
    return kAllowances;
}

}  // namespace campaign
