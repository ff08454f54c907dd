#pragma once

#include "lab/camera/Fault.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace lab {

// The place of a DFU request; none when the standard has no such request.
[[nodiscard]] std::optional<Fault::Where> FaultPlaceOf(std::uint8_t request);

// The faults of a scenario, and which of them strike now. Not thread-safe.
class FaultPlan {
  public:
    explicit FaultPlan(const std::vector<Fault>& faults);

    // Whether what it does goes with its place and its moment; one that does not never strikes.
    [[nodiscard]] static bool CanStrike(const Fault& fault);

    // Counts one request of this kind and answers the faults that strike it, in the order of the list: of
    // those by which it fails the first alone, and otherwise each whose change of the answer no other one
    // hides.
    [[nodiscard]] std::vector<Fault> Strike(Fault::Where where);

    // How many of the faults have struck, others hiding none of them.
    [[nodiscard]] std::size_t Met() const;

  private:
    struct Entry {
        Fault fault;
        std::uint64_t seen = 0;  // requests of its kind so far
        bool hasStruck = false;
    };

    std::vector<Entry> entries_;
};

}  // namespace lab
