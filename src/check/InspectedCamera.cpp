#include "check/InspectedCamera.h"

#include "camera/ExtensionUnit.h"
#include "camera/FirmwareCommandPipe.h"
#include "win32/VersionText.h"

#include <array>
#include <cstdint>
#include <span>

namespace check {
namespace {

constexpr std::uint32_t kReadInformationBlock = 0x10;
constexpr std::size_t kInformationBlockSize = 230;
constexpr std::size_t kVersionOffset = 12;  // four bytes, most significant last
constexpr int kAttempts = 5;
constexpr DWORD kPauseMs = 500;

}  // namespace

HRESULT InspectedCamera::FindExtensionUnit() {
    auto unit = ExtensionUnitKsControl::Create();
    if (!unit) {
        return E_OUTOFMEMORY;
    }
    const HRESULT result = unit->Attach(MediaSource());
    if (SUCCEEDED(result)) {
        extensionUnit_ = unit;
    }
    return result;
}

HRESULT InspectedCamera::ReadVersion(std::wstring& version) const {
    HRESULT result = E_FAIL;
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        std::array<std::uint8_t, kInformationBlockSize> block{};
        FirmwareCommandPipe pipe(extensionUnit_, kExtensionUnit, kCommandControl);
        result = pipe.SendCommandAndRead(block.data(), kReadInformationBlock, block.size(), 0, 0, 0, 0);
        if (SUCCEEDED(result)) {
            version = win32::VersionText(std::span(block).subspan<kVersionOffset, 4>());
            return S_OK;
        }
        if (attempt < kAttempts) {
            Sleep(kPauseMs);
        }
    }
    return result;
}

}  // namespace check
