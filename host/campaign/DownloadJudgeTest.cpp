#include "host/campaign/BrokenRule.h"
#include "host/campaign/DownloadJudge.h"
#include "lab/camera/VirtualCamera.h"
#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

// A whole update as it should be, and each time one thing of it as it should not.

namespace campaign {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct OwnCrossing {
    Crossing::What what = Crossing::What::Transfer;
    std::uint64_t pauseMs = 0;  // before it
    std::uint64_t tookMs = 0;
    lab::SetupPacket setup = {};
    Bytes before = {};
    Bytes after = {};
    std::size_t transferred = 0;
    std::int32_t result = 0;
};

struct Update {
    std::vector<OwnCrossing> opening;
    bool hasStaleError = false;
    bool isOpened = true;
    std::vector<OwnCrossing> download;
    std::uint64_t lastPauseMs = 0;
    std::int32_t result = 0;
    std::string log;
    std::vector<std::int32_t> progress;
};

const Bytes& Image() {
    static const Bytes image = lab::test::MakeImage(1500);
    return image;
}

OwnCrossing Descriptor(std::uint8_t type, std::size_t length, const Bytes& answer) {
    OwnCrossing crossing{.what = Crossing::What::Descriptor, .before = Bytes(length), .after = Bytes(length)};
    crossing.setup.value = type;
    crossing.transferred = std::min(length, answer.size());
    std::copy_n(answer.begin(), crossing.transferred, crossing.after.begin());
    return crossing;
}

OwnCrossing In(std::uint8_t request, Bytes before, Bytes after) {
    const auto length = static_cast<std::uint16_t>(before.size());
    return {.setup = {.requestType = 0xA1, .request = request, .length = length},
            .before = std::move(before),
            .after = std::move(after),
            .transferred = length};
}

OwnCrossing Out(std::uint8_t request, std::uint16_t value, const Bytes& data) {
    const auto length = static_cast<std::uint16_t>(data.size());
    return {.setup = {.requestType = 0x21, .request = request, .value = value, .length = length},
            .before = data,
            .after = data,
            .transferred = length};
}

OwnCrossing Status(std::uint8_t status, std::uint8_t state) {
    return In(3, {14, 0, 0, 0, 10, 0}, {status, 0, 0, 0, state, 0});
}

OwnCrossing After(std::uint64_t ms, OwnCrossing crossing) {
    crossing.pauseMs = ms;
    return crossing;
}

Update Good() {
    const lab::VirtualCamera camera({});
    const Bytes configuration = camera.ConfigurationDescriptor();
    const Bytes first(Image().begin(), Image().begin() + 1024);
    const Bytes second(Image().begin() + 1024, Image().end());
    return {.opening = {Descriptor(1, 18, camera.DeviceDescriptor()),
                        Descriptor(2, 9, configuration),
                        Descriptor(2, 1024, configuration),
                        {.what = Crossing::What::SetInterface}},
            .download = {In(5, {0}, {2}), Out(0, 1000, {}), In(5, {0}, {2}), In(2, Bytes(68), Bytes(68)),
                         Out(1, 0, first), Status(0, 4), After(200, Status(0, 5)), Out(1, 1, second),
                         Status(0, 5), Out(1, 2, {}), Status(0, 7), After(200, Status(0, 8)), Status(0, 8)},
            .log = "Downloaded 1024, bytes remaining 476\nDownloaded 476, bytes remaining 0\n",
            .progress = {1, 2}};
}

class Player {
  public:
    // What was broken; empty when nothing was.
    std::string Play(const Update& update) {
        try {
            judge_.BeginOpening(Image(), 0, update.hasStaleError);
            Play(update.opening);
            judge_.EndOpening(update.isOpened);
            if (update.isOpened) {
                Play(update.download);
                time_.Advance(update.lastPauseMs);
                judge_.EndDownload(update.result, update.log, update.progress);
            }
        } catch (const BrokenRule& rule) {
            return rule.what();
        }
        return "";
    }

  private:
    void Play(const std::vector<OwnCrossing>& crossings) {
        for (const OwnCrossing& own : crossings) {
            time_.Advance(own.pauseMs);
            Crossing crossing{.what = own.what, .beganMs = time_.Now(), .setup = own.setup};
            time_.Advance(own.tookMs);
            crossing.endedMs = time_.Now();
            crossing.before = own.before;
            crossing.after = own.after;
            crossing.transferred = own.transferred;
            crossing.result = own.result;
            judge_.OnCrossing(crossing);
        }
    }

    VirtualTime time_;
    DownloadJudge judge_{time_};
};

std::string Play(const Update& update) {
    return Player().Play(update);
}

TEST(DownloadJudge, HasNothingToSayAgainstAGoodUpdate) {
    EXPECT_EQ(Play(Good()), "");
}

struct Spoiled {
    const char* name;
    std::function<void(Update&)> spoil;
    std::string rule;
};

class DownloadJudgeFinds : public testing::TestWithParam<Spoiled> {};

TEST_P(DownloadJudgeFinds, IsFound) {
    Update update = Good();
    GetParam().spoil(update);
    EXPECT_EQ(Play(update), GetParam().rule);
}

// Leaves out what is asked from there on, and gives that result and those lines.
void EndAt(Update& update, std::size_t count, std::int32_t result, const std::string& lines) {
    update.download.resize(count);
    update.result = result;
    update.log = lines;
    update.progress.clear();
}

constexpr const char* kStatus = "behind a block its status is looked at until it is taken";

INSTANTIATE_TEST_SUITE_P(
    All, DownloadJudgeFinds,
    testing::Values(
        Spoiled{"StatusNotLookedAt", [](Update& u) { u.download[5] = Status(3, 10); },
                "an error that the camera tells ends the update"},
        Spoiled{"StatusLeftOut", [](Update& u) { u.download.erase(u.download.begin() + 8); }, kStatus},
        Spoiled{"LostAnswerTakenForSuccess", [](Update& u) { u.download[4].result = -1; },
                "a request that fails ends the update"},
        Spoiled{"BlockNumberNotCounted", [](Update& u) { u.download[7].setup.value = 0; },
                "a request has its value, and a block its number"},
        Spoiled{"EmptyBlockLeftOut", [](Update& u) { u.download.erase(u.download.begin() + 9); },
                "behind the last block comes an empty one"},
        Spoiled{"ImageFromItsSecondBlock",
                [](Update& u) { u.download[4].before = u.download[4].after = Bytes(1024, 9); },
                "a block carries its part of the image"},
        Spoiled{"ReplyBufferOfTheAnswerBefore", [](Update& u) { u.download[6].before = {0, 0, 0, 0, 5, 0}; },
                "a status that is not told counts as an error"},
        Spoiled{"PollTooEarly", [](Update& u) { u.download[6].pauseMs = 199; },
                "a request goes out when its time has come"},
        Spoiled{"OtherInterface", [](Update& u) { u.download[0].setup.index = 1; },
                "a request goes to the DFU interface"},
        Spoiled{"LongerThanTheDevicesBlock", [](Update& u) { u.download[4] = Out(1, 0, Image()); },
                "a request has its length"},
        Spoiled{"ErrorCleared", [](Update& u) { u.download.insert(u.download.begin() + 5, Out(4, 0, {})); },
                kStatus},
        Spoiled{"OtherResult", [](Update& u) { u.result = -1; }, "the result is that of the first failure"},
        Spoiled{"OtherLines", [](Update& u) { u.log += "more\n"; },
                "the lines tell what failed, innermost first, and what was downloaded"},
        Spoiled{"OtherProgress", [](Update& u) { u.progress = {1}; },
                "the progress counts the blocks that the camera has taken"},
        Spoiled{"WaitBehindTheEnd", [](Update& u) { u.lastPauseMs = 1; },
                "the update takes the time of its requests and polls, no more"},
        Spoiled{"EndTooEarly", [](Update& u) { u.download.pop_back(); },
                "an update that is not over goes on"},
        Spoiled{"LooksOnceMoreAtTheEnd", [](Update& u) { u.download.push_back(Status(0, 8)); },
                "nothing is sent behind the last look"},
        Spoiled{"NoSecondState", [](Update& u) { u.download.erase(u.download.begin() + 2); },
                "before the first block come GETSTATE, DETACH, GETSTATE and UPLOAD"},
        Spoiled{"ABlockTooMany", [](Update& u) { u.download.insert(u.download.begin() + 9, Out(1, 2, {1})); },
                "a request has its length"},
        Spoiled{"ContentWithAnotherState", [](Update& u) { u.download[2].after = {5}; },
                "a camera that is not idle gets no block"},
        Spoiled{"OpenedWithoutItsSetting", [](Update& u) { u.opening.pop_back(); },
                "opening a device goes on to its setting"},
        Spoiled{"OpenedThoughRefused", [](Update& u) { u.opening[3].result = -1; },
                "a device is opened when all was answered, and only then"},
        Spoiled{"DescriptorLeftOut", [](Update& u) { u.opening.erase(u.opening.begin()); },
                "descriptors are read in their order, each in its length"},
        Spoiled{"OtherSetting", [](Update& u) { u.opening[3].setup.value = 1; },
                "the DFU interface's setting is chosen"}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(DownloadJudge, WantsTheUpdateToEndAtTheFirstFailure) {
    Update update = Good();
    update.download[1].result = -5;
    EndAt(update, 2, -5,
          "usbEndpoint->Transfer(packet, nullptr, 0) Failed with status-5\nDetach() Failed with status-5\n");
    EXPECT_EQ(Play(update), "");
}

TEST(DownloadJudge, WantsABlockToBeWaitedForForFiveSecondsAndNoLonger) {
    Update update = Good();
    EndAt(update, 5, static_cast<std::int32_t>(0x80004005),
          "WaitForState(DFU_STATE::dfuDNLOAD_IDLE, 5000) Failed with status-2147467259\n"
          "DownloadImage(reinterpret_cast<const BYTE *>(firmwareImage), imageLength) Failed with "
          "status-2147467259\n");
    update.download.push_back(Status(0, 4));
    for (int poll = 1; poll < 25; ++poll) {
        update.download.push_back(After(200, Status(0, 4)));
    }
    update.lastPauseMs = 200;
    EXPECT_EQ(Play(update), "");
    update.download.push_back(After(200, Status(0, 4)));
    EXPECT_EQ(Play(update), "a wait ends when its time is over");
}

TEST(DownloadJudge, TakesAStatusThatIsNotToldForAnError) {
    Update update = Good();
    update.download[5].after = {0, 0, 0, 0, 10, 0};
    update.download[5].transferred = 4;
    EndAt(update, 6, static_cast<std::int32_t>(0x80004005),
          "WaitForState(DFU_STATE::dfuDNLOAD_IDLE, 5000) Failed with status-2147467259\n"
          "DownloadImage(reinterpret_cast<const BYTE *>(firmwareImage), imageLength) Failed with "
          "status-2147467259\n");
    EXPECT_EQ(Play(update), "");
}

TEST(DownloadJudge, KnowsADeviceThatCannotBeOpened) {
    Update update = Good();
    update.opening.resize(3);
    update.opening[2].transferred = 20;  // the functional descriptor is cut off
    update.isOpened = false;
    EXPECT_EQ(Play(update), "");
}

TEST(DownloadJudge, TakesAShortDescriptorForOneThatWasNotReadWhenAnErrorIsStale) {
    Update update = Good();
    update.opening[0].transferred = 17;
    EXPECT_EQ(Play(update), "");
    update.hasStaleError = true;
    EXPECT_EQ(Play(update), "a device that is opened, or is not, is asked nothing more");
    update.opening.resize(1);
    update.isOpened = false;
    EXPECT_EQ(Play(update), "");
    update.hasStaleError = false;
    EXPECT_EQ(Play(update), "opening a device goes on to its setting");
}

}  // namespace
}  // namespace campaign
