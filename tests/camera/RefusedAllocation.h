#pragma once

// While it lives, `new (std::nothrow)` of this program gives null: no memory. For one thread.
class RefusedAllocation {
  public:
    RefusedAllocation();
    ~RefusedAllocation();

    RefusedAllocation(const RefusedAllocation&) = delete;
    RefusedAllocation& operator=(const RefusedAllocation&) = delete;
};
