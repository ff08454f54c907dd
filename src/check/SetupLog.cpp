#include "check/SetupLog.h"

#include "check/Redaction.h"

#include <algorithm>

namespace check {
namespace {

constexpr std::string_view kVendor = "VID_2F1A";

bool HasVendor(std::string_view text) {
    const auto* const found =
        std::search(text.begin(), text.end(), kVendor.begin(), kVendor.end(), [](char left, char right) {
            return (left >= 'a' && left <= 'z' ? static_cast<char>(left - 'a' + 'A') : left) == right;
        });
    return found != text.end();
}

}  // namespace

std::string VendorSections(std::string_view log, const std::vector<std::string>& names) {
    std::string kept;
    std::string section;
    bool hasEnded = false;
    const auto close = [&] {
        if (HasVendor(section)) {
            kept += WithoutTraces(section, names) + "\n";
        }
        section.clear();
        hasEnded = false;
    };
    while (!log.empty()) {
        const std::string_view line = log.substr(0, log.find('\n'));
        log.remove_prefix(std::min(line.size() + 1, log.size()));
        const bool begins = line.starts_with(">>>");
        const bool ends = line.starts_with("<<<");
        if ((begins && (hasEnded || section.find("Section start") != std::string::npos)) ||
            (hasEnded && !ends)) {
            close();
        }
        if (begins || ends || !section.empty()) {
            section += std::string(line) + "\n";
        }
        hasEnded = hasEnded || ends;
    }
    close();
    return kept;
}

}  // namespace check
