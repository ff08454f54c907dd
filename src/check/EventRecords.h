#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace check {

// What the event logs hold of the service and the toast controller, and of what Windows itself says of them,
// as XML without persons and the names (see EventWithoutPersons); the newest 1000 of each log. `error` says
// why there is none, or not all. The result is empty when there is no record and no log was read to its end.
[[nodiscard]] std::string ReadEventRecords(const std::vector<std::string>& names, DWORD& error);

}  // namespace check
