#pragma once

namespace lab::rig {

// Puts `replacement` where the process's executable imports the function of that name, whichever the DLL, and
// gives what was there; null, and nothing changed, when the executable does not import it. Safe in a DllMain.
void* RedirectImport(const char* functionName, void* replacement);

// RedirectImport with types. `original` is set only when the executable imports the function; the replacement
// is then the only one who calls it.
template <typename Function>
void Redirect(const char* functionName, Function* replacement, Function*& original) {
    original =
        reinterpret_cast<Function*>(RedirectImport(functionName, reinterpret_cast<void*>(replacement)));
}

// For what has no original to pass through to.
template <typename Function>
void Redirect(const char* functionName, Function* replacement) {
    RedirectImport(functionName, reinterpret_cast<void*>(replacement));
}

// Whether the executable imports the function of that name. Safe in a DllMain.
[[nodiscard]] bool IsImported(const char* functionName);

}  // namespace lab::rig
