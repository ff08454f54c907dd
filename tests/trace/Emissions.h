#pragma once

#include "tests/trace/TraceFormats.h"

#include <windows.h>

#include <string>
#include <vector>

// One message that the program sends, as seen over all that makes it send it.
struct Emission {
    std::string group;  // the GUID in braces, upper case
    unsigned number;
    unsigned lowestLevel;  // of a session that gets it
    bool needsFlag1;       // whether a session gets it exactly when bit 0 of its flags is set
    std::vector<std::vector<std::string>> arguments;  // of each time it was sent: the bytes of each argument
};

// A message whose emitter no input reaches, and why.
struct UnreachableEmission {
    std::string group;
    unsigned number;
    const char* reason;
};

// Runs every emitter of the program and listens to what it sends. The registry is the machine's own.
[[nodiscard]] std::vector<Emission> AllEmissions();

// What does not agree between the texts and the program, one line each: a message without a text, a text
// without an emitter, arguments that are not of the types that the text has, another level or flag.
[[nodiscard]] std::vector<std::string> Complaints(const std::vector<TraceFormat>& formats,
                                                  const std::vector<Emission>& emissions,
                                                  const std::vector<UnreachableEmission>& unreachable);
