#include "host/fuzz/FuzzInput.h"
#include "host/fuzz/Promise.h"
#include "lab/camera/UsbDevice.h"

#include <algorithm>
#include <vector>

// The camera as a whole USB device, with a stack that asks anything at any time.
//
// Input: personality, speed, whether it has strings, whether its configuration is replaced and by how many
// bytes, the bytes, then operations until the end (see Operate).

namespace {

using fuzz::FuzzInput;
using fuzz::Promise;
using lab::BusMode;
using lab::RequestKind;
using lab::SetupPacket;
using lab::StandardRequest;
using lab::TransferEnd;
using lab::TransferResult;
using lab::UsbDevice;
using lab::UsbState;
using Bytes = std::vector<std::uint8_t>;

lab::CameraSettings Settings(FuzzInput& input) {
    lab::CameraSettings settings;
    settings.personality = lab::kPersonalities[input.Byte() % lab::kPersonalities.size()].second;
    settings.speed = static_cast<lab::Speed>(input.Byte() % 3);
    settings.serialNumber = input.Byte() % 2 == 1 ? "KV4000001" : "";
    settings.configurationDescriptor = input.Bytes(input.Byte() % 64);
    return settings;
}

bool IsStandard(const SetupPacket& setup, StandardRequest request) {
    return KindOf(setup) == RequestKind::Standard && StandardRequest{setup.request} == request;
}

class Stack {
  public:
    explicit Stack(FuzzInput& input) : input_(input), device_(Settings(input)) {}

    void Operate() {
        switch (input_.Byte() % 16) {
            case 0:
                nowMs_ += input_.Word();
                device_.Advance(nowMs_);
                break;
            case 1:
                device_.Plug(nowMs_);
                break;
            case 2:
                device_.Unplug();
                break;
            case 3:
                Reset();
                break;
            case 4:
                Configure();
                break;
            case 5:
                EnterDfuMode();
                break;
            default:
                Transfer({input_.Byte(), input_.Byte(), input_.Word(), input_.Word(), input_.Word()});
                break;
        }
        const bool isPresent = device_.Camera().Mode() != BusMode::Absent;
        Promise(isPresent == (device_.State() != UsbState::Absent), "the device is where the camera is");
        Promise((device_.State() == UsbState::Configured) == (device_.Interfaces() != nullptr),
                "a configured device has interfaces");
        Promise(device_.State() != UsbState::Configured || device_.Address() != 0,
                "a configured device has an address");
    }

  private:
    void Reset() {
        const UsbState before = device_.State();
        const unsigned arrivals = device_.Camera().Arrivals();
        device_.Reset(nowMs_);
        Promise(before == UsbState::Configured || device_.Camera().Arrivals() == arrivals,
                "a reset before the configuration is one of the bus alone");
        Promise(device_.State() == UsbState::Absent || device_.State() == UsbState::Default,
                "a reset leads to the default state");
    }

    void Configure() {
        Transfer({.requestType = 0, .request = 5, .value = 1});
        Transfer({.requestType = 0, .request = 9, .value = 1});
    }

    void EnterDfuMode() {
        const Bytes head{20, 0, 0xAB, 0xCD, 0x1E, 0, 0, 0, 1};
        Bytes frame(lab::VirtualCamera::kFrameSize);
        std::copy(head.begin(), head.end(), frame.begin());
        const SetupPacket setup{
            .requestType = 0x21, .request = 1, .value = 0x0100, .index = 0x0300, .length = 1024};
        device_.ControlTransfer(setup, frame, nowMs_);
    }

    void Transfer(const SetupPacket& setup) {
        constexpr std::uint8_t kUntouched = 0xEE;
        device_.Advance(nowMs_);
        const UsbState before = device_.State();
        const std::uint8_t address = device_.Address();
        Bytes data = input_.Bytes(IsToHost(setup) ? 0 : setup.length);
        data.resize(setup.length);
        data.push_back(kUntouched);
        const TransferResult result = device_.ControlTransfer(setup, data, nowMs_);
        Promise(result.transferred <= setup.length && data.back() == kUntouched,
                "no transfer is longer than asked for");
        Promise(result.end == TransferEnd::Ok || result.transferred == 0,
                "a failed transfer transfers nothing");
        Promise((result.end == TransferEnd::Disconnected) || before != UsbState::Absent,
                "nothing answers when nothing is there");
        Promise(before == UsbState::Configured || result.end != TransferEnd::Ok ||
                    KindOf(setup) != RequestKind::Class,
                "a device that is not configured takes no class request");
        Promise(device_.Address() == address || device_.Address() == 0 ||
                    IsStandard(setup, StandardRequest::SetAddress),
                "only SET_ADDRESS gives an address");
        Promise(result.end != TransferEnd::Stall || device_.State() == before,
                "a stalled request leaves the state alone");
        Promise(before == UsbState::Configured || device_.State() != UsbState::Configured ||
                    IsStandard(setup, StandardRequest::SetConfiguration),
                "only SET_CONFIGURATION configures");
    }

    FuzzInput& input_;
    UsbDevice device_;
    std::uint64_t nowMs_ = 1000;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    Stack stack(input);
    while (!input.IsEmpty()) {
        stack.Operate();
    }
    return 0;
}
