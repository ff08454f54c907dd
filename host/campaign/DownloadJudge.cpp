#include "host/campaign/DownloadJudge.h"

#include "host/campaign/BrokenRule.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace campaign {
namespace {

constexpr std::int32_t kDone = 0;
constexpr auto kFail = static_cast<std::int32_t>(0x80004005);
constexpr auto kBadLength = static_cast<std::int32_t>(0x80070018);

constexpr std::uint8_t kOut = 0x21;
constexpr std::uint8_t kIn = 0xA1;
constexpr std::uint8_t kDetach = 0;
constexpr std::uint8_t kDnload = 1;
constexpr std::uint8_t kUpload = 2;
constexpr std::uint8_t kGetStatus = 3;
constexpr std::uint8_t kGetState = 5;
constexpr std::uint8_t kIdle = 2;
constexpr std::uint8_t kDnloadIdle = 5;
constexpr std::uint8_t kWaitReset = 8;
constexpr std::uint8_t kError = 10;

constexpr std::size_t kProbe = 68;
constexpr std::uint64_t kPollPeriodMs = 200;
constexpr std::uint64_t kBlockPatienceMs = 5000;
constexpr std::uint64_t kManifestPatienceMs = 30000;

constexpr std::string_view kStateTransfer =
    "usbEndpoint->Transfer(packet, reinterpret_cast<PUCHAR>(&state), sizeof(UCHAR))";
constexpr const char* kFailedRequest = "a request that fails ends the update";
constexpr std::string_view kGetDfuState = "GetDfuState(state)";
constexpr std::string_view kAssertState = "AssertState(DFU_STATE::dfuIDLE)";
constexpr std::string_view kDownload =
    "DownloadImage(reinterpret_cast<const BYTE *>(firmwareImage), imageLength)";

}  // namespace

void DownloadJudge::BeginOpening(std::span<const std::uint8_t> image, std::uint8_t interfaceNumber,
                                 bool hasStaleError) {
    step_ = Step::DeviceDescriptor;
    image_ = image;
    interfaceNumber_ = interfaceNumber;
    hasStaleError_ = hasStaleError;
    transferSize_ = 0;
    nextAtMs_ = time_.Now();
    block_ = 0;
    result_ = kDone;
    log_.clear();
    sawTheEnd_ = false;
}

void DownloadJudge::EndOpening(bool isOpened) {
    Rule(step_ == Step::Opened || step_ == Step::NotOpened, "opening a device goes on to its setting");
    Rule(isOpened == (step_ == Step::Opened), "a device is opened when all was answered, and only then");
    if (isOpened) {
        step_ = Step::FirstState;
        nextAtMs_ = time_.Now();
    } else {
        step_ = Step::Nothing;
    }
}

void DownloadJudge::EndDownload(std::int32_t result, const std::string& log,
                                const std::vector<std::int32_t>& progress) {
    Rule(step_ == Step::Over, "an update that is not over goes on");
    Rule(result == result_, "the result is that of the first failure");
    Rule(time_.Now() == nextAtMs_, "the update takes the time of its requests and polls, no more");
    Rule(log == log_, "the lines tell what failed, innermost first, and what was downloaded");
    std::vector<std::int32_t> counted(block_);
    std::iota(counted.begin(), counted.end(), 1);
    Rule(progress == counted, "the progress counts the blocks that the camera has taken");
    step_ = Step::Nothing;
}

void DownloadJudge::OnCrossing(const Crossing& crossing) {
    Rule(step_ != Step::Nothing, "nothing is sent to a device that is not open");
    Rule(step_ != Step::Over, whyOver_);
    Rule(crossing.beganMs == nextAtMs_, "a request goes out when its time has come");
    nextAtMs_ = crossing.endedMs;
    if (step_ < Step::FirstState) {
        FollowOpening(crossing);
    } else {
        FollowDownload(crossing);
    }
}

void DownloadJudge::CheckDescriptor(const Crossing& crossing, std::uint8_t type, std::size_t length) const {
    Rule(crossing.what == Crossing::What::Descriptor && crossing.setup.value == type &&
             crossing.before.size() == length,
         "descriptors are read in their order, each in its length");
}

void DownloadJudge::CheckRequest(const Crossing& crossing, std::uint8_t type, std::uint8_t request,
                                 std::size_t value, std::size_t length) const {
    Rule(crossing.what == Crossing::What::Transfer && crossing.setup.requestType == type &&
             crossing.setup.request == request,
         OrderRule());
    Rule(crossing.setup.value == (value & 0xFFFF), "a request has its value, and a block its number");
    Rule(crossing.setup.index == interfaceNumber_, "a request goes to the DFU interface");
    Rule(crossing.setup.length == length && crossing.before.size() == length, "a request has its length");
}

// What is to come at this step.
const char* DownloadJudge::OrderRule() const {
    switch (step_) {
        case Step::FirstState:
        case Step::Detach:
        case Step::SecondState:
        case Step::Probe:
            return "before the first block come GETSTATE, DETACH, GETSTATE and UPLOAD";
        case Step::Block:
            return "a block follows, as long as there is one";
        case Step::BlockStatus:
            return "behind a block its status is looked at until it is taken";
        case Step::LastBlock:
            return "behind the last block comes an empty one";
        case Step::ManifestStatus:
        case Step::LastStatus:
            return "behind the empty block the status is looked at, once more behind the one that is waited "
                   "for";
        case Step::Nothing:
        case Step::DeviceDescriptor:
        case Step::ConfigurationHeader:
        case Step::Configuration:
        case Step::Setting:
        case Step::Opened:
        case Step::NotOpened:
        case Step::Over:
            break;
    }
    return "requests are sent to a device that is opened";
}

std::string_view DownloadJudge::Next() const {
    switch (step_) {
        case Step::FirstState:
        case Step::SecondState:
            return "GETSTATE";
        case Step::Detach:
            return "DETACH";
        case Step::Probe:
            return "UPLOAD";
        case Step::Block:
            return "DNLOAD";
        case Step::LastBlock:
            return "EMPTY";
        case Step::BlockStatus:
        case Step::ManifestStatus:
        case Step::LastStatus:
            return "GETSTATUS";
        case Step::Nothing:
        case Step::DeviceDescriptor:
        case Step::ConfigurationHeader:
        case Step::Configuration:
        case Step::Setting:
        case Step::Opened:
        case Step::NotOpened:
        case Step::Over:
            break;
    }
    return "";
}

// What no reply overwrites must count as an error.
void DownloadJudge::CheckStatusRequest(const Crossing& crossing) const {
    constexpr std::array<std::uint8_t, 6> kNoStatusYet{14, 0, 0, 0, 10, 0};
    CheckRequest(crossing, kIn, kGetStatus, 0, kNoStatusYet.size());
    Rule(std::ranges::equal(crossing.before, kNoStatusYet), "a status that is not told counts as an error");
}

void DownloadJudge::FollowOpening(const Crossing& crossing) {
    constexpr std::uint8_t kDevice = 1;
    constexpr std::uint8_t kConfiguration = 2;
    constexpr std::size_t kInterfaceCount = 4;
    const bool succeeded = crossing.result >= 0;
    switch (step_) {
        case Step::DeviceDescriptor:
            CheckDescriptor(crossing, kDevice, 18);
            step_ = CountsAsRead(crossing) ? Step::ConfigurationHeader : Step::NotOpened;
            break;
        case Step::ConfigurationHeader: {
            CheckDescriptor(crossing, kConfiguration, 9);
            const bool hasInterfaces =
                crossing.transferred > kInterfaceCount && crossing.after[kInterfaceCount] != 0;
            step_ = hasInterfaces && CountsAsRead(crossing) ? Step::Configuration : Step::NotOpened;
            break;
        }
        case Step::Configuration:
            CheckDescriptor(crossing, kConfiguration, 1024);
            TakeConfiguration(crossing.after.first(crossing.transferred));
            break;
        case Step::Setting:
            Rule(crossing.what == Crossing::What::SetInterface && crossing.setup.value == 0 &&
                     crossing.setup.index == interfaceNumber_,
                 "the DFU interface's setting is chosen");
            step_ = Step::Opened;
            break;
        case Step::Nothing:
        case Step::Opened:
        case Step::NotOpened:
        case Step::FirstState:
        case Step::Detach:
        case Step::SecondState:
        case Step::Probe:
        case Step::Block:
        case Step::BlockStatus:
        case Step::LastBlock:
        case Step::ManifestStatus:
        case Step::LastStatus:
        case Step::Over:
            Rule(false, "a device that is opened, or is not, is asked nothing more");
            break;
    }
    if (!succeeded) {
        step_ = Step::NotOpened;
    }
}

bool DownloadJudge::CountsAsRead(const Crossing& crossing) const {
    return crossing.transferred == crossing.before.size() || !hasStaleError_;
}

// The first descriptor of the type and length of the DFU functional one counts, whatever it is.
void DownloadJudge::TakeConfiguration(std::span<const std::uint8_t> configuration) {
    constexpr std::uint8_t kFunctional = 0x21;
    constexpr std::size_t kFunctionalLength = 9;
    step_ = Step::NotOpened;
    while (!configuration.empty()) {
        const std::size_t length = configuration[0];
        if (length == 0 || length > configuration.size()) {
            return;
        }
        if (length == kFunctionalLength && configuration[1] == kFunctional) {
            transferSize_ = std::size_t{configuration[5]} | std::size_t{configuration[6]} << 8;
            step_ = Step::Setting;
            return;
        }
        configuration = configuration.subspan(length);
    }
}

void DownloadJudge::FollowDownload(const Crossing& crossing) {
    if (step_ < Step::Block) {
        FollowBeforeBlocks(crossing);
    } else if (step_ < Step::LastBlock) {
        FollowBlock(crossing);
    } else {
        FollowManifestation(crossing);
    }
}

void DownloadJudge::FollowBeforeBlocks(const Crossing& crossing) {
    const bool succeeded = crossing.result >= 0;
    if (step_ == Step::FirstState) {
        CheckRequest(crossing, kIn, kGetState, 0, 1);
        step_ = Step::Detach;
        if (!succeeded) {
            End(kFailedRequest, crossing.result, {kStateTransfer, kGetDfuState});
        }
    } else if (step_ == Step::Detach) {
        CheckRequest(crossing, kOut, kDetach, 1000, 0);
        step_ = Step::SecondState;
        if (!succeeded) {
            End(kFailedRequest, crossing.result, {"usbEndpoint->Transfer(packet, nullptr, 0)", "Detach()"});
        }
    } else if (step_ == Step::SecondState) {
        CheckRequest(crossing, kIn, kGetState, 0, 1);
        if (!succeeded) {
            End(kFailedRequest, crossing.result, {kStateTransfer, kGetDfuState, kAssertState});
        } else if (crossing.transferred == 0 || crossing.after[0] != kIdle) {
            End("a camera that is not idle gets no block", kFail, {kAssertState});
        } else {
            BeginDownload();
        }
    } else if (step_ == Step::Probe) {
        CheckRequest(crossing, kIn, kUpload, 0, kProbe);
        if (succeeded) {
            BeginBlocks();
        } else {
            End(kFailedRequest, crossing.result,
                {"usbEndpoint->Transfer(packet, reinterpret_cast<PUCHAR>(fwStatus.data()), fwStatusSize)",
                 "TestConnection()"});
        }
    }
}

void DownloadJudge::FollowBlock(const Crossing& crossing) {
    const bool succeeded = crossing.result >= 0;
    if (step_ == Step::Block) {
        CheckRequest(crossing, kOut, kDnload, block_, BlockLength());
        Rule(std::ranges::equal(crossing.before, image_.subspan(Offset(), BlockLength())),
             "a block carries its part of the image");
        step_ = Step::BlockStatus;
        giveUpAtMs_ = nextAtMs_ + kBlockPatienceMs;
        if (!succeeded) {
            End(kFailedRequest, crossing.result,
                {"usbEndpoint->Transfer(downloadPacket, pBuffer, chunkSize)", kDownload});
        }
    } else if (step_ == Step::BlockStatus) {
        CheckStatusRequest(crossing);
        FollowStatus(crossing, kDnloadIdle, Step::Block);
    }
}

void DownloadJudge::FollowManifestation(const Crossing& crossing) {
    if (step_ == Step::LastBlock) {
        CheckRequest(crossing, kOut, kDnload, block_, 0);
        step_ = Step::ManifestStatus;
        giveUpAtMs_ = nextAtMs_ + kManifestPatienceMs;
    } else if (step_ == Step::ManifestStatus) {
        CheckStatusRequest(crossing);
        FollowStatus(crossing, kWaitReset, Step::LastStatus);
    } else if (step_ == Step::LastStatus) {
        CheckStatusRequest(crossing);
        End("nothing is sent behind the last look", kDone, {});
    }
}

void DownloadJudge::FollowStatus(const Crossing& crossing, std::uint8_t wanted, Step next) {
    const bool isBlock = step_ == Step::BlockStatus;
    if (crossing.result >= 0) {
        const std::uint8_t status = crossing.after[0];
        const std::uint8_t state = crossing.after[4];
        if (status == 0 && state == wanted) {
            sawTheEnd_ = !isBlock;
            step_ = next;
            if (isBlock) {
                NextBlock();
            }
            return;
        }
        if (status != 0 || state == kError) {
            giveUpAtMs_ = 0;
        }
    }
    if (giveUpAtMs_ != 0) {
        nextAtMs_ += kPollPeriodMs;
    }
    if (nextAtMs_ >= giveUpAtMs_) {
        const char* const why = giveUpAtMs_ == 0 ? "an error that the camera tells ends the update"
                                                 : "a wait ends when its time is over";
        if (isBlock) {
            End(why, kFail, {"WaitForState(DFU_STATE::dfuDNLOAD_IDLE, 5000)", kDownload});
        } else {
            End(why, kFail, {"WaitForState(DFU_STATE::dfuMANIFEST_WAIT_RESET, 30000)", "ManifestAndReset()"});
        }
    }
}

void DownloadJudge::BeginDownload() {
    step_ = Step::Probe;
    if (transferSize_ < kProbe) {
        End("a request that is longer than the device takes is not sent", kBadLength,
            {"usbEndpoint->Transfer(packet, reinterpret_cast<PUCHAR>(fwStatus.data()), fwStatusSize)",
             "TestConnection()"});
    }
}

void DownloadJudge::BeginBlocks() {
    step_ = image_.empty() ? Step::LastBlock : Step::Block;
}

void DownloadJudge::NextBlock() {
    const std::size_t length = BlockLength();
    ++block_;
    const std::size_t rest = image_.size() - std::min(Offset(), image_.size());
    log_ += "Downloaded " + std::to_string(length) + ", bytes remaining " + std::to_string(rest) + "\n";
    step_ = rest == 0 ? Step::LastBlock : Step::Block;
}

std::size_t DownloadJudge::BlockLength() const {
    return std::min(transferSize_, image_.size() - Offset());
}

void DownloadJudge::End(const char* why, std::int32_t result, std::initializer_list<std::string_view> lines) {
    step_ = Step::Over;
    whyOver_ = why;
    result_ = result;
    for (const std::string_view line : lines) {
        log_.append(line).append(" Failed with status").append(std::to_string(result)).append("\n");
    }
}

}  // namespace campaign
