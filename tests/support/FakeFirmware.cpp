#include "tests/support/FakeFirmware.h"

#include <algorithm>
#include <cstring>

namespace test_support {
namespace {

constexpr GUID kUnit{0xC9606CCB, 0x594C, 0x4D25, {0xAF, 0x47, 0xCC, 0xC4, 0x96, 0x43, 0x59, 0x95}};
constexpr std::size_t kFrameSize = 1024;

constexpr ULONG kGet = 1;
constexpr ULONG kSet = 2;
constexpr ULONG kSupport = 0x100;
constexpr ULONG kTopology = 0x10000000;

std::uint32_t Word(const std::vector<BYTE>& bytes, std::size_t offset) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

}  // namespace

FakeFirmware::FakeFirmware() {
    for (std::size_t index = 0; index < informationBlock_.size(); ++index) {
        informationBlock_[index] = static_cast<BYTE>(index + 100);
    }
    SetVersion(5, 10, 3, 0);
}

void FakeFirmware::SetVersion(BYTE first, BYTE second, BYTE third, BYTE fourth) {
    const std::scoped_lock guard(lock_);
    informationBlock_[15] = first;
    informationBlock_[14] = second;
    informationBlock_[13] = third;
    informationBlock_[12] = fourth;
}

void FakeFirmware::SetProbeResult(HRESULT result) {
    const std::scoped_lock guard(lock_);
    probeResult_ = result;
}

void FakeFirmware::SetWriteResult(HRESULT result) {
    const std::scoped_lock guard(lock_);
    writeResult_ = result;
}

void FakeFirmware::SetReadResult(HRESULT result) {
    const std::scoped_lock guard(lock_);
    readResult_ = result;
}

void FakeFirmware::FailReads(int count, HRESULT result) {
    const std::scoped_lock guard(lock_);
    failingReads_ = count;
    failingReadResult_ = result;
}

void FakeFirmware::SetEcho(std::uint32_t echo) {
    const std::scoped_lock guard(lock_);
    echo_ = echo;
}

std::vector<FakeFirmware::Command> FakeFirmware::Commands() const {
    const std::scoped_lock guard(lock_);
    return commands_;
}

HRESULT FakeFirmware::Answer(const KsCall& call) {
    const std::scoped_lock guard(lock_);
    if (call.operation != KsCall::Operation::Property || call.Set() != kUnit || call.Id() != 1) {
        return HRESULT_FROM_WIN32(ERROR_SET_NOT_FOUND);
    }
    switch (call.Flags()) {
        case kSupport | kTopology:
            return probeResult_;
        case kSet | kTopology:
            return Write(call);
        case kGet | kTopology:
            return Read(call);
        default:
            return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    }
}

HRESULT FakeFirmware::Write(const KsCall& call) {
    if (call.dataBefore.size() != kFrameSize) {
        return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    }
    const auto& frame = call.dataBefore;
    commands_.push_back(Command{static_cast<unsigned>(frame[0] | (frame[1] << 8)),
                                {frame[2], frame[3]},
                                Word(frame, 4),
                                {Word(frame, 8), Word(frame, 12), Word(frame, 16), Word(frame, 20)}});
    return writeResult_;
}

HRESULT FakeFirmware::Read(const KsCall& call) {
    if (failingReads_ > 0) {
        --failingReads_;
        return failingReadResult_;
    }
    if (FAILED(readResult_)) {
        return readResult_;
    }
    if (call.dataLength != kFrameSize || call.bytesReturned == nullptr) {
        return HRESULT_FROM_WIN32(ERROR_INVALID_PARAMETER);
    }
    std::array<BYTE, kFrameSize> reply{};
    const std::uint32_t opcode = commands_.empty() ? 0 : commands_.back().opcode;
    const std::uint32_t echo = echo_.value_or(opcode);
    std::memcpy(reply.data(), &echo, sizeof echo);
    if (opcode == 0x10) {
        std::copy(informationBlock_.begin(), informationBlock_.end(), reply.begin() + sizeof echo);
    }
    std::memcpy(call.data, reply.data(), reply.size());
    *call.bytesReturned = kFrameSize;
    return S_OK;
}

}  // namespace test_support
