#pragma once

#include <string_view>

namespace campaign {

// Has whoever ends the process from outside of it, a sanitizer, a signal of a crash or of too much time, say
// which trial it was: as a line {"died": "ID"} on standard output.
class CurrentTrial {
  public:
    CurrentTrial() = delete;

    // To be called once, before the first trial; without it nothing happens.
    static void Watch();
    // The trial that begins. It has a minute.
    static void Set(std::string_view id);
};

}  // namespace campaign
