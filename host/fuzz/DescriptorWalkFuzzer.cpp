#include "dfu/DfuFunctionalDescriptor.h"
#include "dfu/WinUsbDfuConnection.h"
#include "host/fuzz/FuzzInput.h"
#include "host/fuzz/Promise.h"
#include "lab/camera/DfuDescriptors.h"
#include "tests/support/FakeUsbBus.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <string>
#include <vector>

// Opening a device whose descriptors are anything at all.
//
// Input: number of interfaces that the driver lists (modulo 5) and a byte for each, odd for a DFU interface;
// the length that the driver claims to have read (u16, 0 for the true one); whether a short read leaves a
// last error (odd: yes); a call that fails (0 for none; else its number, its last error as u16, and how many
// succeed first); the configuration descriptor.

namespace {

using fuzz::FuzzInput;
using fuzz::Promise;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kBufferSize = 1024;
constexpr const wchar_t* kLink = LR"(\\?\usb#vid_2f1a&pid_7e01#fuzz)";

// Where the functional descriptor stands, found by counting.
std::optional<std::size_t> PlaceOfFunctionalDescriptor(const Bytes& bytes) {
    for (std::size_t place = 0; place < bytes.size(); place += bytes[place]) {
        const std::size_t end = place + bytes[place];
        if (end == place || end > bytes.size()) {
            return std::nullopt;
        }
        if (end - place == 9 && bytes[place + 1] == 0x21) {
            return place;
        }
    }
    return std::nullopt;
}

std::uint16_t TransferSizeAt(const Bytes& bytes, std::size_t place) {
    return static_cast<std::uint16_t>(bytes[place + 5] | bytes[place + 6] << 8);
}

void CheckWalk(const Bytes& configuration) {
    const auto found = dfu::FindDfuFunctionalDescriptor(configuration);
    const auto place = PlaceOfFunctionalDescriptor(configuration);
    Promise(found.has_value() == place.has_value(), "the walk finds what is there, and nothing else");
    if (found) {
        const std::uint16_t transferSize = found->wTransferSize;
        Promise(transferSize == TransferSizeAt(configuration, *place),
                "the descriptor found is the first one");
    }
    for (const auto& descriptor : lab::FindInterfaces(configuration)) {
        Promise(std::search(configuration.begin(), configuration.end(), descriptor.begin(),
                            descriptor.end()) != configuration.end(),
                "the camera's own walk tells interfaces that are there");
    }
}

// What a device without failing calls must come to: its transfer size, or that it does not open.
std::optional<std::uint16_t> Expected(const test_support::FakeUsbDevice& device) {
    Bytes buffer = device.configurationDescriptor;
    if (buffer.size() < 9 && device.shortReadError != 0) {
        return std::nullopt;
    }
    const std::size_t transferred = std::min(buffer.size(), kBufferSize);
    buffer.resize(kBufferSize);
    const auto first = std::find_if(device.interfaces.begin(), device.interfaces.end(),
                                    [](const auto& interface) { return interface.interfaceClass == 0xFE; });
    const auto position = static_cast<std::size_t>(first - device.interfaces.begin());
    if (first == device.interfaces.end() || position >= buffer[4]) {
        return std::nullopt;
    }
    const std::size_t claimed = device.reportedConfigurationLength.value_or(static_cast<ULONG>(transferred));
    buffer.resize(std::min(claimed, kBufferSize));
    const auto place = PlaceOfFunctionalDescriptor(buffer);
    if (!place) {
        return std::nullopt;
    }
    return TransferSizeAt(buffer, *place);
}

void CheckOpening(FuzzInput& input) {
    constexpr std::array kCalls{"CreateFileW",
                                "WinUsb_Initialize",
                                "WinUsb_GetDescriptor",
                                "WinUsb_QueryInterfaceSettings",
                                "WinUsb_GetAssociatedInterface",
                                "WinUsb_SetCurrentAlternateSetting"};
    test_support::FakeUsbBus bus;
    test_support::FakeUsbDevice& device = bus.Add(kLink);
    device.interfaces.clear();
    const std::size_t listed = 1 + input.Byte() % 5;
    for (std::size_t number = 0; number < listed; ++number) {
        const auto kind = static_cast<std::uint8_t>(input.Byte() % 2 == 1 ? 0xFE : 0x0E);
        device.interfaces.push_back({static_cast<std::uint8_t>(number), 0, kind});
    }
    if (const std::uint16_t claimed = input.Word(); claimed != 0) {
        device.reportedConfigurationLength = claimed;
    }
    device.shortReadError = input.Byte() % 2 == 1 ? ERROR_GEN_FAILURE : ERROR_SUCCESS;
    const std::size_t failing = input.Byte() % (kCalls.size() + 1);
    if (failing != 0) {
        const std::uint16_t error = input.Word();
        bus.Fail(kCalls[failing - 1], error, input.Byte() % 4);
    }
    device.configurationDescriptor = input.Rest();
    CheckWalk(device.configurationDescriptor);

    {
        WinUsbDfuConnection connection(kLink);
        const auto endpoint = connection.AcquireEndpoint();
        Promise(connection.IsOpened() == (endpoint != nullptr), "an open device has an endpoint");
        if (failing == 0) {
            const auto expected = Expected(device);
            Promise(connection.IsOpened() == expected.has_value(), "a device opens when it describes itself");
            Promise(!expected || endpoint->GetMaxTransferSize() == *expected,
                    "its transfer size is the one told");
        }
        if (connection.IsOpened()) {
            Promise(bus.OpenInterfaces() == 1 && bus.OpenFiles() == 1, "only the main handle stays open");
        }
        connection.Close();
        Promise(!endpoint || !endpoint->IsConnected(), "a closed device's endpoint is not connected");
    }
    Promise(bus.OpenInterfaces() == 0 && bus.OpenFiles() == 0, "every handle is given back");
    Promise(bus.Calls().size() < 100, "opening ends");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    CheckOpening(input);
    return 0;
}
