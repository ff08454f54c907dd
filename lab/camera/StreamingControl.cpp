#include "lab/camera/StreamingControl.h"

#include "lab/camera/DescriptorWriter.h"
#include "lab/camera/UvcDescriptors.h"

#include <algorithm>

namespace lab {

std::optional<std::vector<std::uint8_t>> StreamingControl::Get(UvcRequest request,
                                                               std::uint8_t control) const {
    if (control != kProbe && control != kCommit) {
        return std::nullopt;
    }
    switch (request) {
        case UvcRequest::GetCur:
            return Negotiated();
        case UvcRequest::GetMin:
        case UvcRequest::GetMax:
        case UvcRequest::GetDef:
            return control == kProbe ? std::optional(Negotiated()) : std::nullopt;
        case UvcRequest::GetLen:
            return std::vector<std::uint8_t>{kSize, 0};
        case UvcRequest::GetInfo:
            return std::vector<std::uint8_t>{kCanGetAndSet};
        case UvcRequest::GetRes:
        case UvcRequest::SetCur:
            break;
    }
    return std::nullopt;
}

bool StreamingControl::Set(std::uint8_t control, std::span<const std::uint8_t> data) const {
    constexpr std::size_t kFormat = 2;  // format, frame, interval
    constexpr std::size_t kKeyFrameRate = 8;
    if (data.size() < kSizeOfUvc10 || data.size() > kSize) {
        return false;
    }
    if (control == kProbe) {
        return true;
    }
    const std::vector<std::uint8_t> negotiated = Negotiated();
    return control == kCommit &&
           std::equal(data.begin() + kFormat, data.begin() + kKeyFrameRate, negotiated.begin() + kFormat);
}

std::vector<std::uint8_t> StreamingControl::Negotiated() const {
    constexpr std::uint16_t kIntervalIsKept = 1;
    constexpr std::uint16_t kDelayMs = 33;
    constexpr std::uint8_t kFrameIdsAndEnds = 0x03;
    return DescriptorWriter()
        .Word(kIntervalIsKept)
        .Bytes({VideoFrame::kFormatIndex, VideoFrame::kFrameIndex})
        .Long(VideoFrame::kInterval)
        .Word(0)  // key frames, compression, window: none to choose
        .Word(0)
        .Word(0)
        .Word(0)
        .Word(kDelayMs)
        .Long(VideoFrame::kLargest)
        .Long(VideoPacketSize(speed_))
        .Long(VideoFrame::kClockHz)
        .Bytes({kFrameIdsAndEnds, 0, 0, 0})
        .Finish();
}

}  // namespace lab
