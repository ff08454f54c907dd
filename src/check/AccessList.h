#pragma once

#include "check/MachineState.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace check {

// One entry of an access control list.
struct AccessEntry {
    bool allows = true;
    bool isForChildrenOnly = false;
    std::string trustee;  // the text of its SID
    std::uint32_t rights = 0;
};

// What a security descriptor says: its owner and its list, in order.
struct AccessList {
    std::string owner;
    bool letsEverybody = false;  // there is no list at all
    std::vector<AccessEntry> entries;
};

// Reads a self-relative security descriptor, such as stands in the registry. Everything that it refers to has
// to lie within its bytes; empty when something does not. Entries that neither allow nor refuse are passed
// over, as are those for single properties.
[[nodiscard]] std::optional<AccessList> ReadAccessList(std::span<const std::uint8_t> descriptor);

// What somebody has to be allowed to put another program into the place of one.
enum class Protected { File, Folder };

// The SIDs of those that can do so, besides Windows itself and the administrators: by the list, or because
// they own the thing and may change the list. Each once, in the list's order.
[[nodiscard]] std::vector<std::string> Writers(const AccessList& list, Protected what);

// Whether LocalService may launch and activate a COM server on this machine, or call it, by the list that
// stands in the registry.
[[nodiscard]] Permission LaunchPermissionOf(const AccessList& list);
[[nodiscard]] Permission AccessPermissionOf(const AccessList& list);

// Whether LocalService may read a file, by the file's list.
[[nodiscard]] Permission ReadPermissionOf(const AccessList& list);

}  // namespace check
