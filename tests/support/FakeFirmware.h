#pragma once

#include "tests/support/FakeKsControl.h"

#include <windows.h>

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

namespace test_support {

// The camera's firmware behind its extension unit, as seen through a node's property calls: takes command
// frames, answers with the echo of the opcode and, for opcode 0x10, with its device information block.
class FakeFirmware {
  public:
    struct Command {
        unsigned length;
        std::array<BYTE, 2> magic;
        std::uint32_t opcode;
        std::array<std::uint32_t, 4> parameters;
    };

    FakeFirmware();

    // Bytes 15, 14, 13 and 12 of the information block; 5.10.3.0 at first.
    void SetVersion(BYTE first, BYTE second, BYTE third, BYTE fourth);

    // What property calls of each kind answer; S_OK at first.
    void SetProbeResult(HRESULT result);
    void SetWriteResult(HRESULT result);
    void SetReadResult(HRESULT result);
    // The next reads fail with the code, as many as said.
    void FailReads(int count, HRESULT result);
    // Every reply echoes this instead of the opcode.
    void SetEcho(std::uint32_t echo);

    // The commands that were written, whole ones only, in order; those that were refused among them.
    [[nodiscard]] std::vector<Command> Commands() const;

    // Answers a call of the node.
    HRESULT Answer(const KsCall& call);

  private:
    HRESULT Write(const KsCall& call);
    HRESULT Read(const KsCall& call);

    mutable std::mutex lock_;
    std::array<BYTE, 230> informationBlock_{};
    HRESULT probeResult_ = S_OK;
    HRESULT writeResult_ = S_OK;
    HRESULT readResult_ = S_OK;
    int failingReads_ = 0;
    HRESULT failingReadResult_ = S_OK;
    std::optional<std::uint32_t> echo_;
    std::vector<Command> commands_;
};

}  // namespace test_support
