#include "tests/lab/camera/CameraDriver.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace lab::test {
namespace {

constexpr std::uint8_t kUntouched = 0xEE;

bool GoesToHost(DfuRequest request) {
    return request == DfuRequest::Upload || request == DfuRequest::GetStatus ||
           request == DfuRequest::GetState;
}

}  // namespace

CameraDriver::CameraDriver(CameraSettings settings) : camera(std::move(settings)) {}

void CameraDriver::Pass(std::uint64_t ms) {
    nowMs += ms;
    camera.Advance(nowMs);
}

TransferResult CameraDriver::Command(std::uint32_t opcode, const std::array<std::uint32_t, 4>& parameters) {
    return camera.WriteCommand(MakeFrame(opcode, parameters), nowMs);
}

std::vector<std::uint8_t> CameraDriver::Reply() {
    std::vector<std::uint8_t> reply(VirtualCamera::kFrameSize, kUntouched);
    reply.resize(camera.ReadReply(reply, nowMs).transferred);
    return reply;
}

void CameraDriver::EnterDfuMode() {
    camera.Plug(nowMs);
    Command(0x1E, {1, 0, 0, 0});
    Pass(camera.Settings().detachMs);
    Pass(camera.Settings().enumerateMs);
}

void CameraDriver::Reach(DfuState state) {
    if (state == DfuState::AppIdle || state == DfuState::AppDetach) {
        camera.Plug(nowMs);
        if (state == DfuState::AppDetach) {
            Request(DfuRequest::Detach, kDetachMs);
        }
        return;
    }
    EnterDfuMode();
    if (state == DfuState::UploadIdle) {
        Upload(64);
    }
    if (state == DfuState::DfuIdle || state == DfuState::UploadIdle) {
        return;
    }
    Dnload(0, MakeImage(64));
    if (state == DfuState::Error) {
        camera.Unplug();
        camera.Plug(nowMs);
    }
    if (state == DfuState::DnloadSync || state == DfuState::Error) {
        return;
    }
    if (state == DfuState::DnBusy) {
        GetStatus();
        return;
    }
    Pass(camera.Settings().blockMs);
    GetStatus();
    if (state == DfuState::DnloadIdle) {
        return;
    }
    Dnload(1, {});
    if (state == DfuState::ManifestSync) {
        return;
    }
    GetStatus();
    if (state == DfuState::ManifestWaitReset) {
        Pass(camera.Settings().manifestMs);
    }
}

TransferResult CameraDriver::Request(DfuRequest request, std::uint16_t value, std::span<std::uint8_t> data) {
    const SetupPacket setup{.requestType = static_cast<std::uint8_t>(GoesToHost(request) ? 0xA1 : 0x21),
                            .request = static_cast<std::uint8_t>(request),
                            .value = value,
                            .index = 0,
                            .length = static_cast<std::uint16_t>(data.size())};
    return camera.ControlTransfer(setup, data, nowMs);
}

TransferResult CameraDriver::Dnload(std::uint16_t blockNumber, std::vector<std::uint8_t> data) {
    return Request(DfuRequest::Dnload, blockNumber, data);
}

std::vector<std::uint8_t> CameraDriver::Upload(std::uint16_t length) {
    std::vector<std::uint8_t> data(length, kUntouched);
    data.resize(Request(DfuRequest::Upload, 0, data).transferred);
    return data;
}

StatusReply CameraDriver::GetStatus() {
    std::array<std::uint8_t, 6> bytes{};
    bytes.fill(kUntouched);
    const TransferResult result = Request(DfuRequest::GetStatus, 0, bytes);
    return {.end = result.end,
            .transferred = result.transferred,
            .status = DfuStatus{bytes[0]},
            .pollMs = std::uint32_t{bytes[1]} | std::uint32_t{bytes[2]} << 8 | std::uint32_t{bytes[3]} << 16,
            .state = DfuState{bytes[4]}};
}

DfuState CameraDriver::GetState() {
    std::array<std::uint8_t, 1> bytes{kUntouched};
    Request(DfuRequest::GetState, 0, bytes);
    return DfuState{bytes[0]};
}

bool CameraDriver::Download(const std::vector<std::uint8_t>& image) {
    std::uint16_t blockNumber = 0;
    for (std::size_t offset = 0; offset < image.size(); ++blockNumber) {
        const std::size_t length =
            std::min<std::size_t>(camera.Settings().transferSize, image.size() - offset);
        const std::span<const std::uint8_t> block = std::span(image).subspan(offset, length);
        if (Dnload(blockNumber, {block.begin(), block.end()}).transferred != length ||
            !Await(DfuState::DnloadIdle)) {
            return false;
        }
        offset += length;
    }
    return Dnload(blockNumber, {}).end == TransferEnd::Ok;
}

bool CameraDriver::Await(DfuState state) {
    for (int poll = 0; poll < 100; ++poll) {
        const StatusReply reply = GetStatus();
        if (reply.end != TransferEnd::Ok || reply.status != DfuStatus::Ok) {
            return false;
        }
        if (reply.state == state) {
            return true;
        }
        Pass(reply.pollMs);
    }
    return false;
}

CameraDriver Running(CameraSettings settings) {
    CameraDriver driver(std::move(settings));
    driver.camera.Plug(driver.nowMs);
    return driver;
}

CameraDriver InDfuMode(CameraSettings settings) {
    CameraDriver driver(std::move(settings));
    driver.EnterDfuMode();
    return driver;
}

CameraDriver InState(DfuState state, CameraSettings settings) {
    CameraDriver driver(std::move(settings));
    driver.Reach(state);
    if (driver.camera.State() != state) {
        throw std::logic_error("no requests lead the camera to " + NameOf(state));
    }
    return driver;
}

std::vector<std::uint8_t> MakeImage(std::size_t size) {
    std::vector<std::uint8_t> image(size);
    for (std::size_t offset = 0; offset < size; ++offset) {
        image[offset] = static_cast<std::uint8_t>((offset * 13 + 101) ^ (offset >> 8));
    }
    return image;
}

std::vector<std::uint8_t> MakeImage(std::size_t size, const std::array<std::uint8_t, 4>& version) {
    std::vector<std::uint8_t> image = MakeImage(size);
    std::copy(version.rbegin(), version.rend(), image.begin() + VirtualCamera::kVersionOffset);
    return image;
}

std::vector<std::uint8_t> MakeFrame(std::uint32_t opcode, const std::array<std::uint32_t, 4>& parameters,
                                    std::uint16_t length) {
    std::vector<std::uint8_t> frame(VirtualCamera::kFrameSize);
    const auto put = [&frame](std::size_t offset, std::uint32_t word) {
        for (std::size_t byte = 0; byte < 4; ++byte) {
            frame[offset + byte] = static_cast<std::uint8_t>(word >> (8 * byte) & 0xFF);
        }
    };
    put(0, 0xCDAB'0000U | length);
    put(4, opcode);
    std::size_t offset = 8;
    for (const std::uint32_t parameter : parameters) {
        put(offset, parameter);
        offset += 4;
    }
    return frame;
}

std::string NameOf(DfuState state) {
    switch (state) {
        case DfuState::AppIdle:
            return "AppIdle";
        case DfuState::AppDetach:
            return "AppDetach";
        case DfuState::DfuIdle:
            return "DfuIdle";
        case DfuState::DnloadSync:
            return "DnloadSync";
        case DfuState::DnBusy:
            return "DnBusy";
        case DfuState::DnloadIdle:
            return "DnloadIdle";
        case DfuState::ManifestSync:
            return "ManifestSync";
        case DfuState::Manifest:
            return "Manifest";
        case DfuState::ManifestWaitReset:
            return "ManifestWaitReset";
        case DfuState::UploadIdle:
            return "UploadIdle";
        case DfuState::Error:
            return "Error";
    }
    return "Unknown";
}

std::string NameOf(Personality personality) {
    for (const auto& [name, named] : kPersonalities) {
        if (named == personality) {
            return std::string(name);
        }
    }
    return "unknown";
}

}  // namespace lab::test
