#pragma once

#include "camera/ICameraDevice.h"

// A plain camera: it has a name and a link and cannot be updated. Shuts its media source down when it is
// destroyed.
class CameraDevice : public ICameraDevice {
  public:
    CameraDevice() = default;
    ~CameraDevice() override;

    [[nodiscard]] bool IsUpdatable() const override;
    HRESULT UpdateFirmware(const wchar_t* imagePath) override;
    HRESULT EnterDfuMode() override;
    HRESULT SetDfuModeDisabled() override;
    HRESULT SetDfuModeAuto() override;
    HRESULT SetDfuModeServiceControlled() override;
    [[nodiscard]] std::wstring GetFriendlyName() const override;
    [[nodiscard]] std::wstring GetSymbolicLink() const override;
    [[nodiscard]] std::wstring GetFirmwareVersion() const override;
    [[nodiscard]] std::wstring GetDescription(bool withSymbolicLink) const override;
    [[nodiscard]] bool QueryA() const override;
    [[nodiscard]] bool QueryB() const override;
    [[nodiscard]] HRESULT Open(Microsoft::WRL::ComPtr<IMFActivate> activation) override;

  protected:
    explicit CameraDevice(std::wstring friendlyName);

    // Null until opened.
    [[nodiscard]] const Microsoft::WRL::ComPtr<IMFMediaSource>& MediaSource() const { return mediaSource_; }

  private:
    // The camera's own, made from the symbolic link.
    Microsoft::WRL::ComPtr<IMFActivate> activation_;
    Microsoft::WRL::ComPtr<IMFMediaSource> mediaSource_;
    std::wstring friendlyName_ = L"Unknown";
    std::wstring symbolicLink_ = L"Unknown";
};
