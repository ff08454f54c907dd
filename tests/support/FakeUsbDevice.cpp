#include "tests/support/FakeUsbDevice.h"

#include "tests/support/DfuNumbers.h"

#include <algorithm>
#include <utility>

namespace test_support {
namespace {

std::uint8_t LowByte(std::uint16_t value) {
    return static_cast<std::uint8_t>(value & 0xFF);
}

std::uint8_t HighByte(std::uint16_t value) {
    return static_cast<std::uint8_t>(value >> 8);
}

}  // namespace

FakeUsbDevice::FakeUsbDevice(std::wstring deviceLink, std::uint16_t maximumTransfer)
    : link(std::move(deviceLink)),
      transferSize(maximumTransfer),
      deviceDescriptor{18, 1, 0x00, 0x02, 0, 0, 0, 64, 0x1A, 0x2F, 0x01, 0x7E, 0x00, 0x01, 1, 2, 3, 1} {
    SetInterfaces({{0, 0, 0xFE}});
}

void FakeUsbDevice::SetInterfaces(std::vector<Interface> list) {
    interfaces = std::move(list);
    const auto total = static_cast<std::uint16_t>(9 + 9 * interfaces.size() + 9);
    const auto count = static_cast<std::uint8_t>(interfaces.size());
    configurationDescriptor = {9, 2, LowByte(total), HighByte(total), count, 1, 0, 0x80, 50};
    for (const Interface& each : interfaces) {
        configurationDescriptor.insert(
            configurationDescriptor.end(),
            {9, 4, each.number, each.alternateSetting, 0, each.interfaceClass, 1, 2, 0});
    }
    configurationDescriptor.insert(
        configurationDescriptor.end(),
        {9, 0x21, 0x09, 0xE8, 0x03, LowByte(transferSize), HighByte(transferSize), 0x10, 0x01});
}

DWORD FakeUsbDevice::AnswerInDfuMode(const WINUSB_SETUP_PACKET& setup, std::span<std::uint8_t> data) {
    switch (setup.Request) {
        case kDetach:
            return ERROR_SUCCESS;
        case kDnload:
            blockNumbers.push_back(setup.Value);
            downloaded.insert(downloaded.end(), data.begin(), data.end());
            dfuState = data.empty() ? kManifestWaitReset : kDownloadIdle;
            return ERROR_SUCCESS;
        case kUpload:
            std::fill(data.begin(), data.end(), std::uint8_t{0});
            return ERROR_SUCCESS;
        case kGetStatus: {
            const std::vector<std::uint8_t> reply{dfuStatus, 0, 0, 0, dfuState, 0};
            std::copy_n(reply.begin(), std::min(reply.size(), data.size()), data.begin());
            return ERROR_SUCCESS;
        }
        case kGetState:
            if (!data.empty()) {
                data.front() = dfuState;
            }
            return ERROR_SUCCESS;
        default:
            return ERROR_GEN_FAILURE;
    }
}

}  // namespace test_support
