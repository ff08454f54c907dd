#pragma once

namespace toast {

// How a registration or its removal ended; the program's exit codes.
enum class RegistrationResult {
    kDone = 0,
    kFailed = 1,        // neither of the others
    kAccessDenied = 3,  // the caller may not write there: it is for administrators
    kOtherProgram = 4,  // another program, whose file is there, is registered for the class
};

// Records this program for the machine as the local server of the toast controller's class, with its type
// library, its AppID and its event source. Nothing is written, or all of it; a program of somebody else that
// is registered stays as it is. May be repeated.
[[nodiscard]] RegistrationResult Register();

// Removes everything that Register writes, when nothing was there too. Another program's registration stays.
[[nodiscard]] RegistrationResult Unregister();

}  // namespace toast
