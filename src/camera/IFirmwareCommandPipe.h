#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

// Carries one command at a time to the camera's firmware and brings back its reply. Knows nothing of what the
// opcodes mean, never retries. Calls on one pipe must not overlap. Held by shared ownership.
class IFirmwareCommandPipe {
  public:
    IFirmwareCommandPipe() = default;
    IFirmwareCommandPipe(const IFirmwareCommandPipe&) = delete;
    IFirmwareCommandPipe& operator=(const IFirmwareCommandPipe&) = delete;

    // Writes a command that may carry data (null for none, at most 1000 bytes) and checks at once that the
    // firmware echoed the opcode. A failing property call's HRESULT as it is; E_FAIL for a reply that is too
    // short or echoes another opcode. Throws std::invalid_argument "failed to copy data" for more data,
    // before anything is written.
    virtual HRESULT SendCommand(std::uint32_t opcode, const BYTE* data, std::size_t dataLength,
                                std::uint32_t p1, std::uint32_t p2, std::uint32_t p3, std::uint32_t p4) = 0;

    // Writes a command without data, waits 100 ms, reads the reply back and copies `replyLength` bytes (at
    // most 1020) of its data to `reply`. E_INVALIDARG for a greater length, before anything is written;
    // otherwise fails as SendCommand does. A null `reply` with a length raises the C runtime's
    // invalid-parameter report and returns E_FAIL.
    virtual HRESULT SendCommandAndRead(BYTE* reply, std::uint32_t opcode, std::size_t replyLength,
                                       std::uint32_t p1, std::uint32_t p2, std::uint32_t p3,
                                       std::uint32_t p4) = 0;

    virtual ~IFirmwareCommandPipe() = default;
};
