#pragma once

#include "host/campaign/CameraBus.h"
#include "host/campaign/ServiceRoad.h"
#include "host/campaign/TrialPlan.h"
#include "host/campaign/VirtualTime.h"
#include "lab/camera/FirmwareVerdict.h"
#include "lab/camera/VirtualCamera.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace campaign {

// How an update of a camera ended.
struct UpdateEnd {
    enum class How {
        NotAsked,     // the camera's version stayed unknown
        UpToDate,     // the camera told the image's version
        NotSwitched,  // it did not come to DFU mode
        NotOpened,    // it did, and could not be opened
        Failed,       // the download failed
        Updated,      // the service takes it for done
    };

    unsigned number = 1;  // as in the plan
    How how = How::NotAsked;
    HRESULT result = S_OK;
    lab::FirmwareVerdict verdict = {};  // of what it has then
    // What it came to the bus as.
    bool beganRunning = false;
    bool beganInError = false;  // in DFU mode, in dfuERROR: its flash has no firmware that is started
    bool beganInMidst = false;  // in DFU mode, as the update before has left it
    std::size_t faultsMet = 0;  // of those of this update
};

// In a word or two.
[[nodiscard]] std::string_view NameOf(UpdateEnd::How how);

// What became of a trial.
struct TrialEnd {
    std::vector<UpdateEnd> updates = {};  // the faulted ones, then the good one
    // Why something is allowed that otherwise must not be: rows of Allowances().
    std::vector<std::size_t> allowances = {};
    // What the service did that it must not do; empty when it did all right.
    std::string complaint = {};

    // Of the plan's faults, how many struck.
    [[nodiscard]] std::size_t FaultsMet() const;
};

// One trial: a camera is updated, with the plan's faults, as often as they want; then without any, with a
// newer image, where it can still be updated, and arrives once more with it; then another camera is, which
// was on the bus all the time. Before each update it is plugged in anew, as operators do it, but for those at
// which the plan says that it arrives again as it is. Everything on the way is judged.
class Trial {
  public:
    // What a trial tells while it goes on, for whoever wants a transcript.
    class Audience {
      public:
        Audience() = default;
        Audience(const Audience&) = delete;
        Audience& operator=(const Audience&) = delete;
        virtual ~Audience() = default;

        virtual void OnStep(const std::string& words) = 0;
        virtual void OnCrossing(const Crossing& crossing) = 0;
        // The camera, 0 or the other one's 1, is about to be plugged in for its update of this number.
        virtual void OnUpdate(std::size_t camera, unsigned number) = 0;
        virtual void OnUpdateEnd(const UpdateEnd& end) = 0;
        // A rule is broken, by the last crossing or behind it. `next` is the request that had to come in DFU
        // mode; empty for none.
        virtual void OnBroken(bool isByCrossing, std::string_view next) = 0;
    };

    // `faultless` is how a camera of the kind is updated that nothing was ever done to; null: the trial has
    // no faults, and its first update shows it. `audience` may be null. Neither is owned.
    Trial(TrialPlan plan, const UpdateEnd* faultless, Audience* audience = nullptr);

    ~Trial();
    Trial(const Trial&) = delete;
    Trial& operator=(const Trial&) = delete;

    // To be called once.
    [[nodiscard]] TrialEnd Run();
    // The camera of the plan.
    [[nodiscard]] const lab::VirtualCamera& Camera() const { return camera_; }

  private:
    using Image = std::vector<std::uint8_t>;

    class Listener;

    void RunAll();
    void ArriveUpToDate();
    UpdateEnd Update(std::size_t camera, unsigned number, const std::vector<lab::Fault>& faults);
    void PlugIn(std::size_t camera);
    void GoOnTheRoad(std::size_t camera, const Image& image, UpdateEnd& end);
    void Settle(lab::VirtualCamera& camera);
    void LookAgain(std::size_t camera, const UpdateEnd& end);
    void Judge(const UpdateEnd& end);
    void JudgeFaultless(const UpdateEnd& end);
    [[nodiscard]] std::size_t MostPieces() const;
    void Allow(std::size_t allowance);
    [[nodiscard]] lab::FirmwareVerdict VerdictOn(const lab::VirtualCamera& camera, const Image& image) const;
    void Tell(const std::string& words) const;

    TrialPlan plan_;
    const UpdateEnd* faultless_;
    Audience* audience_;
    TrialEnd end_;
    VirtualTime time_;
    lab::VirtualCamera camera_;
    lab::VirtualCamera other_;
    std::unique_ptr<Listener> listener_;
    CameraBus bus_;
    ServiceRoad road_;
    // What a camera's flash may rightly hold: what it came with, and the image of each update at its number.
    std::vector<Image> known_;
    Image half_;  // the half of an image that the camera was last found to start
};

// How a camera of the kind is updated, with images of this size, that nothing was ever done to: what every
// later update without faults is held against. Not to be called while there is a trial. Throws BrokenRoad
// when the service does what it must not do even then.
[[nodiscard]] const UpdateEnd& FaultlessEnd(const Kind& kind, std::size_t imageSize);

}  // namespace campaign
