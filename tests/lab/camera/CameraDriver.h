#pragma once

#include "lab/camera/VirtualCamera.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace lab::test {

// A GETSTATUS and its six bytes, as fields. They are 0xEE where the reply did not reach.
struct StatusReply {
    TransferEnd end = TransferEnd::Ok;
    std::size_t transferred = 0;
    DfuStatus status = DfuStatus::Ok;
    std::uint32_t pollMs = 0;
    DfuState state = DfuState::AppIdle;
};

// A virtual camera, the clock that it lives by, and the requests of a host. Unless a method says otherwise
// the clock stands still during it.
class CameraDriver {
  public:
    explicit CameraDriver(CameraSettings settings = {});

    static constexpr std::uint16_t kDetachMs = 1000;  // after which Reach()'s DETACH is forgotten

    VirtualCamera camera;
    std::uint64_t nowMs = 5000;

    void Pass(std::uint64_t ms);

    TransferResult Command(std::uint32_t opcode, const std::array<std::uint32_t, 4>& parameters = {});
    // The control read back in full length: as many bytes as the camera gave.
    std::vector<std::uint8_t> Reply();

    // Plugs the camera in and sends it to DFU mode; takes detachMs + enumerateMs.
    void EnterDfuMode();
    // Sends a plugged-out camera on its way to a state, by requests that its personality answers. blockMs and
    // manifestMs must not be 0.
    void Reach(DfuState state);

    TransferResult Request(DfuRequest request, std::uint16_t value = 0, std::span<std::uint8_t> data = {});
    TransferResult Dnload(std::uint16_t blockNumber, std::vector<std::uint8_t> data);
    // The bytes that came; empty when the request did not succeed.
    std::vector<std::uint8_t> Upload(std::uint16_t length);
    StatusReply GetStatus();
    // What came back as bState; 0xEE when the request did not succeed.
    DfuState GetState();

    // Sends a whole image in blocks of wTransferSize, polling as bwPollTimeout says, and ends it with the
    // empty DNLOAD. Whether everything succeeded.
    bool Download(const std::vector<std::uint8_t>& image);
    // Polls as bwPollTimeout says until the device answers with the state; false after 100 polls or at a
    // failure.
    bool Await(DfuState state);
};

// A camera that is plugged in, one in DFU mode, and one in a state (std::logic_error when it does not get
// there; see Reach).
CameraDriver Running(CameraSettings settings = {});
CameraDriver InDfuMode(CameraSettings settings = {});
CameraDriver InState(DfuState state, CameraSettings settings = {});

// Bytes that differ from block to block and from the camera's first flash.
std::vector<std::uint8_t> MakeImage(std::size_t size);
// The same with a version in it, most significant number first.
std::vector<std::uint8_t> MakeImage(std::size_t size, const std::array<std::uint8_t, 4>& version);

std::vector<std::uint8_t> MakeFrame(std::uint32_t opcode, const std::array<std::uint32_t, 4>& parameters = {},
                                    std::uint16_t length = 20);

// "dfuDNLOAD-IDLE" and so on without the signs: usable as a test's name.
std::string NameOf(DfuState state);
std::string NameOf(Personality personality);

}  // namespace lab::test
