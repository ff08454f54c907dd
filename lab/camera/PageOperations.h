#pragma once

namespace lab {

// How often a flash has erased and written a page, those that power went at among them.
struct PageOperations {
    unsigned erased = 0;
    unsigned written = 0;
};

}  // namespace lab
