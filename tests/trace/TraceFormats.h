#pragma once

#include <filesystem>
#include <istream>
#include <string>
#include <vector>

// One message as a trace-format file describes it.
struct TraceFormat {
    struct Argument {
        std::string name;
        std::string type;  // "ItemLong"...
    };

    std::string group;  // the GUID in braces, upper case
    unsigned number;
    std::string text;  // with a place for each argument that it shows: %10!s! for the first
    unsigned level;
    unsigned flags;
    std::vector<Argument> arguments;
};

// Reads one trace-format file, called `name`. Takes nothing but what the files of this system have: comments,
// then the line of the group, named after the file, then its messages. Throws std::runtime_error, with the
// line's number, for anything else: a place in a text that has no argument or shows it in a way that its type
// does not allow, a type that is not known, a number that comes twice.
[[nodiscard]] std::vector<TraceFormat> ReadTraceFormats(std::istream& file, const std::string& name);

// Reads every trace-format file of a folder. Throws std::runtime_error also when there is none and when two
// files have one group.
[[nodiscard]] std::vector<TraceFormat> ReadTraceFormats(const std::filesystem::path& folder);

// The message in words. Throws std::runtime_error when the arguments, each the bytes that were sent, are not
// exactly those that the format describes.
[[nodiscard]] std::string Format(const TraceFormat& format, const std::vector<std::string>& arguments);
