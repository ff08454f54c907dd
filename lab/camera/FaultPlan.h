#pragma once

#include "lab/camera/Fault.h"

#include <cstdint>
#include <vector>

namespace lab {

// The faults of a scenario, and which of them strike now. Not thread-safe.
class FaultPlan {
  public:
    explicit FaultPlan(const std::vector<Fault>& faults);

    // Counts one request of this kind and answers the faults that strike it, in the order of the list.
    [[nodiscard]] std::vector<Fault> Strike(Fault::Where where);

    // How many of the faults have struck.
    [[nodiscard]] std::size_t Met() const;

  private:
    struct Entry {
        Fault fault;
        std::uint64_t seen = 0;  // requests of its kind so far
    };

    std::vector<Entry> entries_;
};

}  // namespace lab
