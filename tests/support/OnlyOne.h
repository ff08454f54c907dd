#pragma once

#include <stdexcept>

namespace test_support {

// The base of a fake of which one exists at a time: its redirected functions, which belong to no object,
// reach it as `current_`. A base is made before the fake's redirects and unmade behind them: otherwise a
// thread of an earlier test that ends only now, and waits or yields once more, would meet a null pointer.
template <typename Fake>
class OnlyOne {
  public:
    OnlyOne(const OnlyOne&) = delete;
    OnlyOne& operator=(const OnlyOne&) = delete;

  protected:
    OnlyOne() {
        if (current_ != nullptr) {
            throw std::logic_error("one fake of a kind at a time");
        }
        current_ = static_cast<Fake*>(this);
    }
    ~OnlyOne() { current_ = nullptr; }

    static inline Fake* current_ = nullptr;
};

}  // namespace test_support
