#pragma once

#include <stdexcept>

namespace campaign {

// The service did what it must not do; the text says what.
class BrokenRule : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Throws BrokenRule with the text unless the rule is kept.
inline void Rule(bool isKept, const char* rule) {
    if (!isKept) {
        throw BrokenRule(rule);
    }
}

}  // namespace campaign
