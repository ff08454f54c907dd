#pragma once

#include <string>
#include <vector>

namespace check {

// What Windows calls this computer, UTF-8: by NetBIOS, which cuts a name after 15 letters, by DNS, its
// domain, and both together. What it has not, or Windows does not tell, is left out.
[[nodiscard]] std::vector<std::string> ComputerNames();

}  // namespace check
