#include "check/Rehearsal.h"

#include "tests/check/ReadyMachine.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using namespace check;

Rehearsal RehearsedWith(const std::function<void(MachineState&)>& change,
                        std::optional<std::uint32_t> blockSize = {}) {
    MachineState machine = ReadyMachine();
    machine.cameras.cameras = {CameraWith("5.10.2.0")};
    change(machine);
    return Rehearse(machine, Judge(machine), blockSize);
}

DfuDeviceState DfuDevice(std::uint16_t transferSize) {
    return {"\\\\?\\usb#vid_2f1a&pid_7e01#1", true, true, "", 0, transferSize};
}

// The service is stopped, so that the device could be looked at; it is rehearsed as if it ran.
void InDfuMode(MachineState& machine, std::vector<DfuDeviceState> devices) {
    machine.cameras.cameras.clear();
    machine.dfuDevices.devices = std::move(devices);
}

std::string EndOf(const Rehearsal& rehearsal) {
    return rehearsal.cameras.front().steps.back();
}

}  // namespace

TEST(Rehearsal, GoesTheWholeWayOfAnOlderCamera) {
    const Rehearsal rehearsal = RehearsedWith([](MachineState&) {});
    ASSERT_EQ(rehearsal.cameras.size(), 1U);
    const CameraRehearsal& camera = rehearsal.cameras.front();
    EXPECT_EQ(camera.questions, 2U);
    EXPECT_TRUE(camera.wouldDownload);
    EXPECT_EQ(
        camera.steps,
        (std::vector<std::string>{
            "Windows tells of the camera's arrival, as sensor camera and video camera.",
            "The update mode is read: \"Service Controlled\".",
            "The camera is opened and asked for its firmware's version, with the command 0x10: 5.10.2.0.",
            "The image's version is read: 5.10.3.0.",
            "The user is asked, at each of these arrivals: 2 times.",
            "If the user accepts, the camera is sent into DFU mode with the command 0x1E and leaves the bus.",
            "It comes back as USB device 2F1A:7E01 or 2F1A:7E02, is opened with WinUSB, and its DFU "
            "interface is "
            "selected.",
            "GETSTATE, DETACH, GETSTATE and a read of 68 bytes are sent.",
            "The 262144 bytes of the image are sent block by block, with a look after each, and an empty "
            "block at "
            "the end.",
            "The camera manifests the image: it is looked at every 200 ms, for 30 s at the most.",
            "The camera restarts with firmware 5.10.3.0, and nothing is to be done at its arrival.",
        }));
}

TEST(Rehearsal, EndsWhereTheServiceWouldEnd) {
    const auto endWith = [](const std::function<void(MachineState&)>& change) {
        const Rehearsal rehearsal = RehearsedWith(change);
        EXPECT_FALSE(rehearsal.cameras.front().wouldDownload);
        EXPECT_EQ(rehearsal.cameras.front().questions, 0U);
        return std::to_string(rehearsal.cameras.front().steps.size()) + ": " + EndOf(rehearsal);
    };
    EXPECT_EQ(endWith([](MachineState& machine) { machine.service.runState = RunState::Stopped; }),
              "2: It ends here. The service is not running: it is stopped.");
    EXPECT_EQ(endWith([](MachineState& machine) {
                  machine.updateMode = {false, 0, "Auto"};
              }),
              "2: It ends here. The update mode is \"Auto\", not \"Service Controlled\".");
    EXPECT_EQ(endWith([](MachineState& machine) { machine.cameras.mediaError = 0x80004001; }),
              "3: It ends here. Media Foundation does not list cameras (0x80004001).");
    EXPECT_EQ(endWith([](MachineState& machine) { machine.cameras.cameras.front().openError = 0x80070005; }),
              "3: It ends here. The camera is left out, since it does not open (0x80070005).");
    EXPECT_EQ(
        endWith([](MachineState& machine) { machine.cameras.cameras.front().unitError = 0x80004005; }),
        "3: It ends here. The camera has no firmware extension unit, and is taken for another maker's.");
    EXPECT_EQ(endWith([](MachineState& machine) { machine.cameras.cameras.front().version.clear(); }),
              "3: It ends here. The camera does not tell its version, in five attempts.");
    EXPECT_EQ(endWith([](MachineState& machine) {
                  machine.cameras.cameras.front().listings = {{"x", "capture"}};
              }),
              "3: It ends here. The camera is listed as a capture device alone, which is passed over.");
    EXPECT_EQ(endWith([](MachineState& machine) { machine.image.version.clear(); }),
              "4: It ends here. The firmware image has 262144 bytes, too few for a version.");
    EXPECT_EQ(endWith([](MachineState& machine) { machine.cameras.cameras = {CameraWith("5.10.3.0")}; }),
              "5: The versions are equal: nothing is done.");
    EXPECT_EQ(endWith([](MachineState& machine) { machine.toastController = {}; }),
              "5: It ends here. No toast controller is registered: nobody can be asked.");
}

TEST(Rehearsal, AListingAsCaptureAsksNobody) {
    const Rehearsal rehearsal = RehearsedWith(
        [](MachineState& machine) { machine.cameras.cameras.front().listings.back().category = "capture"; });
    EXPECT_EQ(rehearsal.cameras.front().questions, 1U);
}

TEST(Rehearsal, ACameraInDfuModeGetsTheImageWithoutAQuestion) {
    const Rehearsal rehearsal =
        RehearsedWith([](MachineState& machine) { InDfuMode(machine, {DfuDevice(2048)}); });
    const CameraRehearsal& camera = rehearsal.cameras.front();
    EXPECT_EQ(camera.questions, 0U);
    EXPECT_TRUE(camera.wouldDownload);
    EXPECT_EQ(camera.steps.at(2),
              "The camera is opened with WinUSB, its DFU interface is selected, and nobody is asked.");
    ASSERT_EQ(rehearsal.downloads.size(), 1U);
    EXPECT_EQ(rehearsal.downloads.front().blockSize, 2048U);
}

TEST(Rehearsal, ACameraInDfuModeMayNotGetThere) {
    const auto endWith = [](const std::function<void(MachineState&)>& change) {
        const Rehearsal rehearsal = RehearsedWith([&change](MachineState& machine) {
            InDfuMode(machine, {DfuDevice(1024)});
            change(machine);
        });
        EXPECT_FALSE(rehearsal.cameras.back().wouldDownload);
        return rehearsal.cameras.back().steps.back();
    };
    EXPECT_EQ(endWith([](MachineState& machine) { machine.dfuDevices.devices = {DfuDevice(64)}; }),
              "It ends here. The camera's blocks have 64 bytes, fewer than the 68 that are read first.");
    EXPECT_EQ(endWith([](MachineState& machine) {
                  machine.dfuDevices.devices = {{"x", true, false, "opening it", 5, 0}};
              }),
              "It ends here. The camera does not open: opening it, error 5.");
    EXPECT_EQ(
        endWith([](MachineState& machine) { machine.dfuDevices.devices.push_back(DfuDevice(1024)); }),
        "It ends here. Another camera in DFU mode stands before it in Windows' list, and that one is taken.");
    EXPECT_EQ(endWith([](MachineState& machine) {
                  machine.image.exists = false;
                  machine.image.isReadable = false;
              }),
              "It ends here. There is no image that could be read.");
    EXPECT_EQ(endWith([](MachineState& machine) { machine.service = {}; }),
              "It ends here. The service is not installed.");
}

TEST(Rehearsal, EstimatesForTheUsualBlockSizesUnlessItKnowsBetter) {
    const auto sizes = [](const Rehearsal& rehearsal) {
        std::vector<std::uint32_t> found;
        for (const DownloadEstimate& download : rehearsal.downloads) {
            found.push_back(download.blockSize);
        }
        return found;
    };
    EXPECT_EQ(sizes(RehearsedWith([](MachineState&) {})),
              (std::vector<std::uint32_t>{512, 1024, 2048, 4096}));
    EXPECT_EQ(sizes(RehearsedWith([](MachineState&) {}, 777)), std::vector<std::uint32_t>{777});
    EXPECT_TRUE(
        sizes(RehearsedWith([](MachineState& machine) { machine.image.isReadable = false; })).empty());
}

TEST(Rehearsal, IsTold) {
    MachineState machine = ReadyMachine();
    machine.cameras.cameras = {CameraWith("5.10.3.0")};
    machine.image.size = 262161;
    const Judgement judgement = Judge(machine);
    const Rehearsal rehearsal = Rehearse(machine, judgement, 1024);
    EXPECT_EQ(RehearsalText(machine, judgement, rehearsal),
              R"(Up to date: the camera's firmware is the image's, 5.10.3.0.

Morrow KV400
  \\?\usb#vid_2f1a&pid_7e00&mi_00#6&1&0&0000
  1. Windows tells of the camera's arrival, as sensor camera and video camera.
  2. The update mode is read: "Service Controlled".
  3. The camera is opened and asked for its firmware's version, with the command 0x10: 5.10.3.0.
  4. The image's version is read: 5.10.3.0.
  5. The versions are equal: nothing is done.

The download of C:\Windows\system32\drivers\KV400Firmware.bin, 262161 bytes, by the size of the blocks that the camera takes:
  257 blocks of 1024 bytes, the last of 17: 521 transfers; waits of 0.0 s when the camera is always ready, 51.6 s when it is busy once a block, at the most 21 min 3 s
  What the transfers and the camera's restart take comes on top. Windows notes event 7011 for a download
  that takes longer than 30.0 s.

Nothing was sent but reads.
)");
    const std::string json = RehearsalJson(machine, judgement, rehearsal, "1.2.3");
    EXPECT_NE(json.find("\"most_ms\": 1263400"), std::string::npos);
    EXPECT_NE(json.find("\"would_download\": false"), std::string::npos);
}
