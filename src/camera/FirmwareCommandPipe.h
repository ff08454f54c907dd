#pragma once

#include "camera/IFirmwareCommandPipe.h"
#include "camera/UvcCommand.h"

// The command pipe over one control of the camera's extension unit: a command is a SET of the control, its
// reply a GET.
class FirmwareCommandPipe final : public IFirmwareCommandPipe, public UvcCommand {
  public:
    using UvcCommand::UvcCommand;

    HRESULT SendCommand(std::uint32_t opcode, const BYTE* data, std::size_t dataLength, std::uint32_t p1,
                        std::uint32_t p2, std::uint32_t p3, std::uint32_t p4) override;
    HRESULT SendCommandAndRead(BYTE* reply, std::uint32_t opcode, std::size_t replyLength, std::uint32_t p1,
                               std::uint32_t p2, std::uint32_t p3, std::uint32_t p4) override;
};
