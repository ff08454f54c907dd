#include "lab/camera/BootLoader.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace lab {
namespace {

FlashSettings FlashOf(const CameraSettings& settings) {
    const DfuTraits traits = TraitsOf(settings);
    return {.hasTwoBanks = settings.hasTwoBanks,
            .pageSize = settings.pageSize,
            .bootCheck = traits.bootCheck,
            .putsBack = traits.putsBack,
            .faults = settings.faults};
}

}  // namespace

BootLoader::BootLoader(const CameraSettings& settings)
    : traits_(TraitsOf(settings)),
      transferSize_(settings.transferSize),
      blockMs_(traits_.writesAtOnce ? 0 : settings.blockMs),
      manifestMs_(settings.manifestMs),
      manifestsAtOnce_(settings.manifestsAtOnce),
      resetMs_(settings.resetMs),
      flash_(settings.version, FlashOf(settings)) {}

void BootLoader::Start() {
    ReturnToIdle();
    busyReported_ = false;
    isManifested_ = false;
    waitResetReported_ = false;
    wantsReset_ = false;
    staysInDfuMode_ = false;
    hearsFromMs_ = 0;
    uploaded_ = 0;
    lastBlockNumber_.reset();
    if (!flash_.IsValid()) {
        Fail(DfuStatus::ErrFirmware);
    }
}

void BootLoader::LosePower() {
    deadline_.reset();
    flash_.LosePower();
}

void BootLoader::Advance(std::uint64_t atMs) {
    deadline_.reset();
    if (state_ == DfuState::DnBusy) {
        state_ = DfuState::DnloadSync;
    } else if (state_ == DfuState::Manifest) {
        EndManifestation(atMs);
    } else if (state_ == DfuState::ManifestWaitReset) {
        wantsReset_ = true;
    }
}

DfuAnswer BootLoader::Handle(const SetupPacket& setup, std::span<const std::uint8_t> data,
                             std::uint64_t nowMs) {
    const std::uint64_t heardAtMs = std::max(nowMs, hearsFromMs_);
    if (deadline_ && *deadline_ <= heardAtMs) {
        Advance(*deadline_);
    }
    DfuAnswer answer = CarryOut(setup, data, heardAtMs);
    answer.lateMs = heardAtMs - nowMs;
    return answer;
}

DfuAnswer BootLoader::CarryOut(const SetupPacket& setup, std::span<const std::uint8_t> data,
                               std::uint64_t nowMs) {
    constexpr std::uint8_t kToDevice = 0x21;
    constexpr std::uint8_t kToHost = 0xA1;
    if (setup.requestType == kToDevice) {
        switch (DfuRequest{setup.request}) {
            case DfuRequest::Detach:
                return Detach();
            case DfuRequest::Dnload:
                return Dnload(setup.value, data, nowMs);
            case DfuRequest::ClrStatus:
                return ClrStatus();
            case DfuRequest::Abort:
                return Abort();
            case DfuRequest::Upload:
            case DfuRequest::GetStatus:
            case DfuRequest::GetState:
                break;
        }
    }
    if (setup.requestType == kToHost) {
        switch (DfuRequest{setup.request}) {
            case DfuRequest::Upload:
                return Upload(setup.length);
            case DfuRequest::GetStatus:
                return GetStatus(nowMs);
            case DfuRequest::GetState:
                return GetState();
            case DfuRequest::Detach:
            case DfuRequest::Dnload:
            case DfuRequest::ClrStatus:
            case DfuRequest::Abort:
                break;
        }
    }
    return Refuse();
}

void BootLoader::Fail(DfuStatus status) {
    if (state_ != DfuState::Error) {
        state_ = DfuState::Error;
        status_ = status;
        deadline_.reset();
    }
}

void BootLoader::TakePart(std::uint16_t blockNumber, std::span<const std::uint8_t> part) {
    if (!TakesBlocks() || part.empty()) {
        return;
    }
    if (state_ == DfuState::DfuIdle) {
        flash_.BeginImage();
    }
    Write(blockNumber, part);
}

TransferEnd BootLoader::SetInterface() {
    if (traits_.setInterface == DfuTraits::SetInterface::Stalls) {
        return TransferEnd::Stall;
    }
    if (traits_.setInterface == DfuTraits::SetInterface::ResetsState) {
        ReturnToIdle();
    }
    return TransferEnd::Ok;
}

DfuAnswer BootLoader::Detach() {
    if (traits_.detach == DfuTraits::Detach::Stalls) {
        return Refuse();
    }
    if (traits_.detach != DfuTraits::Detach::Accepted) {
        ReturnToIdle();
        wantsReset_ = true;
        staysInDfuMode_ = traits_.detach == DfuTraits::Detach::RestartsInDfuMode;
    }
    return {};
}

DfuAnswer BootLoader::Dnload(std::uint16_t blockNumber, std::span<const std::uint8_t> data,
                             std::uint64_t nowMs) {
    if (state_ == DfuState::UploadIdle && traits_.dropsBlocksInUpload) {
        return {.taken = data.size()};
    }
    if (!TakesBlocks() || data.size() > transferSize_) {
        return Refuse();
    }
    if (state_ == DfuState::DfuIdle && data.empty() && !traits_.takesEmptyImage) {
        return Refuse(DfuStatus::ErrNotDone);
    }
    if (state_ == DfuState::DfuIdle) {
        lastBlockNumber_.reset();
    }
    if (state_ == DfuState::DfuIdle && !data.empty()) {
        flash_.BeginImage();
    }
    CountGap(blockNumber);
    if (data.empty()) {
        state_ = DfuState::ManifestSync;
        isManifested_ = false;
        return {};
    }
    Write(blockNumber, data);
    state_ = DfuState::DnloadSync;
    busyReported_ = false;
    if (!traits_.isDeafWhileWriting || !traits_.isBusyFirst) {
        BeginWriting(nowMs, blockMs_);
    }
    return {.taken = data.size()};
}

DfuAnswer BootLoader::Upload(std::size_t length) {
    if (length == 0 || length > transferSize_) {
        return Refuse();
    }
    if (state_ == DfuState::DfuIdle) {
        if (traits_.upload == DfuTraits::Upload::Stalls) {
            return Refuse();
        }
        if (traits_.upload == DfuTraits::Upload::StatusBlock) {
            return UploadStatusBlock(length);
        }
        uploaded_ = 0;
    } else if (state_ != DfuState::UploadIdle) {
        return Refuse();
    }
    const std::span<const std::uint8_t> rest = std::span(flash_.Bytes()).subspan(uploaded_);
    const std::span<const std::uint8_t> frame = rest.first(std::min(length, rest.size()));
    uploaded_ += frame.size();
    state_ = frame.size() < length ? DfuState::DfuIdle : DfuState::UploadIdle;
    return {.reply = {frame.begin(), frame.end()}};
}

DfuAnswer BootLoader::GetStatus(std::uint64_t nowMs) {
    if (!AnswersQueries()) {
        return Refuse();
    }
    if (state_ == DfuState::ManifestSync && manifestsAtOnce_) {
        EndManifestation(nowMs);
    }
    if (state_ == DfuState::DnloadSync) {
        if (traits_.isBusyFirst && !busyReported_ && !deadline_) {
            BeginWriting(nowMs, traits_.isDeafWhileWriting ? blockMs_ : 0);
        }
        state_ = deadline_ ? DfuState::DnBusy : DfuState::DnloadIdle;
        busyReported_ = true;
    } else if (state_ == DfuState::ManifestSync && isManifested_) {
        ReturnToIdle();
    } else if (state_ == DfuState::ManifestSync) {
        state_ = DfuState::Manifest;
        deadline_ = nowMs + manifestMs_;
    } else if (state_ == DfuState::ManifestWaitReset && waitResetReported_ &&
               traits_.manifestation == DfuTraits::Manifestation::ResetsItself) {
        wantsReset_ = true;
        return {.end = TransferEnd::Disconnected};
    }
    waitResetReported_ = state_ == DfuState::ManifestWaitReset;
    return StatusReply(nowMs);
}

DfuAnswer BootLoader::ClrStatus() {
    if (state_ != DfuState::Error) {
        return Refuse();
    }
    ReturnToIdle();
    return {};
}

DfuAnswer BootLoader::GetState() {
    if (!AnswersQueries()) {
        return Refuse();
    }
    return {.reply = {static_cast<std::uint8_t>(state_)}};
}

DfuAnswer BootLoader::Abort() {
    constexpr std::array kAllowed{DfuState::DfuIdle, DfuState::DnloadSync, DfuState::DnloadIdle,
                                  DfuState::ManifestSync, DfuState::UploadIdle};
    if (std::find(kAllowed.begin(), kAllowed.end(), state_) == kAllowed.end()) {
        return Refuse();
    }
    ReturnToIdle();
    return {};
}

DfuAnswer BootLoader::Refuse(DfuStatus status) {
    if (!traits_.stallsInPlace) {
        Fail(status);
    }
    return {.end = TransferEnd::Stall};
}

void BootLoader::ReturnToIdle() {
    state_ = DfuState::DfuIdle;
    status_ = DfuStatus::Ok;
    deadline_.reset();
    flash_.DiscardImage();
}

void BootLoader::EndManifestation(std::uint64_t atMs) {
    flash_.CommitImage();
    if (traits_.manifestation == DfuTraits::Manifestation::Tolerant) {
        state_ = DfuState::ManifestSync;
        isManifested_ = true;
        return;
    }
    state_ = DfuState::ManifestWaitReset;
    if (traits_.manifestation == DfuTraits::Manifestation::ResetsItself) {
        deadline_ = atMs + resetMs_;
    }
}

void BootLoader::CountGap(std::uint16_t blockNumber) {
    if (lastBlockNumber_ && blockNumber != static_cast<std::uint16_t>(*lastBlockNumber_ + 1)) {
        ++blockNumberGaps_;
    }
    lastBlockNumber_ = blockNumber;
}

bool BootLoader::TakesBlocks() const {
    return state_ == DfuState::DfuIdle || state_ == DfuState::DnloadIdle;
}

void BootLoader::Write(std::uint16_t blockNumber, std::span<const std::uint8_t> data) {
    if (traits_.addressesBlocks) {
        flash_.PutIntoImage(std::size_t{blockNumber} * transferSize_, data);
    } else {
        flash_.AppendToImage(data);
    }
}

void BootLoader::BeginWriting(std::uint64_t nowMs, std::uint32_t ms) {
    deadline_ = nowMs + ms;
    if (traits_.isDeafWhileWriting) {
        hearsFromMs_ = *deadline_;
    }
}

bool BootLoader::AnswersQueries() const {
    if (state_ == DfuState::DnBusy) {
        return traits_.answersWhileWriting;
    }
    if (state_ == DfuState::Manifest || state_ == DfuState::ManifestWaitReset) {
        return traits_.answersWhileManifesting;
    }
    return true;
}

DfuAnswer BootLoader::StatusReply(std::uint64_t nowMs) const {
    constexpr std::uint64_t kLongestPoll = 0xFFFFFF;
    const bool isBusy = state_ == DfuState::DnBusy || state_ == DfuState::Manifest;
    const bool tellsTime = isBusy && !(state_ == DfuState::DnBusy && traits_.hidesWriteTime);
    const std::uint64_t poll = tellsTime ? std::min(*deadline_ - nowMs, kLongestPoll) : 0;
    const DfuStatus status = traits_.hidesStatus ? DfuStatus::Ok : status_;
    return {.reply = {static_cast<std::uint8_t>(status), static_cast<std::uint8_t>(poll & 0xFF),
                      static_cast<std::uint8_t>(poll >> 8 & 0xFF),
                      static_cast<std::uint8_t>(poll >> 16 & 0xFF), static_cast<std::uint8_t>(state_), 0}};
}

DfuAnswer BootLoader::UploadStatusBlock(std::size_t length) const {
    constexpr std::string_view kTitle = "KV400 boot loader";
    std::vector<std::uint8_t> block(kTitle.begin(), kTitle.end());
    block.resize(kStatusBlockSize);
    block.resize(std::min(length, block.size()));
    return {.reply = block};
}

}  // namespace lab
