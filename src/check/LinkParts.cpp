#include "check/LinkParts.h"

#include "check/Words.h"

#include <algorithm>

namespace check {
namespace {

constexpr std::string_view kCaptureClass = "65e8773d-8f56-11d0-a3b9-00a0c9223196";
constexpr std::string_view kSensorClass = "24e552d7-6523-47f7-a647-d3465bf1f5ca";
constexpr std::string_view kVideoClass = "e5323777-f976-4f5b-9b55-b94699c46e44";

std::string Folded(std::string_view text) {
    std::string folded(text);
    std::transform(folded.begin(), folded.end(), folded.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
    });
    return folded;
}

}  // namespace

std::string DeviceOfLink(std::string_view link) {
    const std::string folded = Folded(link);
    return folded.substr(0, folded.rfind("#{"));
}

std::string_view CategoryOfLink(std::string_view link) {
    if (link.find(kCaptureClass) != std::string_view::npos) {
        return kCaptureListing;
    }
    const std::string folded = Folded(link);
    if (folded.find(kSensorClass) != std::string::npos) {
        return "sensor camera";
    }
    return folded.find(kVideoClass) != std::string::npos ? "video camera" : "other";
}

}  // namespace check
