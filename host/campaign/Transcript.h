#pragma once

#include "host/campaign/Trial.h"

#include <ostream>

namespace campaign {

// Writes a trial as lines of JSON, in the words of the laboratory's transcripts: its steps and all that
// crosses. Nothing in it is of this process or of this machine.
class Transcript final : public Trial::Audience {
  public:
    // The stream is not owned.
    explicit Transcript(std::ostream& stream) : stream_(stream) {}

    void OnStep(const std::string& words) override;
    void OnCrossing(const Crossing& crossing) override;
    void OnUpdate(std::size_t camera, unsigned number) override;
    void OnUpdateEnd(const UpdateEnd& end) override;
    void OnBroken(bool isByCrossing, std::string_view next) override;

  private:
    std::ostream& stream_;
};

}  // namespace campaign
