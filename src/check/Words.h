#pragma once

#include "check/Judgement.h"
#include "check/MachineState.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// The words and the few texts that several of the program's outputs share.

namespace check {

inline constexpr std::string_view kUnknownVersion = "0.0.0.0";
// The category of the plain capture devices, whose listings the service passes over.
inline constexpr std::string_view kCaptureListing = "capture";

[[nodiscard]] std::string_view Word(RunState state);
[[nodiscard]] std::string_view Word(StartType type);
[[nodiscard]] std::string_view Word(Permission permission);
[[nodiscard]] std::string_view Word(Severity severity);
[[nodiscard]] std::string_view Word(Verdict verdict);
[[nodiscard]] std::string_view Word(CameraStanding standing);

// "error 5" for a Win32 code, "0x80004005" for an HRESULT.
[[nodiscard]] std::string Code(std::uint32_t code);
// With eight digits: 0x80004005.
[[nodiscard]] std::string Hex(std::uint32_t value);
// "a, b and c".
[[nodiscard]] std::string Listed(const std::vector<std::string>& words);
// In ASCII, as account names and the registry's words are compared.
[[nodiscard]] bool EqualsIgnoringCase(std::string_view left, std::string_view right);

}  // namespace check
