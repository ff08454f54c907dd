#include "host/libusb/CameraSession.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using lab::DfuState;
using lab::Personality;

std::string Text(const char* name, const char* otherwise) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : otherwise;
}

Personality PersonalityFromText(const std::string& text) {
    const auto found = std::find_if(lab::kPersonalities.begin(), lab::kPersonalities.end(),
                                    [&text](const auto& entry) { return entry.first == text; });
    if (found == lab::kPersonalities.end()) {
        throw std::runtime_error("VEYRA_PERSONALITY is none: " + text);
    }
    return found->second;
}

lab::CameraSettings SettingsFromEnvironment() {
    lab::CameraSettings settings;
    settings.personality = PersonalityFromText(Text("VEYRA_PERSONALITY", "strict"));
    settings.transferSize = static_cast<std::uint16_t>(std::stoul(Text("VEYRA_TRANSFER_SIZE", "1024")));
    settings.blockMs = static_cast<std::uint32_t>(std::stoul(Text("VEYRA_BLOCK_MS", "0")));
    settings.manifestsAtOnce = Text("VEYRA_MANIFESTS", "") == "at once";
    return settings;
}

}  // namespace

CameraSession::CameraSession() : camera_(SettingsFromEnvironment()) {
    camera_.Plug(NowMs());
    EnterDfuMode();
    std::ifstream file(Text("VEYRA_FLASH", ""), std::ios::binary);
    if (file.is_open()) {
        const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
        Install(std::vector<std::uint8_t>(content.begin(), content.end()));
    }
}

CameraSession::~CameraSession() {
    const auto& flash = camera_.Flash();
    std::ofstream(Text("VEYRA_FLASH", ""), std::ios::binary)
        .write(reinterpret_cast<const char*>(flash.data()), static_cast<std::streamsize>(flash.size()));
    std::ofstream(Text("VEYRA_TRANSFERS", "")) << camera_.Transfers() << '\n';
}

lab::TransferResult CameraSession::Transfer(const lab::SetupPacket& setup, std::span<std::uint8_t> data) {
    return camera_.ControlTransfer(setup, data, NowMs());
}

bool CameraSession::Reset() {
    const lab::BusMode before = camera_.Mode();
    camera_.Reset(NowMs());
    return camera_.Mode() == before;
}

std::uint64_t CameraSession::NowMs() const {
    const auto since = std::chrono::steady_clock::now() - begin_;
    return skippedMs_ +
           static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}

void CameraSession::EnterDfuMode() {
    std::vector<std::uint8_t> frame(lab::VirtualCamera::kFrameSize);
    const std::array<std::uint8_t, 9> command{20, 0, 0xAB, 0xCD, 0x1E, 0, 0, 0, 1};
    std::copy(command.begin(), command.end(), frame.begin());
    camera_.WriteCommand(frame, NowMs());
    skippedMs_ += camera_.Settings().detachMs + camera_.Settings().enumerateMs;
    camera_.Advance(NowMs());
    if (camera_.State() != DfuState::DfuIdle) {
        throw std::runtime_error("the camera did not come to DFU mode");
    }
}

// The flash of the process before comes into this one's camera by the road that there is: a download.
void CameraSession::Install(std::span<const std::uint8_t> image) {
    const auto request = [this](std::uint8_t type, lab::DfuRequest number,
                                std::span<const std::uint8_t> data) {
        std::vector<std::uint8_t> stage(data.begin(), data.end());
        const lab::SetupPacket setup{.requestType = type,
                                     .request = static_cast<std::uint8_t>(number),
                                     .length = static_cast<std::uint16_t>(stage.size())};
        Transfer(setup, stage);
    };
    const std::array<std::uint8_t, 6> status{};
    while (!image.empty()) {
        const auto block = image.first(std::min<std::size_t>(image.size(), camera_.Settings().transferSize));
        image = image.subspan(block.size());
        request(0x21, lab::DfuRequest::Dnload, block);
        skippedMs_ += camera_.Settings().blockMs;
        request(0xA1, lab::DfuRequest::GetStatus, status);
    }
    request(0x21, lab::DfuRequest::Dnload, {});
    request(0xA1, lab::DfuRequest::GetStatus, status);
    skippedMs_ += camera_.Settings().manifestMs;
    camera_.Advance(NowMs());
    Reset();
    EnterDfuMode();
}
