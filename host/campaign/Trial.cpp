#include "host/campaign/Trial.h"

#include "host/campaign/Allowances.h"
#include "host/campaign/BrokenRule.h"
#include "host/campaign/CurrentTrial.h"
#include "host/campaign/Pieces.h"
#include "lab/camera/DfuTypes.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

namespace campaign {
namespace {

constexpr std::size_t kCamera = 0;
constexpr std::size_t kOther = 1;
constexpr ULONGLONG kPlugPauseMs = 1000;
constexpr int kMostEvents = 20;  // that a camera makes happen by itself behind an update

using Version = std::array<std::uint8_t, 4>;

Version VersionOf(std::span<const std::uint8_t> image) {
    Version version{};
    std::ranges::copy(image.subspan(lab::FlashMemory::kVersionOffset, version.size()), version.begin());
    return version;
}

// One of the kind as it leaves the factory; each is made once.
const lab::VirtualCamera& NewCamera(const Kind& kind) {
    static std::map<std::string_view, lab::VirtualCamera> cameras;
    return cameras.try_emplace(kind.name, SettingsOf(kind)).first->second;
}

}  // namespace

std::string_view NameOf(UpdateEnd::How how) {
    switch (how) {
        case UpdateEnd::How::NotAsked:
            return "not asked";
        case UpdateEnd::How::UpToDate:
            return "up to date";
        case UpdateEnd::How::NotSwitched:
            return "not switched";
        case UpdateEnd::How::NotOpened:
            return "not opened";
        case UpdateEnd::How::Failed:
            return "failed";
        case UpdateEnd::How::Updated:
            return "updated";
    }
    return "?";
}

std::size_t TrialEnd::FaultsMet() const {
    std::size_t met = 0;
    for (const UpdateEnd& update : updates) {
        met += update.faultsMet;
    }
    return met;
}

namespace {

std::string_view NameOf(const lab::FirmwareVerdict& verdict) {
    if (!verdict.isValid) {
        return "no firmware";
    }
    switch (verdict.content) {
        case lab::FirmwareVerdict::Content::Image:
            return "the image";
        case lab::FirmwareVerdict::Content::Old:
            return "the old firmware";
        case lab::FirmwareVerdict::Content::Other:
            break;
    }
    return "valid-looking and wrong";
}

}  // namespace

// Hands each crossing to the audience first, so that a transcript has what broke a rule.
class Trial::Listener final : public ICrossingListener {
  public:
    explicit Listener(Audience* audience) : audience_(audience) {}

    void Attach(CameraBus& bus, ServiceRoad& road) {
        bus_ = &bus;
        road_ = &road;
    }
    // Whether the answer that ended the last download was false: the camera told that it waits for its reset,
    // and did not.
    [[nodiscard]] bool WasDeceived() const { return road_->SawTheEnd() && endIsFalse_; }

    // Whether the last crossing broke a rule.
    [[nodiscard]] bool IsInCrossing() const { return isInCrossing_; }

    void OnCrossing(const Crossing& crossing) override {
        if (audience_ != nullptr) {
            audience_->OnCrossing(crossing);
        }
        const bool sawTheEnd = road_->SawTheEnd();
        isInCrossing_ = true;
        road_->OnCrossing(crossing);
        isInCrossing_ = false;
        if (!sawTheEnd && road_->SawTheEnd()) {
            endIsFalse_ = bus_->Camera(crossing.camera).State() != lab::DfuState::ManifestWaitReset;
        }
    }

  private:
    Audience* audience_;
    CameraBus* bus_ = nullptr;
    ServiceRoad* road_ = nullptr;
    bool endIsFalse_ = false;
    bool isInCrossing_ = false;
};

Trial::Trial(TrialPlan plan, const UpdateEnd* faultless, Audience* audience)
    : plan_(std::move(plan)),
      faultless_(faultless),
      audience_(audience),
      camera_(NewCamera(*plan_.kind)),
      other_(NewCamera(Kinds().front())),
      listener_(std::make_unique<Listener>(audience)),
      bus_(time_, *listener_, {&camera_, &other_}),
      road_(bus_, time_) {
    listener_->Attach(bus_, road_);
    known_.push_back(camera_.Flash());
}

Trial::~Trial() = default;

TrialEnd Trial::Run() {
    try {
        RunAll();
    } catch (const BrokenRule& rule) {
        end_.complaint = std::string("broken: ") + rule.what();
        if (audience_ != nullptr) {
            audience_->OnBroken(listener_->IsInCrossing(), road_.NextRequest());
        }
    } catch (const std::exception& error) {
        end_.complaint = std::string("raised: ") + error.what();
    }
    if (!end_.complaint.empty()) {
        Tell(end_.complaint);
    }
    return end_;
}

void Trial::RunAll() {
    const unsigned last = plan_.LastUpdate();
    PlugIn(kOther);  // it runs beside the one that is updated
    for (unsigned number = 1; number <= last + 1; ++number) {
        known_.push_back(plan_.Image(number));
        end_.updates.push_back(Update(kCamera, number, plan_.FaultsOf(number)));
        Judge(end_.updates.back());
        LookAgain(kCamera, end_.updates.back());
    }
    ArriveUpToDate();
    camera_.Unplug();
    Tell("another camera");
    const UpdateEnd other = Update(kOther, 1, {});
    Rule(other.how == UpdateEnd::How::Updated && other.verdict.isValid &&
             other.verdict.content == lab::FirmwareVerdict::Content::Image,
         "another camera is updated");
    LookAgain(kOther, other);
}

// A camera that was updated comes once more, with nothing newer for it.
void Trial::ArriveUpToDate() {
    const UpdateEnd& good = end_.updates.back();
    if (good.how != UpdateEnd::How::Updated) {
        return;
    }
    const UpdateEnd again = Update(kCamera, good.number, {});
    Rule(again.how == UpdateEnd::How::UpToDate && again.verdict.isValid &&
             again.verdict.content == lab::FirmwareVerdict::Content::Image,
         "a camera that has the image is left alone");
}

UpdateEnd Trial::Update(std::size_t camera, unsigned number, const std::vector<lab::Fault>& faults) {
    lab::VirtualCamera& device = bus_.Camera(camera);
    const Image image = plan_.Image(number);
    UpdateEnd end{.number = number};
    Tell("update " + std::to_string(number));
    if (audience_ != nullptr) {
        audience_->OnUpdate(camera, number);
    }
    device.SetFaults(faults);
    const bool arrivesAgain = camera == kCamera && plan_.Has(number, Circumstance::What::ArrivesAgain);
    if (arrivesAgain && device.Mode() != lab::BusMode::Absent) {
        time_.Advance(kPlugPauseMs);
    } else {
        PlugIn(camera);
    }
    const bool isStale = camera == kCamera && plan_.Has(number, Circumstance::What::StaleError);
    road_.LeaveError(isStale ? ERROR_NO_MORE_ITEMS : ERROR_SUCCESS);
    end.beganRunning = device.Mode() == lab::BusMode::Running;
    end.beganInError = device.Mode() == lab::BusMode::Dfu && device.State() == lab::DfuState::Error;
    end.beganInMidst = device.Mode() == lab::BusMode::Dfu && arrivesAgain;
    GoOnTheRoad(camera, image, end);
    end.faultsMet = device.FaultsMet();
    device.SetFaults({});
    Settle(device);
    end.verdict = VerdictOn(device, image);
    Tell(std::string(NameOf(end.how)) + "; the camera has " + std::string(NameOf(end.verdict)));
    if (audience_ != nullptr) {
        audience_->OnUpdateEnd(end);
    }
    return end;
}

// What was found out about its flash is what it then does.
void Trial::PlugIn(std::size_t camera) {
    lab::VirtualCamera& device = bus_.Camera(camera);
    const Image left = device.Survivor().Bytes();
    const bool isValid = device.Survivor().IsValid();
    device.Unplug();
    time_.Advance(kPlugPauseMs);
    device.Plug(time_.Now());
    time_.Advance(0);
    Rule((device.Mode() == lab::BusMode::Running) == isValid && device.Flash() == left,
         "a camera starts what its flash holds, or nothing");
}

void Trial::GoOnTheRoad(std::size_t camera, const Image& image, UpdateEnd& end) {
    lab::VirtualCamera& device = bus_.Camera(camera);
    if (end.beganRunning) {
        Rule(!road_.Download(image).isPresent, "a running camera is not taken for one in DFU mode");
        const std::optional<Version> version = road_.ReadVersion(camera);
        if (!version || *version == Version{}) {
            end.how = UpdateEnd::How::NotAsked;
            return;
        }
        if (*version == VersionOf(image)) {
            end.how = UpdateEnd::How::UpToDate;
            return;
        }
        road_.SwitchToDfuMode(camera);
        Settle(device);
    }
    const ServiceRoad::DfuPass pass = road_.Download(image);
    end.result = pass.result;
    if (!pass.isPresent) {
        end.how = UpdateEnd::How::NotSwitched;
    } else if (!pass.isOpened) {
        end.how = UpdateEnd::How::NotOpened;
    } else {
        end.how = FAILED(pass.result) ? UpdateEnd::How::Failed : UpdateEnd::How::Updated;
    }
}

// Lets the camera do what it is about to do by itself.
void Trial::Settle(lab::VirtualCamera& camera) {
    for (int event = 0; event < kMostEvents && camera.NextDeadline(); ++event) {
        const std::uint64_t due = *camera.NextDeadline();
        time_.Advance(due - std::min<std::uint64_t>(due, time_.Now()));
    }
}

// The camera's next arrival, at which nothing goes wrong. One that was pulled out is plugged in for it.
void Trial::LookAgain(std::size_t camera, const UpdateEnd& end) {
    lab::VirtualCamera& device = bus_.Camera(camera);
    if (device.Mode() == lab::BusMode::Absent) {
        PlugIn(camera);
    }
    if (device.Mode() != lab::BusMode::Running) {
        return;
    }
    Rule(end.verdict.isValid, "a camera runs when its flash holds firmware");
    const std::optional<Version> version = road_.ReadVersion(camera);
    Rule(version.has_value(), "a running camera tells its version");
    const Image& image = known_[end.number];
    const auto found = std::ranges::find(known_, device.Survivor().Bytes());
    if (found != known_.end()) {
        Rule(*version == VersionOf(*found), "a camera tells the version of the firmware that it has");
    } else if (*version == VersionOf(image)) {
        Rule(end.verdict.IsWrong(), "a camera that counts as up to date has the image");
        Allow(kVersionDecides);
    }
}

void Trial::Judge(const UpdateEnd& end) {
    const bool hasImage = end.verdict.isValid && end.verdict.content == lab::FirmwareVerdict::Content::Image;
    if (end.how == UpdateEnd::How::Updated && !hasImage) {
        Rule(listener_->WasDeceived(), "the service is content with a wrong flash");
        Allow(kStateIsBelieved);
    }
    const Image left = camera_.Survivor().Bytes();
    Rule(FewestPieces(left, known_) <= MostPieces(),
         "a flash holds pieces of images that were written to it, or nothing");
    if (end.verdict.IsWrong()) {
        // Either power is to go, or has gone, in the middle of a download; or it did before, and nothing has
        // changed since.
        Rule(plan_.kind->bootCheck == lab::DfuTraits::BootCheck::FirstPage &&
                 (camera_.Mode() != lab::BusMode::Running || left == half_),
             "the camera has firmware that looks valid and is wrong");
        half_ = left;
        Allow(kHalfAnImageIsStarted);
    }
    if (end.faultsMet == 0) {
        JudgeFaultless(end);
    }
}

void Trial::JudgeFaultless(const UpdateEnd& end) {
    if (end.how == UpdateEnd::How::NotAsked && end.verdict.IsWrong()) {
        Rule(camera_.Version() == "0.0.0.0", "who tells a version is asked for, or up to date");
        Allow(kVersionIsMissing);
        return;
    }
    if (plan_.kind->personality == lab::Personality::Kv400 && end.beganRunning) {
        Rule(end.how == UpdateEnd::How::Updated && end.verdict.isValid &&
                 end.verdict.content == lab::FirmwareVerdict::Content::Image,
             "without a fault a KV400 that runs is updated");
    }
    if (end.beganRunning) {
        const UpdateEnd& faultless = faultless_ != nullptr ? *faultless_ : end_.updates.front();
        Rule(end.how == faultless.how && end.result == faultless.result &&
                 end.verdict.isValid == faultless.verdict.isValid &&
                 end.verdict.content == faultless.verdict.content,
             "without a fault a camera that runs is updated as ever");
        return;
    }
    if (end.beganInMidst) {
        // The judge of the download has seen the camera's state and knows what follows from it.
        Rule(end.how == UpdateEnd::How::Updated || end.how == UpdateEnd::How::Failed,
             "without a fault a camera that arrives again in DFU mode is opened");
        return;
    }
    // The service clears no error, so only a boot loader that forgets it by itself gets any further.
    const bool isUpdated = end.how == UpdateEnd::How::Updated;
    Rule(end.beganInError && isUpdated == end.verdict.isValid,
         "without a fault a camera without firmware is updated, or stays without");
}

// What the flash may be made of: each block of each update may have come in two parts, and each page may be
// torn.
std::size_t Trial::MostPieces() const {
    const std::size_t bytes = std::max(known_.front().size(), plan_.imageSize);
    const std::size_t blocks = plan_.imageSize / camera_.Settings().transferSize + 1;
    const std::size_t pages = bytes / camera_.Settings().pageSize + 1;
    return 2 * (blocks + pages) * known_.size();
}

void Trial::Allow(std::size_t allowance) {
    if (std::ranges::find(end_.allowances, allowance) == end_.allowances.end()) {
        end_.allowances.push_back(allowance);
        Tell("allowed: " + std::string(Allowances()[allowance].name));
    }
}

lab::FirmwareVerdict Trial::VerdictOn(const lab::VirtualCamera& camera, const Image& image) const {
    lab::FirmwareVerdict verdict = camera.Firmware(known_.front(), image);
    for (const Image& known : known_) {
        if (verdict.content == lab::FirmwareVerdict::Content::Other) {
            verdict = camera.Firmware(known, image);
        }
    }
    return verdict;
}

void Trial::Tell(const std::string& words) const {
    if (audience_ != nullptr) {
        audience_->OnStep(words);
    }
}

const UpdateEnd& FaultlessEnd(const Kind& kind, std::size_t imageSize) {
    static std::map<std::pair<std::string_view, std::size_t>, UpdateEnd> ends;
    const auto [place, isNew] = ends.try_emplace({kind.name, imageSize});
    UpdateEnd& end = place->second;
    if (isNew) {
        const TrialPlan plan{.kind = &kind, .imageSize = imageSize, .seed = 1};
        CurrentTrial::Set(IdOf(plan));
        const TrialEnd whole = Trial(plan, nullptr).Run();
        if (!whole.complaint.empty()) {
            ends.erase(place);
            throw BrokenRoad(IdOf(plan), whole.complaint);
        }
        end = whole.updates.front();
    }
    return end;
}

}  // namespace campaign
