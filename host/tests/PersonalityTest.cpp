#include "dfu/DfuCommand.h"
#include "host/support/CameraEndpoint.h"
#include "tests/lab/camera/CameraDriver.h"
#include "tests/support/FakeClock.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

// What the service does with devices that treat the USB DFU 1.1 standard differently. The engine is the
// service's own, run as its DFU-mode pass runs it (probe of 68 bytes) unless a test says otherwise. None of
// these updates may hang, and each ends with a definite result.

namespace {

using lab::CameraSettings;
using lab::DfuState;
using lab::Personality;
using lab::VirtualCamera;
using lab::test::MakeImage;
using Bytes = std::vector<std::uint8_t>;

constexpr HRESULT kStalled = static_cast<HRESULT>(0x8007001F);
constexpr std::size_t kProbe = 68;
constexpr std::size_t kNoProbe = 0;
constexpr UCHAR kDetach = 0;

// Takes the DETACH itself, which these devices refuse in DFU mode, so that the update goes on behind it.
class DetachingEndpoint final : public usb_core::IUsbControlEndpoint {
  public:
    explicit DetachingEndpoint(VirtualCamera& camera) : endpoint_(camera) {}

    HRESULT Transfer(WINUSB_SETUP_PACKET& packet, PUCHAR buffer, std::size_t length) override {
        return packet.Request == kDetach ? S_OK : endpoint_.Transfer(packet, buffer, length);
    }
    [[nodiscard]] bool IsConnected() const override { return endpoint_.IsConnected(); }
    void Disconnect() override { endpoint_.Disconnect(); }
    [[nodiscard]] std::uint16_t GetMaxTransferSize() const override { return endpoint_.GetMaxTransferSize(); }

  private:
    CameraEndpoint endpoint_;
};

class PersonalityTest : public testing::Test {
  protected:
    // A camera that reached DFU mode by the firmware command.
    VirtualCamera& Begin(const CameraSettings& settings) {
        camera_ = std::make_unique<VirtualCamera>(settings);
        camera_->Plug(clock_.Now());
        camera_->WriteCommand(lab::test::MakeFrame(0x1E, {1, 0, 0, 0}), clock_.Now());
        clock_.Advance(1000);
        camera_->Advance(clock_.Now());
        EXPECT_EQ(camera_->State(), DfuState::DfuIdle);
        before_ = camera_->Flash();
        begin_ = clock_.Now();
        return *camera_;
    }

    template <typename Endpoint>
    HRESULT Update(std::size_t probe) {
        dfu::DfuCommand command(std::make_shared<Endpoint>(*camera_), probe, &log_, {});
        return command.Update(image_.data(), image_.size());
    }

    [[nodiscard]] std::string FirstLine() const { return log_.str().substr(0, log_.str().find('\n')); }
    [[nodiscard]] bool IsFlashUntouched() const { return camera_->Flash() == before_; }
    [[nodiscard]] ULONGLONG Took() const { return clock_.Now() - begin_; }

    const Bytes image_ = MakeImage(5000, {5, 10, 3, 0});
    const std::string kDetachFailed =
        "usbEndpoint->Transfer(packet, nullptr, 0) Failed with status" + std::to_string(kStalled);
    const std::string kBlockFailed =
        "usbEndpoint->Transfer(downloadPacket, pBuffer, chunkSize) Failed with status" +
        std::to_string(kStalled);
    const std::string kManifestFailed =
        "WaitForState(DFU_STATE::dfuMANIFEST_WAIT_RESET, 30000) Failed with status" + std::to_string(E_FAIL);

    test_support::FakeClock clock_;
    std::unique_ptr<VirtualCamera> camera_;
    std::ostringstream log_;
    Bytes before_;
    ULONGLONG begin_ = 0;
};

// The camera that the service is made for.

TEST_F(PersonalityTest, Kv400IsUpdatedAndRestarts) {
    VirtualCamera& camera = Begin({.blockMs = 450, .manifestMs = 950});
    EXPECT_EQ(Update<CameraEndpoint>(kProbe), S_OK);
    EXPECT_EQ(camera.Flash(), image_);
    EXPECT_EQ(camera.BlockNumberGaps(), 0U);
    clock_.Advance(camera.Settings().enumerateMs);
    camera.Advance(clock_.Now());
    EXPECT_EQ(camera.Mode(), lab::BusMode::Running);
    EXPECT_EQ(camera.Version(), "5.10.3.0");
}

TEST_F(PersonalityTest, Kv400IsUpdatedWithoutTheProbeToo) {
    VirtualCamera& camera = Begin({});
    EXPECT_EQ(Update<CameraEndpoint>(kNoProbe), S_OK);
    EXPECT_EQ(camera.Flash(), image_);
}

// The devices that follow the standard where the service does not.

struct Refusal {
    const char* name;
    Personality personality;
    DfuState state;  // in which a request that is refused leaves the device
};

class RefusingPersonality : public PersonalityTest, public testing::WithParamInterface<Refusal> {};

TEST_P(RefusingPersonality, RefusesTheDetachAndTheUpdateEndsBeforeAnyBlock) {
    VirtualCamera& camera = Begin({.personality = GetParam().personality});
    EXPECT_EQ(Update<CameraEndpoint>(kProbe), kStalled);
    EXPECT_EQ(FirstLine(), kDetachFailed);
    EXPECT_TRUE(IsFlashUntouched());
    EXPECT_EQ(camera.State(), GetParam().state);
    EXPECT_EQ(Took(), 0U);
}

TEST_P(RefusingPersonality, TakesTheProbeForAnUploadAndRefusesTheFirstBlock) {
    Begin({.personality = GetParam().personality});
    EXPECT_EQ(Update<DetachingEndpoint>(kProbe), kStalled);
    EXPECT_EQ(FirstLine(), kBlockFailed);
    EXPECT_TRUE(IsFlashUntouched());
    EXPECT_EQ(Took(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Devices, RefusingPersonality,
                         testing::Values(Refusal{"Strict", Personality::Strict, DfuState::Error},
                                         Refusal{"Lenient", Personality::Lenient, DfuState::DfuIdle},
                                         Refusal{"Synchronous", Personality::Synchronous, DfuState::Error}),
                         [](const auto& refusal) { return refusal.param.name; });

// (a) The standard to the letter.

TEST_F(PersonalityTest, StrictDeviceThatWritesLongerThanThePollPeriodFailsAtItsFirstBlock) {
    VirtualCamera& camera = Begin({.personality = Personality::Strict, .blockMs = 300});
    EXPECT_EQ(Update<DetachingEndpoint>(kNoProbe), E_FAIL);
    EXPECT_TRUE(IsFlashUntouched());
    EXPECT_EQ(camera.State(), DfuState::Error);
    EXPECT_EQ(Took(), 400U);  // asked too early at 200 ms, seen in dfuERROR at 400 ms
}

TEST_F(PersonalityTest, StrictDeviceIsWrittenButItsEndIsReportedAsAFailure) {
    VirtualCamera& camera = Begin({.personality = Personality::Strict, .manifestMs = 100});
    EXPECT_EQ(Update<DetachingEndpoint>(kNoProbe), E_FAIL);
    EXPECT_NE(log_.str().find(kManifestFailed), std::string::npos);
    EXPECT_EQ(camera.Flash(), image_);
    EXPECT_EQ(Took(), 400U);
    camera.Reset(clock_.Now());
    EXPECT_EQ(camera.Version(), "5.10.3.0");
}

// (b) Stalls in place; dfuDNBUSY with poll time 0 until the block is written.

TEST_F(PersonalityTest, LenientDeviceIsPolledAtTheServicesOwnPaceWhileItIsBusy) {
    VirtualCamera& camera = Begin({.personality = Personality::Lenient, .blockMs = 1100});
    EXPECT_EQ(Update<DetachingEndpoint>(kNoProbe), E_FAIL);
    EXPECT_EQ(camera.Flash(), image_);
    EXPECT_EQ(Took(), 5 * 1200U + 30000U);
}

TEST_F(PersonalityTest, LenientDeviceThatStaysBusyForMoreThanFiveSecondsFailsThere) {
    Begin({.personality = Personality::Lenient, .blockMs = 5100});
    EXPECT_EQ(Update<DetachingEndpoint>(kNoProbe), E_FAIL);
    EXPECT_TRUE(IsFlashUntouched());
    EXPECT_EQ(Took(), 5000U);
}

TEST_F(PersonalityTest, LenientDeviceIsWrittenButItsEndTimesOutAfterThirtySeconds) {
    VirtualCamera& camera = Begin({.personality = Personality::Lenient});
    EXPECT_EQ(Update<DetachingEndpoint>(kNoProbe), E_FAIL);
    EXPECT_NE(log_.str().find(kManifestFailed), std::string::npos);
    EXPECT_EQ(camera.Flash(), image_);
    EXPECT_EQ(camera.State(), DfuState::ManifestWaitReset);
    EXPECT_EQ(Took(), 30000U);
}

// (c) Synchronous; manifestation ends in dfuIDLE.

TEST_F(PersonalityTest, SynchronousDeviceIsWrittenButBackInIdleItTimesOutAfterThirtySeconds) {
    VirtualCamera& camera =
        Begin({.personality = Personality::Synchronous, .blockMs = 60000, .manifestMs = 100});
    EXPECT_EQ(Update<DetachingEndpoint>(kNoProbe), E_FAIL);
    EXPECT_NE(log_.str().find(kManifestFailed), std::string::npos);
    EXPECT_EQ(camera.Flash(), image_);
    EXPECT_EQ(camera.State(), DfuState::DfuIdle);
    EXPECT_EQ(Took(), 30000U);  // no wait for any block
}

}  // namespace
