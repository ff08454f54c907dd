#include "lab/camera/VirtualCamera.h"

#include "lab/camera/CameraDescriptors.h"
#include "lab/camera/DataStage.h"
#include "lab/camera/DfuDescriptors.h"
#include "lab/camera/DfuTraits.h"

#include <algorithm>
#include <utility>

namespace lab {
namespace {

void Put(std::vector<std::uint8_t>& reply, std::size_t offset, std::uint32_t value) {
    if (offset < reply.size()) {
        reply[offset] = static_cast<std::uint8_t>(value & 0xFF);
    }
}

// Changes an answer as the faults ask.
void Distort(std::vector<std::uint8_t>& reply, const std::vector<Fault>& faults) {
    constexpr std::size_t kStateInStatus = 4;
    for (const Fault& fault : faults) {
        switch (fault.what) {
            case Fault::What::Status:
                Put(reply, 0, fault.value);
                break;
            case Fault::What::State:
                Put(reply, fault.where == Fault::Where::GetStatus ? kStateInStatus : 0, fault.value);
                break;
            case Fault::What::PollTime:
                for (std::size_t byte = 0; byte < 3; ++byte) {
                    Put(reply, 1 + byte, fault.value >> (8 * byte));
                }
                break;
            case Fault::What::ShortReply:
                reply.resize(std::min<std::size_t>(reply.size(), fault.value));
                break;
            case Fault::What::WrongEcho:
                for (std::size_t byte = 0; byte < 4; ++byte) {
                    Put(reply, byte, fault.value >> (8 * byte));
                }
                break;
            case Fault::What::Stall:
            case Fault::What::Timeout:
            case Fault::What::Unplug:
                break;
        }
    }
}

// The first fault that the host sees as a failure; null when there is none.
const Fault* Obstruction(const std::vector<Fault>& faults) {
    const auto found = std::find_if(faults.begin(), faults.end(), [](const Fault& fault) {
        return fault.what == Fault::What::Stall || fault.what == Fault::What::Timeout ||
               fault.what == Fault::What::Unplug;
    });
    return found != faults.end() ? &*found : nullptr;
}

// The same, of one that keeps the request from being carried out.
bool Keeps(const Fault* obstruction) {
    return obstruction != nullptr && obstruction->moment != Fault::Moment::After;
}

// What the device has taken of a block whose transfer breaks off.
std::span<const std::uint8_t> PartTaken(const Fault& fault, std::span<const std::uint8_t> block) {
    const std::size_t length = fault.value == 0 ? block.size() / 2 : fault.value;
    return block.first(std::min(length, block.size()));
}

}  // namespace

VirtualCamera::VirtualCamera(CameraSettings settings)
    : settings_(std::move(settings)),
      dfuInterface_(FindDfuInterface(ConfigurationDescriptor())),
      faults_(settings_.faults),
      bootLoader_(settings_) {}

void VirtualCamera::Plug(std::uint64_t nowMs) {
    Advance(nowMs);
    if (!isPlugged_) {
        isPlugged_ = true;
        Enumerate();
    }
}

void VirtualCamera::Unplug() {
    bootLoader_.LosePower();
    mode_ = BusMode::Absent;
    isPlugged_ = false;
    isDfuRequested_ = false;
    busDeadline_.reset();
}

void VirtualCamera::Reset(std::uint64_t nowMs) {
    Advance(nowMs);
    if (mode_ == BusMode::Absent) {
        return;
    }
    const bool isDetached = State() == DfuState::AppDetach;
    Unplug();
    isDfuRequested_ = isDetached;
    Plug(nowMs);
}

void VirtualCamera::Advance(std::uint64_t nowMs) {
    for (std::optional<std::uint64_t> due = NextDeadline(); due && *due <= nowMs; due = NextDeadline()) {
        switch (mode_) {
            case BusMode::Running:
                if (busDeadline_ == due) {
                    LeaveBus(*due);
                } else {
                    runtimeInterface_.Advance();
                }
                break;
            case BusMode::Absent:
                Enumerate();
                break;
            case BusMode::Dfu:
                bootLoader_.Advance(*due);
                if (!LeaveWithoutPower() && bootLoader_.WantsReset()) {
                    LeaveBus(*due);
                }
                break;
        }
    }
}

std::optional<std::uint64_t> VirtualCamera::NextDeadline() const {
    if (mode_ == BusMode::Dfu) {
        return bootLoader_.NextDeadline();
    }
    if (mode_ == BusMode::Running && runtimeInterface_.NextDeadline()) {
        const std::uint64_t detached = *runtimeInterface_.NextDeadline();
        return std::min(busDeadline_.value_or(detached), detached);
    }
    return busDeadline_;
}

BusMode VirtualCamera::Mode() const {
    return mode_;
}

DfuState VirtualCamera::State() const {
    switch (mode_) {
        case BusMode::Dfu:
            return bootLoader_.State();
        case BusMode::Running:
            return runtimeInterface_.State();
        case BusMode::Absent:
            break;
    }
    return DfuState::AppIdle;
}

DfuStatus VirtualCamera::Status() const {
    return mode_ == BusMode::Dfu ? bootLoader_.Status() : DfuStatus::Ok;
}

const std::vector<std::uint8_t>& VirtualCamera::Flash() const {
    return bootLoader_.Flash().Bytes();
}

FirmwareVerdict VirtualCamera::Firmware(std::span<const std::uint8_t> old,
                                        std::span<const std::uint8_t> image) const {
    const FlashMemory survivor = Survivor();
    const auto holds = [&](std::span<const std::uint8_t> content) {
        return std::ranges::equal(survivor.Bytes(), content);
    };
    return {.isValid = survivor.IsValid(),
            .content = holds(image) ? FirmwareVerdict::Content::Image
                       : holds(old) ? FirmwareVerdict::Content::Old
                                    : FirmwareVerdict::Content::Other};
}

FlashMemory VirtualCamera::Survivor() const {
    FlashMemory survivor = bootLoader_.Flash();
    survivor.LosePower();
    return survivor;
}

std::size_t VirtualCamera::HeldBytes() const {
    return bootLoader_.Flash().HeldBytes();
}

std::string VirtualCamera::Version() const {
    return bootLoader_.Flash().VersionText();
}

const CameraSettings& VirtualCamera::Settings() const {
    return settings_;
}

TransferResult VirtualCamera::WriteCommand(std::span<const std::uint8_t> frame, std::uint64_t nowMs) {
    Advance(nowMs);
    if (const auto reason = WhyNoCommand()) {
        return {.end = *reason};
    }
    const std::vector<Fault> faults = faults_.Strike(Fault::Where::CommandWrite);
    const Fault* const obstruction = Obstruction(faults);
    if (Keeps(obstruction)) {
        return Obstruct(*obstruction);
    }
    switch (extensionUnit_.Write(frame, bootLoader_.Flash())) {
        case ExtensionUnit::Outcome::Refused:
            return {.end = TransferEnd::Stall};
        case ExtensionUnit::Outcome::SwitchToDfu:
            isDfuRequested_ = true;
            busDeadline_ = busDeadline_.value_or(nowMs + settings_.detachMs);
            break;
        case ExtensionUnit::Outcome::Done:
            break;
    }
    if (obstruction != nullptr) {
        return Obstruct(*obstruction);
    }
    return {.end = TransferEnd::Ok, .transferred = frame.size()};
}

TransferResult VirtualCamera::ReadReply(std::span<std::uint8_t> reply, std::uint64_t nowMs) {
    Advance(nowMs);
    if (const auto reason = WhyNoCommand()) {
        return {.end = *reason};
    }
    // What is only read changes nothing: whether it is carried out makes no difference.
    const std::vector<Fault> faults = faults_.Strike(Fault::Where::CommandRead);
    if (const Fault* const obstruction = Obstruction(faults)) {
        return Obstruct(*obstruction);
    }
    std::vector<std::uint8_t> answer = extensionUnit_.Reply();
    answer.resize(kFrameSize);
    Distort(answer, faults);
    return Deliver(answer, reply);
}

TransferResult VirtualCamera::ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data,
                                              std::uint64_t nowMs) {
    Advance(nowMs);
    if (mode_ == BusMode::Absent) {
        return {.end = TransferEnd::Disconnected};
    }
    transfers_ += mode_ == BusMode::Dfu ? 1U : 0U;
    if (!IsForDfuInterface(setup)) {
        return {.end = TransferEnd::Stall};
    }
    if (mode_ == BusMode::Running) {
        return TransferWhenRunning(setup, data, nowMs);
    }
    const std::optional<Fault::Where> place = FaultPlaceOf(setup.request);
    const std::vector<Fault> faults = place ? faults_.Strike(*place) : std::vector<Fault>{};
    const Fault* const obstruction = Obstruction(faults);
    const std::span<std::uint8_t> stage = data.first(std::min<std::size_t>(data.size(), setup.length));
    if (Keeps(obstruction)) {
        if (obstruction->moment == Fault::Moment::Middle) {
            bootLoader_.TakePart(setup.value, PartTaken(*obstruction, stage));
        }
        return LeaveWithoutPower() ? TransferResult{.end = TransferEnd::Disconnected}
                                   : Obstruct(*obstruction);
    }
    DfuAnswer answer = bootLoader_.Handle(setup, stage, nowMs);
    if (LeaveWithoutPower() && place != Fault::Where::Dnload) {
        return {.end = TransferEnd::Disconnected};
    }
    if (bootLoader_.WantsReset() && mode_ == BusMode::Dfu) {
        isDfuRequested_ = bootLoader_.StaysInDfuMode();
        LeaveBus(nowMs);
    }
    if (obstruction != nullptr) {
        return Obstruct(*obstruction);
    }
    if (answer.lateMs > settings_.timeoutMs) {
        return {.end = TransferEnd::Timeout, .tookMs = settings_.timeoutMs};
    }
    const auto tookMs = static_cast<std::uint32_t>(answer.lateMs);
    if (answer.end != TransferEnd::Ok) {
        return {.end = answer.end, .tookMs = tookMs};
    }
    Distort(answer.reply, faults);
    const TransferResult delivered = Deliver(answer.reply, stage);
    return {.end = TransferEnd::Ok, .transferred = answer.taken + delivered.transferred, .tookMs = tookMs};
}

TransferResult VirtualCamera::SetInterface(std::uint64_t nowMs) {
    Advance(nowMs);
    if (mode_ == BusMode::Absent) {
        return {.end = TransferEnd::Disconnected};
    }
    if (mode_ == BusMode::Running) {
        return {.end = TransferEnd::Stall};
    }
    const std::vector<Fault> faults = faults_.Strike(Fault::Where::SetInterface);
    const Fault* const obstruction = Obstruction(faults);
    if (Keeps(obstruction)) {
        return Obstruct(*obstruction);
    }
    const TransferEnd end = bootLoader_.SetInterface();
    if (LeaveWithoutPower()) {
        return {.end = TransferEnd::Disconnected};
    }
    return obstruction != nullptr ? Obstruct(*obstruction) : TransferResult{.end = end};
}

TransferResult VirtualCamera::ReadDescriptor(std::uint8_t type, std::uint8_t index,
                                             std::span<std::uint8_t> buffer, std::uint64_t nowMs) {
    constexpr auto kDevice = static_cast<std::uint8_t>(DescriptorType::Device);
    constexpr auto kConfiguration = static_cast<std::uint8_t>(DescriptorType::Configuration);
    Advance(nowMs);
    if (mode_ == BusMode::Absent) {
        return {.end = TransferEnd::Disconnected};
    }
    if (mode_ == BusMode::Running) {
        return {.end = TransferEnd::Stall};
    }
    const std::vector<Fault> faults = faults_.Strike(Fault::Where::GetDescriptor);
    if (const Fault* const obstruction = Obstruction(faults)) {
        return Obstruct(*obstruction);
    }
    if (index != 0 || (type != kDevice && type != kConfiguration)) {
        return {.end = TransferEnd::Stall};
    }
    std::vector<std::uint8_t> descriptor = type == kDevice ? DeviceDescriptor() : ConfigurationDescriptor();
    Distort(descriptor, faults);
    return Deliver(descriptor, buffer);
}

std::vector<std::uint8_t> VirtualCamera::DeviceDescriptor() const {
    return CameraDescriptors(settings_, BusMode::Dfu).Device();
}

std::vector<std::uint8_t> VirtualCamera::ConfigurationDescriptor() const {
    return CameraDescriptors(settings_, BusMode::Dfu).Configuration();
}

std::vector<std::array<std::uint8_t, 9>> VirtualCamera::Interfaces() const {
    return FindInterfaces(ConfigurationDescriptor());
}

unsigned VirtualCamera::BlockNumberGaps() const {
    return bootLoader_.BlockNumberGaps();
}

void VirtualCamera::SetFaults(const std::vector<Fault>& faults) {
    settings_.faults = faults;
    faults_ = FaultPlan(faults);
    bootLoader_.SetFaults(faults);
}

std::size_t VirtualCamera::FaultsMet() const {
    return faults_.Met() + bootLoader_.Flash().FaultsMet();
}

const PageOperations& VirtualCamera::FlashOperations() const {
    return bootLoader_.Flash().Operations();
}

void VirtualCamera::LeaveBus(std::uint64_t nowMs) {
    mode_ = BusMode::Absent;
    busDeadline_ = nowMs + settings_.enumerateMs;
}

void VirtualCamera::Enumerate() {
    busDeadline_.reset();
    ++arrivals_;
    if (isDfuRequested_ || !bootLoader_.Flash().IsValid()) {
        mode_ = BusMode::Dfu;
        transfers_ = 0;
        bootLoader_.Start();
    } else {
        mode_ = BusMode::Running;
        extensionUnit_.Restart();
        runtimeInterface_.Restart();
    }
    isDfuRequested_ = false;
}

// Whether power has gone at a page operation.
bool VirtualCamera::LeaveWithoutPower() {
    const bool hasLostPower = bootLoader_.HasLostPower();
    if (hasLostPower) {
        Unplug();
    }
    return hasLostPower;
}

TransferResult VirtualCamera::TransferWhenRunning(const SetupPacket& setup, std::span<std::uint8_t> data,
                                                  std::uint64_t nowMs) {
    if (!TraitsOf(settings_).isRuntimeDevice) {
        return {.end = TransferEnd::Stall};
    }
    std::vector<std::uint8_t> reply;
    const TransferEnd end = runtimeInterface_.Handle(setup, nowMs, reply);
    if (end != TransferEnd::Ok) {
        return {.end = end};
    }
    return Deliver(reply, data.first(std::min<std::size_t>(data.size(), setup.length)));
}

std::optional<TransferEnd> VirtualCamera::WhyNoCommand() const {
    if (mode_ == BusMode::Absent) {
        return TransferEnd::Disconnected;
    }
    if (mode_ == BusMode::Dfu || !settings_.hasExtensionUnit) {
        return TransferEnd::Stall;
    }
    return std::nullopt;
}

bool VirtualCamera::IsForDfuInterface(const SetupPacket& setup) const {
    constexpr std::uint8_t kTypeAndRecipient = 0x7F;
    constexpr std::uint8_t kClassToInterface = 0x21;
    return (setup.requestType & kTypeAndRecipient) == kClassToInterface && dfuInterface_ &&
           setup.index == *dfuInterface_;
}

// How the host sees a request end that the fault strikes.
TransferResult VirtualCamera::Obstruct(const Fault& fault) {
    if (fault.what == Fault::What::Unplug) {
        Unplug();
        return {.end = TransferEnd::Disconnected};
    }
    if (fault.what == Fault::What::Timeout) {
        return {.end = TransferEnd::Timeout, .tookMs = settings_.timeoutMs};
    }
    const bool isDfuRequest = mode_ == BusMode::Dfu && fault.where != Fault::Where::GetDescriptor &&
                              fault.where != Fault::Where::SetInterface;
    if (isDfuRequest && fault.setsError && fault.moment != Fault::Moment::After) {
        bootLoader_.Fail(DfuStatus::ErrStalledPkt);
    }
    return {.end = TransferEnd::Stall};
}

}  // namespace lab
