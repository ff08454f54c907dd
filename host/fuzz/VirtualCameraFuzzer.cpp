#include "host/fuzz/FuzzInput.h"
#include "host/fuzz/Promise.h"
#include "lab/camera/VirtualCamera.h"

#include <algorithm>
#include <array>
#include <vector>

// The virtual camera itself, with a host that sends anything at any time.
//
// Input: personality, transfer size (u16), the five times (u8 each), the number of faults (modulo 4) and
// their fields (see Faults), then operations until the end (see Operate).

namespace {

using fuzz::FuzzInput;
using fuzz::Promise;
using lab::BusMode;
using lab::DfuState;
using lab::Fault;
using lab::TransferEnd;
using lab::TransferResult;
using lab::VirtualCamera;
using Bytes = std::vector<std::uint8_t>;

std::vector<Fault> Faults(FuzzInput& input) {
    constexpr std::array kMoments{Fault::Moment::Before, Fault::Moment::After, Fault::Moment::Middle};
    std::vector<Fault> faults(input.Byte() % 4);
    for (Fault& fault : faults) {
        fault.where = static_cast<Fault::Where>(input.Byte() % Fault::kPlaces);
        fault.what = static_cast<Fault::What>(input.Byte() % 7);
        fault.skip = input.Byte();
        fault.count = input.Byte();
        fault.value = input.Byte();
        const std::uint8_t how = input.Byte();
        fault.setsError = how % 2 == 1;
        fault.moment = kMoments[how / 2 % kMoments.size()];
    }
    return faults;
}

lab::CameraSettings Settings(FuzzInput& input) {
    lab::CameraSettings settings;
    settings.personality = lab::kPersonalities[input.Byte() % lab::kPersonalities.size()].second;
    settings.transferSize = input.Word();
    settings.blockMs = input.Byte();
    settings.manifestMs = input.Byte();
    settings.resetMs = input.Byte();
    settings.detachMs = input.Byte();
    settings.enumerateMs = input.Byte();
    settings.faults = Faults(input);
    return settings;
}

class Host {
  public:
    explicit Host(FuzzInput& input) : input_(input), camera_(Settings(input)) {}

    void Operate() {
        const Bytes before = camera_.Flash();
        const bool mayManifest = camera_.Mode() == BusMode::Dfu && camera_.State() >= DfuState::ManifestSync;
        const std::uint8_t operation = input_.Byte() % 8;
        switch (operation) {
            case 0:
                nowMs_ += input_.Word();
                camera_.Advance(nowMs_);
                break;
            case 1:
                camera_.Plug(nowMs_);
                break;
            case 2:
                camera_.Unplug();
                break;
            case 3:
                camera_.Reset(nowMs_);
                break;
            case 4:
                Check(camera_.WriteCommand(DfuModeCommand(), nowMs_), VirtualCamera::kFrameSize);
                break;
            case 5: {
                const Bytes frame = input_.Bytes(input_.Word());
                Check(camera_.WriteCommand(frame, nowMs_), frame.size());
                break;
            }
            case 6: {
                Bytes reply(input_.Word() % 2048);
                Check(camera_.ReadReply(reply, nowMs_), reply.size());
                break;
            }
            default:
                Transfer();
                break;
        }
        const auto due = camera_.NextDeadline();
        Promise(!due || operation != 0 || *due > nowMs_, "what was due has happened");
        const bool losesPower = operation == 2 || operation == 3 || operation == 7;
        Promise(camera_.Flash() == before || losesPower || mayManifest,
                "the flash changes by a manifestation or a loss of power only");
        Promise(camera_.Mode() == BusMode::Dfu || camera_.State() <= DfuState::AppDetach,
                "outside DFU mode the camera is in an application's state");
        Promise(camera_.Mode() != BusMode::Dfu || camera_.State() >= DfuState::DfuIdle,
                "in DFU mode the camera is in one of its states");
    }

  private:
    static Bytes DfuModeCommand() {
        Bytes frame(VirtualCamera::kFrameSize);
        const Bytes head{20, 0, 0xAB, 0xCD, 0x1E, 0, 0, 0, 1};
        std::copy(head.begin(), head.end(), frame.begin());
        return frame;
    }

    // Half of the transfers are requests of the standard, to the interface that there is.
    void Transfer() {
        const std::uint8_t kind = input_.Byte();
        lab::SetupPacket setup{.requestType = 0x21, .request = static_cast<std::uint8_t>(kind / 2 % 7)};
        if (kind % 2 == 0) {
            const bool goesToHost = setup.request == 2 || setup.request == 3 || setup.request == 5;
            setup.requestType = goesToHost ? 0xA1 : 0x21;
        } else {
            setup.requestType = input_.Byte();
            setup.request = input_.Byte();
            setup.index = input_.Byte();
        }
        setup.value = input_.Word();
        setup.length = input_.Word();
        Bytes data = input_.Bytes(setup.length);
        data.resize(setup.length);
        const TransferResult result = camera_.ControlTransfer(setup, data, nowMs_);
        Check(result, setup.length);
        const bool isStatus = setup.requestType == 0xA1 && setup.request == 3 && result.transferred == 6;
        Promise(!isStatus || !camera_.Settings().faults.empty() || DfuState{data[4]} == camera_.State(),
                "GETSTATUS tells the state");
    }

    static void Check(const TransferResult& result, std::size_t length) {
        Promise(result.transferred <= length, "no transfer is longer than asked for");
        Promise(result.end == TransferEnd::Ok || result.transferred == 0,
                "a failed transfer transfers nothing");
    }

    FuzzInput& input_;
    VirtualCamera camera_;
    std::uint64_t nowMs_ = 1000;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    Host host(input);
    while (!input.IsEmpty()) {
        host.Operate();
    }
    return 0;
}
