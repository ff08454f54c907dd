#pragma once

namespace toast {

// What the program was started for.
enum class ProgramAction { kNone, kRegister, kUnregister, kServe };

// What a whole command line asks for: "/RegServer", "/UnregServer" or "/Embedding", in either case and with
// "-" or
// "/". The first such word decides. The first word of the line is looked at like any other, because a creator
// that names the program apart from the line need not repeat it there.
[[nodiscard]] ProgramAction ActionOf(const wchar_t* commandLine);

}  // namespace toast
