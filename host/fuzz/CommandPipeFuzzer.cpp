#include "camera/FirmwareCommandPipe.h"
#include "camera/FirmwareCommandFrame.h"
#include "host/fuzz/FuzzInput.h"
#include "host/fuzz/Promise.h"
#include "tests/support/FakeClock.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <span>
#include <stdexcept>
#include <vector>

// A firmware command whose every reply comes from the fuzzer.
//
// Input: the operation (odd: with a reply, even: with data); opcode and four parameters (u32 each); length of
// the data or the reply (u16); results of the SET and of the GET (u32 each); the bytes that the driver claims
// to return (u32); what the control then holds.

namespace {

using fuzz::FuzzInput;
using fuzz::Promise;
using Bytes = std::vector<std::uint8_t>;

struct Command {
    bool wantsReply;
    std::uint32_t opcode;
    std::array<std::uint32_t, 4> parameters;
    std::size_t length;
};

// The camera's control.
class Control final : public IKsControl {
  public:
    virtual ~Control() = default;

    HRESULT setResult = S_OK;
    HRESULT getResult = S_OK;
    ULONG bytesReturned = 0;
    Bytes content;

    unsigned sets = 0;
    unsigned gets = 0;
    Bytes frame;

    HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG AddRef() override { return 1; }
    ULONG Release() override { return 1; }
    HRESULT KsMethod(PKSMETHOD, ULONG, void*, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT KsEvent(PKSEVENT, ULONG, void*, ULONG, ULONG*) override { return E_NOTIMPL; }
    HRESULT KsProperty(PKSPROPERTY property, ULONG propertyLength, void* data, ULONG dataLength,
                       ULONG* returned) override {
        Promise(propertyLength == 24 && dataLength == kFirmwareFrameSize,
                "a property call has its two lengths");
        Promise(*returned == 0, "the count of bytes is 0 before each call");
        auto* const bytes = static_cast<std::uint8_t*>(data);
        if (property->Flags == KSPROPERTY_TYPE_SET) {
            Promise(gets == 0, "the command goes out before the reply is read");
            ++sets;
            frame.assign(bytes, bytes + dataLength);
            return setResult;
        }
        ++gets;
        std::copy_n(content.begin(), std::min<std::size_t>(content.size(), dataLength), bytes);
        *returned = bytesReturned;
        return getResult;
    }
};

std::uint32_t LongAt(const Bytes& bytes, std::size_t place) {
    std::uint32_t value = 0;
    for (std::size_t byte = 0; byte < 4; ++byte) {
        value += (place + byte < bytes.size() ? std::uint32_t{bytes[place + byte]} : 0) << (8 * byte);
    }
    return value;
}

void CheckFrame(const Command& command, const Bytes& data, const Bytes& frame) {
    const std::size_t length = 20 + (command.wantsReply ? 0 : command.length);
    Promise(frame.size() == 1024 && LongAt(frame, 0) == (0xCDAB0000U | (length & 0xFFFF)),
            "the frame says its length and has its magic");
    Promise(LongAt(frame, 4) == command.opcode, "the frame has the opcode");
    for (std::size_t number = 0; number < 4; ++number) {
        Promise(LongAt(frame, 8 + 4 * number) == command.parameters[number], "the frame has the parameters");
    }
    if (!command.wantsReply) {
        Promise(std::equal(data.begin(), data.end(), frame.begin() + 24), "the frame has the data");
    }
}

HRESULT Expected(const Command& command, const Control& control) {
    if (command.wantsReply && command.length > 1020) {
        return E_INVALIDARG;
    }
    if (FAILED(control.setResult)) {
        return control.setResult;
    }
    if (FAILED(control.getResult)) {
        return control.getResult;
    }
    const std::size_t wanted = 4 + (command.wantsReply ? command.length : 0);
    return control.bytesReturned >= wanted && LongAt(control.content, 0) == command.opcode ? S_OK : E_FAIL;
}

void Run(const Command& command, Control& control) {
    constexpr std::uint8_t kUntouched = 0xEE;
    const test_support::FakeClock clock;
    FirmwareCommandPipe pipe(&control, GUID{}, 1);
    Bytes buffer(command.length, kUntouched);  // in memory of exactly its length
    const auto [p1, p2, p3, p4] = command.parameters;

    if (!command.wantsReply && command.length > 1000) {
        try {
            pipe.SendCommand(command.opcode, buffer.data(), buffer.size(), p1, p2, p3, p4);
            Promise(false, "too much data is refused");
        } catch (const std::invalid_argument&) {
        }
        Promise(control.sets == 0 && control.gets == 0, "a refused command touches no camera");
        return;
    }
    const HRESULT result =
        command.wantsReply
            ? pipe.SendCommandAndRead(buffer.data(), command.opcode, buffer.size(), p1, p2, p3, p4)
            : pipe.SendCommand(command.opcode, buffer.data(), buffer.size(), p1, p2, p3, p4);

    Promise(result == Expected(command, control), "the result is the first failure, or the reply's check");
    const bool isSent = !command.wantsReply || command.length <= 1020;
    Promise(control.sets == (isSent ? 1U : 0U), "a command is sent once");
    Promise(control.gets == (isSent && SUCCEEDED(control.setResult) ? 1U : 0U),
            "a reply is read once, if at all");
    Promise(clock.Elapsed() == (command.wantsReply && control.gets == 1 ? 100U : 0U),
            "only a command with a reply waits, 100 ms");
    if (isSent) {
        CheckFrame(command, buffer, control.frame);
    }
    if (command.wantsReply) {
        for (std::size_t place = 0; place < buffer.size(); ++place) {
            const std::uint8_t received =
                4 + place < control.content.size() ? control.content[4 + place] : std::uint8_t{0};
            Promise(buffer[place] == (result == S_OK ? received : kUntouched),
                    "the buffer gets the reply when it is good, and nothing otherwise");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    Command command{};
    command.wantsReply = input.Byte() % 2 == 1;
    command.opcode = input.Long();
    for (std::uint32_t& parameter : command.parameters) {
        parameter = input.Long();
    }
    command.length = input.Word() % 2048;
    Control control;
    control.setResult = static_cast<HRESULT>(input.Long());
    control.getResult = static_cast<HRESULT>(input.Long());
    control.bytesReturned = input.Long();
    control.content = input.Rest();
    control.content.resize(std::min<std::size_t>(control.content.size(), kFirmwareFrameSize));
    Run(command, control);
    return 0;
}
