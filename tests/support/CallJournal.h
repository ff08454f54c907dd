#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace test_support {

// What several fakes saw, one line a call, in the order in which it happened. May be written from any thread.
class CallJournal {
  public:
    void Add(std::string line);
    [[nodiscard]] std::vector<std::string> Lines() const;
    void Forget();

  private:
    mutable std::mutex lock_;
    std::vector<std::string> lines_;
};

}  // namespace test_support
