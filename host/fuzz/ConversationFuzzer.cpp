#include "dfu/DfuCommand.h"
#include "host/fuzz/FuzzInput.h"
#include "host/fuzz/Promise.h"
#include "host/fuzz/Telling.h"
#include "tests/support/FakeClock.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <numeric>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

// A whole update of a device that answers what the fuzzer likes. Beside the device runs a judge, which knows
// the only request that may come next and the only result that the update may have.
//
// Input: flags (see Settings); transfer size, image length and size of the probe (u16 each); then for each
// transfer the kind of its answer and what that kind needs (see Device::Answer). With no bytes left the
// device behaves well.

namespace {

using fuzz::FuzzInput;
using fuzz::Promise;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kMostBlocks = 200;
constexpr ULONGLONG kPollPeriodMs = 200;
constexpr HRESULT kBadLength = static_cast<HRESULT>(0x80070018);

struct Settings {
    explicit Settings(FuzzInput& input) {
        const std::uint8_t flags = input.Byte();
        isConnected = (flags & 1) == 0;
        hasLog = (flags & 2) != 0;
        hasProgress = (flags & 4) != 0;
        transferSize = input.Word();
        imageLength =
            std::min<std::size_t>(input.Word(), kMostBlocks * std::max<std::size_t>(transferSize, 1));
        const std::uint16_t anyProbe = input.Word();
        probe = (flags & 8) != 0 ? 68 : (flags & 16) != 0 ? anyProbe : 0;
    }

    bool isConnected;
    bool hasLog;
    bool hasProgress;
    std::uint16_t transferSize;
    std::size_t imageLength;
    std::uint16_t probe;
};

class Device final : public usb_core::IUsbControlEndpoint {
  public:
    Device(const Settings& settings, const Bytes& image, FuzzInput& input, test_support::FakeClock& clock)
        : settings_(settings), image_(image), input_(input), clock_(clock) {
        if (!settings.isConnected) {
            End(E_ACCESSDENIED);
        }
    }

    [[nodiscard]] bool IsConnected() const override { return settings_.isConnected; }
    void Disconnect() override { Promise(false, "the engine disconnects nobody"); }
    [[nodiscard]] std::uint16_t GetMaxTransferSize() const override { return settings_.transferSize; }

    HRESULT Transfer(WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) override {
        Promise(step_ != Step::Over, "nothing is sent behind the end");
        Promise(packet.Index == 0 && packet.Length == length,
                "the packet has its length, and leaves the index to me");
        Promise(buffer != nullptr || length == 0, "there is a buffer for the data");
        CheckRequest(packet, buffer, length);
        CheckTime();
        packet.Index = 3;
        HRESULT result = kBadLength;
        if (length <= settings_.transferSize) {
            result = Answer(packet, buffer, length);
        }
        Follow(result, buffer);
        return result;
    }

    void CheckEnd(HRESULT result) const {
        Promise(step_ == Step::Over, "an update that is not over goes on");
        Promise(result == result_, "the result is that of the first failure");
        Promise(clock_.Now() == overAt_, "the update takes the time of its transfers and polls, no more");
    }
    [[nodiscard]] std::size_t BlocksWritten() const { return block_; }

  private:
    enum class Step {
        FirstState,
        Detach,
        SecondState,
        Probe,
        Block,
        BlockStatus,
        LastBlock,
        ManifestStatus,
        LastStatus,
        Over
    };

    [[nodiscard]] std::size_t Offset() const { return block_ * settings_.transferSize; }
    [[nodiscard]] std::size_t Chunk() const {
        return std::min<std::size_t>(settings_.transferSize, image_.size() - Offset());
    }

    static void CheckPacket(const WINUSB_SETUP_PACKET& packet, UCHAR type, UCHAR request, std::size_t value,
                            std::size_t length) {
        Promise(packet.RequestType == type && packet.Request == request, "requests come in their order");
        Promise(packet.Value == value && packet.Length == length, "a request has its value and length");
    }

    void CheckRequest(const WINUSB_SETUP_PACKET& packet, const UCHAR* buffer, std::size_t length) const {
        switch (step_) {
            case Step::FirstState:
            case Step::SecondState:
                CheckPacket(packet, 0xA1, 5, 0, 1);
                break;
            case Step::Detach:
                CheckPacket(packet, 0x21, 0, 1000, 0);
                break;
            case Step::Probe:
                CheckPacket(packet, 0xA1, 2, 0, settings_.probe);
                break;
            case Step::Block:
                CheckPacket(packet, 0x21, 1, block_, Chunk());
                Promise(std::equal(buffer, buffer + length,
                                   image_.begin() + static_cast<std::ptrdiff_t>(Offset())),
                        "a block carries its part of the image");
                break;
            case Step::LastBlock:
                CheckPacket(packet, 0x21, 1, block_, 0);
                break;
            case Step::BlockStatus:
            case Step::ManifestStatus:
            case Step::LastStatus: {
                CheckPacket(packet, 0xA1, 3, 0, 6);
                const Bytes before(buffer, buffer + length);
                Promise(before == Bytes{14, 0, 0, 0, 10, 0},
                        "what a reply does not write counts as an error");
                break;
            }
            case Step::Over:
                break;
        }
    }

    void CheckTime() const {
        Promise(clock_.Now() == nextAt_, "the engine waits between polls, and nowhere else");
    }

    // Of a request that is answered otherwise than well: which it is, of how many blocks before it and of how
    // many looks since, and how; the value is a state or a status, or the length of a short reply.
    void Tell(UCHAR request, const char* how, unsigned value) const {
        if (fuzz::isTelling) {
            std::printf("{\"request\": %u, \"states\": %d, \"block\": %zu, \"look\": %zu, ",
                        static_cast<unsigned>(request), step_ == Step::FirstState ? 0 : 1, block_, looks_);
            std::printf("\"how\": \"%s\", \"value\": %u}\n", how, value);
            std::fflush(stdout);
        }
    }
    void TellReply(UCHAR request, const Bytes& reply, std::size_t length) const {
        if (reply.size() < length) {
            Tell(request, "short", static_cast<unsigned>(reply.size()));
        } else if (request == 3 && reply[0] != 0) {
            Tell(request, "status", reply[0]);
        } else if (request == 3 || request == 5) {
            Tell(request, "state", reply[request == 3 ? 4 : 0]);
        }
    }

    // How a transfer goes: well; or failing with a code; or with a reply that is short, or anything; or with
    // any state and no error; or well, but slowly.
    HRESULT Answer(const WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) {
        const bool isIn = (packet.RequestType & 0x80) != 0;
        switch (input_.Byte() % 6) {
            case 1:
                Tell(packet.Request, "fails", 0);
                clock_.Advance(input_.Byte());
                return static_cast<HRESULT>(0x80000000U | input_.Long());
            case 2:
            case 3: {
                const std::size_t size = std::min<std::size_t>(input_.Byte(), length);
                const Bytes reply = input_.Bytes(isIn ? size : 0);
                std::copy(reply.begin(), reply.end(), buffer);
                if (isIn) {
                    TellReply(packet.Request, reply, length);
                }
                return S_OK;
            }
            case 4: {
                const std::uint8_t state = input_.Byte();
                if (packet.Request == 3 || packet.Request == 5) {
                    Tell(packet.Request, "state", state);
                }
                ReplyWell(packet, buffer, length, state);
                return S_OK;
            }
            case 5:
                Tell(packet.Request, "late", 0);
                clock_.Advance(input_.Word());
                break;
            default:
                break;
        }
        ReplyWell(packet, buffer, length, std::nullopt);
        return S_OK;
    }

    // A whole reply without an error, that tells the state which leads on, or the one given.
    void ReplyWell(const WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length,
                   std::optional<std::uint8_t> state) const {
        if (packet.Request == 5) {
            buffer[0] = state.value_or(2);
        } else if (packet.Request == 3) {
            const Bytes reply{0, 0xFF, 0xFF, 0xFF, state.value_or(step_ == Step::BlockStatus ? 5 : 8), 0};
            std::copy(reply.begin(), reply.end(), buffer);
        } else if (packet.Request == 2) {
            std::fill_n(buffer, length, std::uint8_t{0x55});
        }
    }

    void Follow(HRESULT result, const UCHAR* reply) {
        nextAt_ = clock_.Now();
        looks_ = step_ == Step::BlockStatus || step_ == Step::ManifestStatus ? looks_ + 1 : 0;
        switch (step_) {
            case Step::FirstState:
                GoOn(result, Step::Detach);
                break;
            case Step::Detach:
                GoOn(result, Step::SecondState);
                break;
            case Step::SecondState:
                if (SUCCEEDED(result) && reply[0] != 2) {
                    End(E_FAIL);
                } else if (settings_.probe != 0) {
                    GoOn(result, Step::Probe);
                } else {
                    BeginDownload(result);
                }
                break;
            case Step::Probe:
                BeginDownload(result);
                break;
            case Step::Block:
                GoOn(result, Step::BlockStatus);
                giveUpAt_ = nextAt_ + 5000;
                break;
            case Step::BlockStatus:
                if (IsThere(result, reply, 5)) {
                    ++block_;
                    step_ = Offset() < image_.size() ? Step::Block : Step::LastBlock;
                }
                break;
            case Step::LastBlock:
                step_ = Step::ManifestStatus;
                giveUpAt_ = nextAt_ + 30000;
                break;
            case Step::ManifestStatus:
                if (IsThere(result, reply, 8)) {
                    step_ = Step::LastStatus;
                }
                break;
            case Step::LastStatus:
                End(S_OK);
                break;
            case Step::Over:
                break;
        }
    }

    void GoOn(HRESULT result, Step next) {
        if (FAILED(result)) {
            End(result);
        } else {
            step_ = next;
        }
    }

    void BeginDownload(HRESULT result) {
        if (SUCCEEDED(result) && !image_.empty() && settings_.transferSize == 0) {
            End(E_FAIL);
        } else {
            GoOn(result, image_.empty() ? Step::LastBlock : Step::Block);
        }
    }

    // Whether the status polled ends the wait well; otherwise the wait goes on, or the update is over.
    bool IsThere(HRESULT result, const UCHAR* reply, std::uint8_t wanted) {
        if (SUCCEEDED(result)) {
            if (reply[0] == 0 && reply[4] == wanted) {
                return true;
            }
            if (reply[0] != 0 || reply[4] == 10) {
                End(E_FAIL);
                return false;
            }
        }
        nextAt_ += kPollPeriodMs;
        if (nextAt_ >= giveUpAt_) {
            End(E_FAIL);
        }
        return false;
    }

    void End(HRESULT result) {
        step_ = Step::Over;
        result_ = result;
        overAt_ = nextAt_;
    }

    const Settings& settings_;
    const Bytes& image_;
    FuzzInput& input_;
    test_support::FakeClock& clock_;
    Step step_ = Step::FirstState;
    ULONGLONG nextAt_ = clock_.Now();  // when the next request comes
    ULONGLONG giveUpAt_ = 0;
    std::size_t block_ = 0;
    std::size_t looks_ = 0;  // at the block, or at the manifestation, that is waited for
    HRESULT result_ = S_OK;
    ULONGLONG overAt_ = nextAt_;
};

void CheckLog(const std::string& log, HRESULT result) {
    const bool tellsFailure = log.find(" Failed with status") != std::string::npos;
    Promise(tellsFailure == (FAILED(result) && result != E_ACCESSDENIED) || result == E_ACCESSDENIED,
            "a failure is logged, and only a failure");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* count, char*** words) {
    fuzz::ReadCommandLine(*count, *words);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const Settings settings(input);
    Bytes image(settings.imageLength);
    for (std::size_t place = 0; place < image.size(); ++place) {
        image[place] = static_cast<std::uint8_t>(place * 31 + (place >> 8));
    }
    const Bytes sent = image;
    if (fuzz::isTelling) {
        std::printf("{\"transfer_size\": %u, \"image\": %zu, \"connected\": %s}\n",
                    static_cast<unsigned>(settings.transferSize), image.size(),
                    settings.isConnected ? "true" : "false");
        std::fflush(stdout);
    }
    test_support::FakeClock clock;
    std::ostringstream log;
    std::vector<std::int32_t> progress;
    const auto device = std::make_shared<Device>(settings, image, input, clock);
    dfu::DfuCommand command(device, settings.probe, settings.hasLog ? &log : nullptr,
                            settings.hasProgress
                                ? [&progress](std::int32_t blocks) { progress.push_back(blocks); }
                                : dfu::DfuCommand::ProgressCallback());

    const HRESULT result = command.Update(sent.data(), sent.size());
    fuzz::isTelling = false;

    device->CheckEnd(result);
    Promise(sent == image, "the image is left as it was");
    std::vector<std::int32_t> steps(settings.hasProgress ? device->BlocksWritten() : 0);
    std::iota(steps.begin(), steps.end(), 1);
    Promise(progress == steps, "progress counts the blocks written");
    if (settings.hasLog) {
        CheckLog(log.str(), result);
    }
    return 0;
}
