#include "tests/lab/camera/UsbHost.h"

#include "tests/lab/camera/CameraDriver.h"

#include <stdexcept>
#include <utility>

namespace lab::test {
namespace {

constexpr std::uint8_t kUntouched = 0xEE;
constexpr std::uint16_t kExtensionUnit = 0x0300;  // behind the camera terminal and the processing unit

template <typename Number>
std::uint8_t Byte(Number number) {
    return static_cast<std::uint8_t>(number);
}

}  // namespace

UsbHost::UsbHost(CameraSettings settings) : device(std::move(settings)) {}

void UsbHost::Pass(std::uint64_t ms) {
    nowMs += ms;
    device.Advance(nowMs);
}

Reading UsbHost::Get(std::uint8_t requestType, std::uint8_t request, std::uint16_t value, std::uint16_t index,
                     std::uint16_t length) {
    std::vector<std::uint8_t> data(std::size_t{length} + 1, kUntouched);
    const SetupPacket setup{requestType, request, value, index, length};
    const TransferResult result = device.ControlTransfer(setup, data, nowMs);
    if (result.transferred > length || data.back() != kUntouched) {
        throw std::logic_error("the device answered with more than it was asked for");
    }
    data.resize(result.transferred);
    return {.end = result.end, .bytes = std::move(data)};
}

TransferEnd UsbHost::Set(std::uint8_t requestType, std::uint8_t request, std::uint16_t value,
                         std::uint16_t index, std::vector<std::uint8_t> data) {
    const SetupPacket setup{requestType, request, value, index, static_cast<std::uint16_t>(data.size())};
    return device.ControlTransfer(setup, data, nowMs).end;
}

Reading UsbHost::Descriptor(DescriptorType type, std::uint8_t index, std::uint16_t length,
                            std::uint16_t language) {
    return Get(0x80, Byte(StandardRequest::GetDescriptor),
               static_cast<std::uint16_t>(Byte(type) << 8 | index), language, length);
}

TransferEnd UsbHost::SetAddress(std::uint16_t address) {
    return Set(0x00, Byte(StandardRequest::SetAddress), address, 0);
}

TransferEnd UsbHost::SetConfiguration(std::uint16_t value) {
    return Set(0x00, Byte(StandardRequest::SetConfiguration), value, 0);
}

TransferEnd UsbHost::SetInterface(std::uint16_t number, std::uint16_t alternate) {
    return Set(0x01, Byte(StandardRequest::SetInterface), alternate, number);
}

Reading UsbHost::GetVideo(UvcRequest request, std::uint16_t index, std::uint8_t control,
                          std::uint16_t length) {
    return Get(0xA1, Byte(request), static_cast<std::uint16_t>(control << 8), index, length);
}

TransferEnd UsbHost::SetVideo(std::uint16_t index, std::uint8_t control, std::vector<std::uint8_t> data) {
    return Set(0x21, Byte(UvcRequest::SetCur), static_cast<std::uint16_t>(control << 8), index,
               std::move(data));
}

bool UsbHost::Configure() {
    device.Reset(nowMs);
    SetAddress(kAddress);
    SetConfiguration(CameraDescriptors::kConfigurationValue);
    return device.State() == UsbState::Configured;
}

void UsbHost::PlugIn(UsbState state) {
    device.Plug(nowMs);
    if (state == UsbState::Address || state == UsbState::Configured) {
        SetAddress(kAddress);
    }
    if (state == UsbState::Configured) {
        SetConfiguration(CameraDescriptors::kConfigurationValue);
    }
    if (device.State() != state) {
        throw std::logic_error("the device did not come to that state");
    }
}

void UsbHost::PlugInDfuMode(UsbState state) {
    PlugIn(UsbState::Configured);
    SetVideo(kExtensionUnit, VideoFunction::kCommandControl, MakeFrame(0x1E, {1, 0, 0, 0}));
    Pass(device.Camera().Settings().detachMs);
    Pass(device.Camera().Settings().enumerateMs);
    if (device.Camera().Mode() != BusMode::Dfu) {
        throw std::logic_error("the camera did not come to DFU mode");
    }
    PlugIn(state);
}

}  // namespace lab::test
