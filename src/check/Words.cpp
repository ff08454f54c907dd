#include "check/Words.h"

#include <algorithm>

namespace check {
namespace {

constexpr std::uint32_t kFailure = 0x80000000;

char Lower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

}  // namespace

std::string_view Word(RunState state) {
    switch (state) {
        case RunState::Stopped:
            return "stopped";
        case RunState::StartPending:
            return "starting";
        case RunState::StopPending:
            return "stopping";
        case RunState::Running:
            return "running";
        case RunState::ContinuePending:
            return "continuing";
        case RunState::PausePending:
            return "pausing";
        case RunState::Paused:
            return "paused";
        case RunState::Unknown:
            break;
    }
    return "unknown";
}

std::string_view Word(StartType type) {
    switch (type) {
        case StartType::Boot:
            return "boot";
        case StartType::System:
            return "system";
        case StartType::Automatic:
            return "automatic";
        case StartType::Manual:
            return "manual";
        case StartType::Disabled:
            return "disabled";
    }
    return "unknown";
}

std::string_view Word(Permission permission) {
    switch (permission) {
        case Permission::NotSet:
            return "not set";
        case Permission::Granted:
            return "granted";
        case Permission::Refused:
            return "refused";
        case Permission::Unreadable:
            break;
    }
    return "unreadable";
}

std::string_view Word(Severity severity) {
    switch (severity) {
        case Severity::Fault:
            return "fault";
        case Severity::Warning:
            return "warning";
        case Severity::Note:
            break;
    }
    return "note";
}

std::string_view Word(Verdict verdict) {
    switch (verdict) {
        case Verdict::UpToDate:
            return "up to date";
        case Verdict::UpdateOffered:
            return "update offered";
        case Verdict::NotReady:
            return "not ready";
        case Verdict::CameraTrouble:
            break;
    }
    return "camera trouble";
}

std::string_view Word(CameraStanding standing) {
    switch (standing) {
        case CameraStanding::UpToDate:
            return "up to date";
        case CameraStanding::Older:
            return "older than the image";
        case CameraStanding::Newer:
            return "newer than the image";
        case CameraStanding::VersionUnknown:
            return "version unknown";
        case CameraStanding::NotUpdatable:
            return "listed as capture alone";
        case CameraStanding::NotOpened:
            return "not opened";
        case CameraStanding::WithoutUnit:
            return "no firmware extension unit";
        case CameraStanding::ImageUnknown:
            break;
    }
    return "image unknown";
}

std::string Code(std::uint32_t code) {
    return code >= kFailure ? Hex(code) : "error " + std::to_string(code);
}

std::string Hex(std::uint32_t value) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text = "0x";
    for (int shift = 28; shift >= 0; shift -= 4) {
        text += kDigits[(value >> static_cast<unsigned>(shift)) & 0xFU];
    }
    return text;
}

std::string Listed(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t index = 0; index < words.size(); ++index) {
        if (index != 0) {
            text += index + 1 == words.size() ? " and " : ", ";
        }
        text += words[index];
    }
    return text;
}

bool EqualsIgnoringCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return Lower(a) == Lower(b); });
}

}  // namespace check
