#pragma once

#include "host/campaign/Crossing.h"
#include "lab/camera/Fault.h"
#include "lab/camera/FlashMemory.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace campaign {

// Every fault that can strike a faultless update: for each thing that the service asks of the camera, and for
// each page operation of the flash, each kind of fault at each moment at which it makes a difference. Of
// looks at the state one after the other that are answered alike, the first two and the last stand for all.
class FaultCatalogue {
  public:
    // Notes a step of a faultless update, in the order of the road.
    void AddStep(const Crossing& crossing);
    // And how many pages its flash has erased and written.
    void AddPages(const lab::PageOperations& operations);

    // In the order of the road, the page operations last.
    [[nodiscard]] const std::vector<lab::Fault>& Faults() const { return faults_; }
    // Of the road, and those of them that others stand for.
    [[nodiscard]] std::size_t Steps() const { return steps_; }
    [[nodiscard]] std::size_t Repeats() const { return repeats_; }
    // The faults that would strike at these.
    [[nodiscard]] std::size_t Forgotten() const { return forgotten_; }

  private:
    void ForgetRepeat(const Crossing& crossing);
    void Add(lab::Fault::Where where, lab::Fault::What what,
             lab::Fault::Moment moment = lab::Fault::Moment::Before, std::uint32_t value = 0);
    void AddRead(lab::Fault::Where where);
    void AddLostAnswer(lab::Fault::Where where);
    void AddCommand(lab::Fault::Where where);
    void AddDescriptor(const Crossing& crossing);
    void AddRequest(lab::Fault::Where where, bool hasBlock);
    void AddSilence(lab::Fault::Where where);
    void AddStatus(std::uint8_t state);

    std::vector<lab::Fault> faults_;
    std::map<lab::Fault::Where, unsigned> seen_;
    std::size_t steps_ = 0;
    std::size_t repeats_ = 0;
    std::size_t forgotten_ = 0;
    std::vector<std::uint8_t> lastAnswer_;  // of the step before, when it was a look at the state
    std::size_t alike_ = 0;                 // such steps so far that were answered so
    std::size_t lastFault_ = 0;             // the first fault of the step before
};

}  // namespace campaign
