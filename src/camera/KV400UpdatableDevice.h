#pragma once

#include "camera/CameraDevice.h"
#include "camera/ExtensionUnitKsControl.h"
#include "camera/IFirmwareCommandPipe.h"

#include <array>
#include <memory>

// A camera of the KV400 family: reads its firmware version when it is opened, and can be sent into DFU mode
// and updated.
class KV400UpdatableDevice final : public CameraDevice {
  public:
    KV400UpdatableDevice();
    ~KV400UpdatableDevice() override;

    // Whether the link is not the one of the plain capture category. The system lists a camera once for every
    // way in which it exposes it; this keeps the update to the others.
    [[nodiscard]] bool IsUpdatable() const override;
    HRESULT UpdateFirmware(const wchar_t* imagePath) override;
    // S_OK whatever the camera answered: it may leave the bus before it answers.
    HRESULT EnterDfuMode() override;
    HRESULT SetDfuModeDisabled() override;
    HRESULT SetDfuModeAuto() override;
    HRESULT SetDfuModeServiceControlled() override;
    [[nodiscard]] std::wstring GetFirmwareVersion() const override;
    [[nodiscard]] bool QueryA() const override;
    // Fails for a camera without the firmware extension unit. A camera that does not answer the read of its
    // information block, in five attempts with 500 ms between them, is opened all the same, with version
    // "0.0.0.0".
    [[nodiscard]] HRESULT Open(Microsoft::WRL::ComPtr<IMFActivate> activation) override;

  private:
    static constexpr std::size_t kInformationBlockSize = 230;

    void ReadInformationBlock();

    // The pipe is released before the control that it works on.
    Microsoft::WRL::ComPtr<ExtensionUnitKsControl> extensionUnit_;
    std::shared_ptr<IFirmwareCommandPipe> pipe_;
    std::array<BYTE, kInformationBlockSize> informationBlock_{};
};
