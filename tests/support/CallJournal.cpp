#include "tests/support/CallJournal.h"

#include <utility>

namespace test_support {

void CallJournal::Add(std::string line) {
    const std::scoped_lock guard(lock_);
    lines_.push_back(std::move(line));
}

std::vector<std::string> CallJournal::Lines() const {
    const std::scoped_lock guard(lock_);
    return lines_;
}

void CallJournal::Forget() {
    const std::scoped_lock guard(lock_);
    lines_.clear();
}

}  // namespace test_support
