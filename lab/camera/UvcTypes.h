#pragma once

#include <cstdint>

namespace lab {

// Class requests (bRequest) of the UVC 1.1 standard, with its numbers.
enum class UvcRequest : std::uint8_t {
    SetCur = 0x01,
    GetCur = 0x81,
    GetMin = 0x82,
    GetMax = 0x83,
    GetRes = 0x84,
    GetLen = 0x85,
    GetInfo = 0x86,
    GetDef = 0x87,
};

// What the video control interface's request error code control tells of the last request.
enum class UvcError : std::uint8_t {
    None = 0x00,
    InvalidUnit = 0x05,
    InvalidControl = 0x06,
    InvalidRequest = 0x07,
    Unknown = 0xFF,
};

// What GET_INFO tells of a control that can be read and written.
inline constexpr std::uint8_t kCanGetAndSet = 0x03;

// The numbers of the running camera's interfaces.
inline constexpr std::uint8_t kVideoControlInterface = 0;
inline constexpr std::uint8_t kVideoStreamingInterface = 1;
inline constexpr std::uint8_t kRuntimeDfuInterface = 2;

// Where pictures would come from.
inline constexpr std::uint8_t kVideoEndpoint = 0x81;

// The one format and frame, by its numbers in the descriptors.
struct VideoFrame {
    static constexpr std::uint8_t kFormatIndex = 1;
    static constexpr std::uint8_t kFrameIndex = 1;
    static constexpr std::uint16_t kWidth = 1280;
    static constexpr std::uint16_t kHeight = 720;
    static constexpr std::uint32_t kInterval = 333'333;        // in units of 100 ns
    static constexpr std::uint32_t kLargest = 1280 * 720 * 2;  // bytes of a picture
    static constexpr std::uint32_t kClockHz = 48'000'000;
};

}  // namespace lab
