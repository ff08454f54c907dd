#include "check/ControlLength.h"

#include "camera/ExtensionUnit.h"
#include "camera/FirmwareCommandFrame.h"
#include "camera/UvcCommand.h"
#include "check/InspectedCamera.h"

namespace check {
namespace {

constexpr std::uint32_t kReadInformationBlock = 0x10;
constexpr DWORD kReplyDelayMs = 100;

// The control without what makes a command and a reply of it.
class Control final : public UvcCommand {
  public:
    using UvcCommand::UvcCommand;

    std::optional<ULONG> LengthOfReply() {
        FirmwareFrame frame = BuildFirmwareFrame(kReadInformationBlock, 0, {});
        if (FAILED(Set(frame))) {
            return std::nullopt;
        }
        Sleep(kReplyDelayMs);
        FirmwareFrame reply{};
        ULONG bytesReturned = 0;
        return SUCCEEDED(Get(reply, bytesReturned)) ? std::optional(bytesReturned) : std::nullopt;
    }
};

}  // namespace

std::optional<ULONG> ReadControlLength(const Microsoft::WRL::ComPtr<IMFActivate>& source) {
    InspectedCamera camera;
    if (FAILED(camera.Open(source)) || FAILED(camera.FindExtensionUnit())) {
        return std::nullopt;
    }
    return Control(camera.ExtensionUnit(), kExtensionUnit, kCommandControl).LengthOfReply();
}

}  // namespace check
