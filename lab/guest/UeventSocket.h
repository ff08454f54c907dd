#pragma once

#include <optional>

#include "lab/guest/FileDescriptor.h"
#include "lab/guest/Uevent.h"

namespace lab::guest {

// Hears what the kernel tells about its devices, from its construction on.
class UeventSocket {
  public:
    // Throws std::system_error.
    UeventSocket();

    // What to poll for reading.
    [[nodiscard]] int Descriptor() const { return socket_.Number(); }

    // The next uevent; nothing when there is none yet. What did not come from the kernel, or is no uevent, is
    // left out. Throws std::system_error; ENOBUFS means that some were lost, and the next call goes on behind
    // them.
    [[nodiscard]] std::optional<Uevent> Next();

  private:
    FileDescriptor socket_;
};

}  // namespace lab::guest
