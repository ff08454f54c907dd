#pragma once

namespace check {

// Whether Windows has sessions and none of them is a user's; false, too, when it does not tell.
[[nodiscard]] bool IsNobodyLoggedOn();

}  // namespace check
