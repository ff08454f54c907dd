#pragma once

namespace toast {

enum class ServerResult {
    kDone = 0,
    kFailed = 1,          // COM or Windows' windows cannot be had, or this file has no type library
    kAlreadyRunning = 5,  // another process of the session offers the class
};

// Offers the class on the calling thread until it is no longer used. COM stays initialised, and a client that
// slipped in at the end may still be calling: the process has to end next, without destroying anything.
[[nodiscard]] ServerResult RunToastController();

}  // namespace toast
