#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace check {

// The program that a command line means, and what Windows may take for it.
struct ProgramName {
    bool isQuoted = false;
    std::string path;
    // Files that Windows tries before it, in that order: a path that is not quoted ends, for it, at each of
    // its blanks.
    std::vector<std::string> triedBefore;
};

// Of a command line of any length and content. Not quoted, the first beginning that ends in ".exe" before a
// blank or the end is meant, or else the first word. Empty for an empty line.
[[nodiscard]] ProgramName ProgramNameOf(std::string_view commandLine);

// The folder of a path, without the last backslash; empty when it has none.
[[nodiscard]] std::string FolderOf(std::string_view path);

// The part behind the last backslash.
[[nodiscard]] std::string FileNameOf(std::string_view path);

}  // namespace check
