#pragma once

#include "host/campaign/Crossing.h"
#include "host/campaign/VirtualTime.h"

#include <array>
#include <cstdint>
#include <optional>

namespace campaign {

// Knows what the service may ask a running camera, and when, from what it was answered: the read of the
// device information block in at most five attempts, and the command into DFU mode. Written from what a
// camera and its operator are promised, not from the service's code. Throws BrokenRule.
class PassJudge {
  public:
    explicit PassJudge(const VirtualTime& time) : time_(time) {}

    void BeginReading();
    // The four bytes of the version, least significant first; none when no attempt has told it.
    [[nodiscard]] std::optional<std::array<std::uint8_t, 4>> EndReading() const;
    void BeginSwitch();
    // `result` is what the service was told of it, an HRESULT.
    void EndSwitch(std::int32_t result) const;

    void OnCrossing(const Crossing& crossing);

  private:
    enum class Step { Nothing, WriteInformation, ReadInformation, WriteSwitch, ReadSwitch };

    void TakeInformation(const Crossing& crossing);
    [[nodiscard]] static bool IsAnswer(const Crossing& crossing, std::uint8_t opcode, std::size_t length);
    void EndAttempt();

    const VirtualTime& time_;
    Step step_ = Step::Nothing;
    std::int32_t switchResult_ = 0;
    int attempts_ = 0;
    std::uint64_t nextAtMs_ = 0;
    std::optional<std::array<std::uint8_t, 4>> version_;
};

}  // namespace campaign
