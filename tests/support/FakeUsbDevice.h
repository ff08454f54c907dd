#pragma once

#include <windows.h>
#include <winusb.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace test_support {

// What a scripted device answers to one control transfer: ERROR_SUCCESS, or the Win32 code with which the
// transfer fails.
using ControlAnswer = std::function<DWORD(const WINUSB_SETUP_PACKET& setup, std::span<std::uint8_t> data)>;

// A USB device for FakeUsbBus. As made, it is a camera in DFU mode with one interface, number 0, alternate
// setting 0, class 0xFE, that takes a download and then waits for its reset. A test changes what it wants
// otherwise.
struct FakeUsbDevice {
    struct Interface {
        std::uint8_t number;
        std::uint8_t alternateSetting;
        std::uint8_t interfaceClass;
    };

    FakeUsbDevice(std::wstring deviceLink, std::uint16_t transferSize);

    // Describes the device as having these interfaces, the first of them its main one, and a DFU functional
    // descriptor behind them.
    void SetInterfaces(std::vector<Interface> list);

    std::wstring link;
    std::uint16_t transferSize;
    std::vector<Interface> interfaces;
    std::vector<std::uint8_t> deviceDescriptor;         // 18 bytes
    std::vector<std::uint8_t> configurationDescriptor;  // whole: header and everything behind it
    // The last error that a descriptor read leaves when it succeeds with fewer bytes than asked for.
    DWORD shortReadError = ERROR_SUCCESS;
    // The length that a read of the whole configuration reports, when it is a lie.
    std::optional<ULONG> reportedConfigurationLength;
    // The length that every control transfer reports, when it is not that of its buffer.
    std::optional<ULONG> reportedTransferLength;

    // Answers every control transfer in place of the DFU mode below.
    ControlAnswer control;

    // The DFU mode: GETSTATE and GETSTATUS tell the state, DNLOAD stores, the zero-length DNLOAD ends the
    // image, after which the device waits for its reset. UPLOAD gives zeros.
    [[nodiscard]] DWORD AnswerInDfuMode(const WINUSB_SETUP_PACKET& setup, std::span<std::uint8_t> data);

    std::vector<std::uint8_t> downloaded;
    std::vector<std::uint16_t> blockNumbers;  // of every DNLOAD
    std::uint8_t dfuStatus = 0;
    std::uint8_t dfuState = 2;
};

}  // namespace test_support
