#pragma once

#include <optional>
#include <string>

// The update mode as it stands in the machine's registry; takes its key away before and after a test.
class StoredUpdateMode {
  public:
    StoredUpdateMode();
    ~StoredUpdateMode();

    StoredUpdateMode(const StoredUpdateMode&) = delete;
    StoredUpdateMode& operator=(const StoredUpdateMode&) = delete;

    // The text of the REG_SZ value; empty when there is no such value.
    [[nodiscard]] std::optional<std::wstring> Text() const;
};
