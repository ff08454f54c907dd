#pragma once

namespace test_support {

// Lets a fake's redirected functions reach the fake through a static pointer for exactly as long as the
// redirects are there: declared before them, it is made first and unmade last. Without it a thread of an
// earlier test that ends only now, and waits or yields once more, would meet a null pointer.
template <typename Fake>
class Reachable {
  public:
    Reachable(Fake*& current, Fake* fake) : current_(current) { current_ = fake; }
    ~Reachable() { current_ = nullptr; }

    Reachable(const Reachable&) = delete;
    Reachable& operator=(const Reachable&) = delete;

  private:
    Fake*& current_;
};

}  // namespace test_support
