#pragma once

#include <windows.h>

#include <functional>
#include <vector>

#include "toast/registration/RegistryValue.h"

namespace toast {

// Changes below HKEY_LOCAL_MACHINE that are made together or not at all: what has been written is taken back
// when this object goes, the last first, unless they are kept. Used by one thread.
class RegistryChanges {
  public:
    RegistryChanges() = default;
    ~RegistryChanges();

    RegistryChanges(const RegistryChanges&) = delete;
    RegistryChanges& operator=(const RegistryChanges&) = delete;

    // Writes a value, with its key. A Win32 error.
    [[nodiscard]] LSTATUS Write(const RegistryValue& value);

    // They stay.
    void Keep() { undo_.clear(); }

  private:
    std::vector<std::function<void()>> undo_;
};

// Deletes keys with all that is in them; a key that is not there is as good as deleted. Each is tried for
// access first: when that is refused to one of them, none is deleted. A Win32 error, the first of them.
[[nodiscard]] LSTATUS DeleteKeys(const std::vector<std::wstring>& keys);

}  // namespace toast
