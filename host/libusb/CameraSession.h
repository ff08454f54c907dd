#pragma once

#include "lab/camera/VirtualCamera.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>

// One virtual camera in DFU mode for one process, its flash kept in a file from process to process. What it
// is comes from the environment:
//   VEYRA_FLASH          the flash's file; read when it is there, written when the session ends
//   VEYRA_TRANSFERS      a file that gets the number of control transfers that reached the camera
//   VEYRA_PERSONALITY    one of lab::kPersonalities; "strict" unless told
//   VEYRA_TRANSFER_SIZE  wTransferSize
//   VEYRA_BLOCK_MS       time to write one block
//   VEYRA_MANIFESTS      "at once" for a camera that never shows dfuMANIFEST
// For one thread. Throws std::runtime_error for an environment that makes no sense.
class CameraSession {
  public:
    CameraSession();
    // Writes the files.
    ~CameraSession();

    CameraSession(const CameraSession&) = delete;
    CameraSession& operator=(const CameraSession&) = delete;

    [[nodiscard]] const lab::VirtualCamera& Camera() const { return camera_; }

    // One control transfer of the host.
    lab::TransferResult Transfer(const lab::SetupPacket& setup, std::span<std::uint8_t> data);
    // The host resets the port. Whether the device is still the one that it was.
    bool Reset();

  private:
    [[nodiscard]] std::uint64_t NowMs() const;
    void EnterDfuMode();
    void Install(std::span<const std::uint8_t> image);

    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    std::uint64_t skippedMs_ = 0;
    lab::VirtualCamera camera_;
};
