#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace campaign {

// The service did what it must not do; the text says what.
class BrokenRule : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// It did so on a road without any fault.
class BrokenRoad : public BrokenRule {
  public:
    BrokenRoad(std::string id, const std::string& rule) : BrokenRule(rule), id_(std::move(id)) {}

    // Of the trial.
    [[nodiscard]] const std::string& Id() const { return id_; }

  private:
    std::string id_;
};

// Throws BrokenRule with the text unless the rule is kept.
inline void Rule(bool isKept, const char* rule) {
    if (!isKept) {
        throw BrokenRule(rule);
    }
}

}  // namespace campaign
