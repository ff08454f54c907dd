#pragma once

namespace lab {

// The least that a service can be: it says that it runs, lets every device event pass, and waits until it is
// stopped. What the product's own service costs is measured against it. Hands the process to the service
// control dispatcher; the exit status, 1 when there is none.
[[nodiscard]] int RunMinimalService();

}  // namespace lab
