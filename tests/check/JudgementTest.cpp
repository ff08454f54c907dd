#include "check/Judgement.h"

#include "tests/check/ReadyMachine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace {

using namespace check;

const Finding* Find(const Judgement& judgement, const std::string& id) {
    const auto found = std::find_if(judgement.findings.begin(), judgement.findings.end(),
                                    [&id](const Finding& finding) { return finding.id == id; });
    return found == judgement.findings.end() ? nullptr : &*found;
}

Judgement JudgedWith(const std::function<void(MachineState&)>& change) {
    MachineState machine = ReadyMachine();
    machine.cameras.cameras = {CameraWith("5.10.2.0")};
    change(machine);
    return Judge(machine);
}

struct Case {
    const char* name;
    const char* id;
    std::function<void(MachineState&)> change;
};

void PrintTo(const Case& each, std::ostream* stream) {
    *stream << each.name;
}

class JudgementOfAMachine : public ::testing::TestWithParam<Case> {};
class JudgementOfACamera : public ::testing::TestWithParam<Case> {};
class JudgementWarning : public ::testing::TestWithParam<Case> {};

std::string NameOf(const ::testing::TestParamInfo<Case>& each) {
    return each.param.name;
}

}  // namespace

TEST(Judgement, AMachineWithoutACameraIsReady) {
    const Judgement judgement = Judge(ReadyMachine());
    EXPECT_EQ(judgement.verdict, Verdict::UpToDate);
    EXPECT_FALSE(judgement.wouldAsk);
    EXPECT_EQ(judgement.stoppedBy, "no-camera");
    EXPECT_EQ(judgement.headline,
              "Ready: no camera is present. One whose firmware is not 5.10.3.0 would be asked about.");
    EXPECT_TRUE(judgement.findings.empty());
}

TEST(Judgement, ACameraWithTheImagesFirmwareIsUpToDate) {
    MachineState machine = ReadyMachine();
    machine.cameras.cameras = {CameraWith("5.10.3.0")};
    const Judgement judgement = Judge(machine);
    EXPECT_EQ(judgement.verdict, Verdict::UpToDate);
    EXPECT_FALSE(judgement.wouldAsk);
    EXPECT_EQ(judgement.stoppedBy, "versions-equal");
    EXPECT_EQ(judgement.headline, "Up to date: the camera's firmware is the image's, 5.10.3.0.");
    EXPECT_EQ(judgement.cameras, std::vector{CameraStanding::UpToDate});
}

TEST(Judgement, AnOlderCameraIsAskedAbout) {
    const Judgement judgement = JudgedWith([](MachineState&) {});
    EXPECT_EQ(judgement.verdict, Verdict::UpdateOffered);
    EXPECT_TRUE(judgement.wouldAsk);
    EXPECT_EQ(judgement.stoppedBy, "");
    EXPECT_EQ(judgement.headline,
              "An update would be offered: a camera has the firmware 5.10.2.0, the image is 5.10.3.0.");
    EXPECT_EQ(judgement.cameras, std::vector{CameraStanding::Older});
}

TEST(Judgement, ANewerCameraIsAskedAboutTooAndThatIsSaid) {
    const Judgement judgement =
        JudgedWith([](MachineState& machine) { machine.cameras.cameras = {CameraWith("5.10.10.0")}; });
    EXPECT_EQ(judgement.verdict, Verdict::UpdateOffered);
    EXPECT_EQ(judgement.cameras, std::vector{CameraStanding::Newer});
    EXPECT_NE(Find(judgement, "camera-newer"), nullptr);
}

TEST(Judgement, OneOldCameraAmongGoodOnesIsEnough) {
    MachineState machine = ReadyMachine();
    machine.cameras.cameras = {CameraWith("5.10.3.0"), CameraWith("5.9.0.0")};
    EXPECT_EQ(Judge(machine).verdict, Verdict::UpdateOffered);
    EXPECT_EQ(Judge(machine).headline,
              "An update would be offered: a camera has the firmware 5.9.0.0, the image is 5.10.3.0.");
}

TEST(Judgement, WhatStopsTheRoadFirstIsNamed) {
    const Judgement judgement = JudgedWith([](MachineState& machine) {
        machine.service.runState = RunState::Stopped;
        machine.updateMode = {};
        machine.updateMode.error = 2;
        machine.image.exists = false;
    });
    EXPECT_EQ(judgement.verdict, Verdict::NotReady);
    EXPECT_EQ(judgement.stoppedBy, "service-not-running");
    EXPECT_NE(Find(judgement, "update-mode-missing"), nullptr);
    EXPECT_NE(Find(judgement, "image-missing"), nullptr);
}

TEST(Judgement, AMachineThatIsNotReadyIsWorseThanACameraInTrouble) {
    const Judgement judgement = JudgedWith([](MachineState& machine) {
        machine.cameras.cameras.front().version.clear();
        machine.updateMode.isServiceControlled = false;
        machine.updateMode.text = "Auto";
    });
    EXPECT_EQ(judgement.verdict, Verdict::NotReady);
    EXPECT_EQ(judgement.headline,
              "Not ready: nobody would be asked. The update mode is \"Auto\", not \"Service Controlled\".");
    EXPECT_NE(Find(judgement, "camera-version-unknown"), nullptr);
}

TEST(Judgement, AnotherCameraIsAskedAboutBesideOneInTrouble) {
    const Judgement judgement =
        JudgedWith([](MachineState& machine) { machine.cameras.cameras.push_back(CameraWith("")); });
    EXPECT_EQ(judgement.verdict, Verdict::CameraTrouble);
    EXPECT_TRUE(judgement.wouldAsk);
    EXPECT_EQ(judgement.stoppedBy, "");
}

TEST_P(JudgementOfAMachine, IsNotReady) {
    const Judgement judgement = JudgedWith(GetParam().change);
    EXPECT_EQ(judgement.verdict, Verdict::NotReady);
    EXPECT_FALSE(judgement.wouldAsk);
    EXPECT_EQ(judgement.stoppedBy, GetParam().id);
    const Finding* const finding = Find(judgement, GetParam().id);
    ASSERT_NE(finding, nullptr);
    EXPECT_EQ(finding->severity, Severity::Fault);
    EXPECT_EQ(judgement.headline, "Not ready: nobody would be asked. " + finding->text);
    EXPECT_FALSE(finding->advice.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Each, JudgementOfAMachine,
    ::testing::Values(
        Case{"NotInstalled", "service-not-installed", [](MachineState& machine) { machine.service = {}; }},
        Case{"ServiceUnknown", "service-unknown", [](MachineState& machine) { machine.service.error = 5; }},
        Case{"Deleted", "service-deleted",
             [](MachineState& machine) { machine.service.isMarkedForDeletion = true; }},
        Case{"WrongAccount", "service-account",
             [](MachineState& machine) { machine.service.account = "LocalSystem"; }},
        Case{"ProgramMissing", "service-program-missing",
             [](MachineState& machine) { machine.service.programExists = false; }},
        Case{"ProgramReplaced", "service-program-replaced",
             [](MachineState& machine) { machine.service.startedInstead = "C:\\Program.exe"; }},
        Case{"Disabled", "service-disabled",
             [](MachineState& machine) {
                 machine.service.startType = StartType::Disabled;
                 machine.service.runState = RunState::Stopped;
             }},
        Case{"Stopped", "service-not-running",
             [](MachineState& machine) { machine.service.runState = RunState::Stopped; }},
        Case{"Paused", "service-not-running",
             [](MachineState& machine) { machine.service.runState = RunState::Paused; }},
        Case{"Starting", "service-not-running",
             [](MachineState& machine) { machine.service.runState = RunState::StartPending; }},
        Case{"ModeMissing", "update-mode-missing",
             [](MachineState& machine) {
                 machine.updateMode = {false, 2, ""};
             }},
        Case{"ModeUnreadable", "update-mode-unknown",
             [](MachineState& machine) {
                 machine.updateMode = {false, 5, ""};
             }},
        Case{"ModeAuto", "update-mode-auto",
             [](MachineState& machine) {
                 machine.updateMode = {false, 0, "Auto"};
             }},
        Case{"ModeUnknownText", "update-mode-other",
             [](MachineState& machine) {
                 machine.updateMode = {false, 0, "On"};
             }},
        Case{"ModeDisabled", "update-mode-disabled",
             [](MachineState& machine) {
                 machine.updateMode = {false, 0, "Disabled"};
             }},
        Case{"MediaFoundation", "media-foundation",
             [](MachineState& machine) { machine.cameras.mediaError = 0xC00D36B0; }},
        Case{"ImageMissing", "image-missing", [](MachineState& machine) { machine.image.exists = false; }},
        Case{"ImageUnreadable", "image-unreadable",
             [](MachineState& machine) {
                 machine.image.isReadable = false;
                 machine.image.error = 5;
             }},
        Case{"ImageRefusedToTheService", "image-refused",
             [](MachineState& machine) { machine.image.ofService = Permission::Refused; }},
        Case{"ImageRefusedToBoth", "image-refused",
             [](MachineState& machine) {
                 machine.image.isReadable = false;
                 machine.image.isHidden = true;
                 machine.image.error = 5;
                 machine.image.ofService = Permission::Refused;
             }},
        Case{"ImageHidden", "image-unknown",
             [](MachineState& machine) {
                 machine.image = {};
                 machine.image.isHidden = true;
                 machine.image.error = 5;
             }},
        Case{"ImageTooShort", "image-too-short",
             [](MachineState& machine) { machine.image.version.clear(); }},
        Case{"ToastMissing", "toast-controller-missing",
             [](MachineState& machine) { machine.toastController = {}; }},
        Case{"ToastUnknown", "toast-controller-unknown",
             [](MachineState& machine) { machine.toastController.error = 5; }},
        Case{"ToastBroken", "toast-controller-broken",
             [](MachineState& machine) { machine.toastController.programExists = false; }},
        Case{"ToastUnseen", "toast-controller-unseen",
             [](MachineState& machine) { machine.toastController.runAs.clear(); }},
        Case{"ToastLaunchRefused", "toast-controller-launch",
             [](MachineState& machine) { machine.toastController.launch = Permission::Refused; }},
        Case{"ToastLaunchNotSet", "toast-controller-launch",
             [](MachineState& machine) { machine.toastController.launch = Permission::NotSet; }},
        Case{"ToastAccessRefused", "toast-controller-access",
             [](MachineState& machine) { machine.toastController.access = Permission::Refused; }},
        Case{"ToastPermissionUnreadable", "toast-controller-permission",
             [](MachineState& machine) { machine.toastController.launch = Permission::Unreadable; }},
        Case{"ToastNotRunning", "toast-controller-not-running",
             [](MachineState& machine) { machine.toastController.sessions.clear(); }}),
    NameOf);

TEST_P(JudgementOfACamera, NeedsAttention) {
    const Judgement judgement = JudgedWith(GetParam().change);
    EXPECT_EQ(judgement.verdict, Verdict::CameraTrouble);
    const Finding* const finding = Find(judgement, GetParam().id);
    ASSERT_NE(finding, nullptr);
    EXPECT_EQ(finding->severity, Severity::Fault);
    EXPECT_EQ(judgement.headline, "A camera needs attention. " + finding->text);
    EXPECT_FALSE(finding->advice.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Each, JudgementOfACamera,
    ::testing::Values(
        Case{"VersionUnknown", "camera-version-unknown",
             [](MachineState& machine) { machine.cameras.cameras.front().version.clear(); }},
        Case{"VersionOfNothing", "camera-version-unknown",
             [](MachineState& machine) { machine.cameras.cameras.front().version = "0.0.0.0"; }},
        Case{"NotOpened", "camera-not-opened",
             [](MachineState& machine) { machine.cameras.cameras.front().openError = 0x80070005; }},
        Case{"AsCapture", "camera-listed-as-capture",
             [](MachineState& machine) {
                 machine.cameras.cameras.front().listings = {{"link", "capture"}};
             }},
        Case{"UsbUnknown", "usb-devices-unknown",
             [](MachineState& machine) { machine.dfuDevices.error = 13; }},
        Case{"InDfuMode", "dfu-device-present",
             [](MachineState& machine) { machine.dfuDevices.devices.emplace_back(); }},
        Case{"DfuModeOpens", "dfu-device-waits",
             [](MachineState& machine) {
                 DfuDeviceState& device = machine.dfuDevices.devices.emplace_back();
                 device.wasTried = true;
                 device.opens = true;
             }},
        Case{"DfuModeDoesNotOpen", "dfu-device-not-opened",
             [](MachineState& machine) { machine.dfuDevices.devices.emplace_back().wasTried = true; }}),
    NameOf);

TEST_P(JudgementWarning, LeavesTheVerdictAsItIs) {
    const Judgement judgement = JudgedWith(GetParam().change);
    EXPECT_EQ(judgement.verdict, Verdict::UpdateOffered);
    const Finding* const finding = Find(judgement, GetParam().id);
    ASSERT_NE(finding, nullptr);
    EXPECT_EQ(finding->severity, Severity::Warning);
}

INSTANTIATE_TEST_SUITE_P(
    Each, JudgementWarning,
    ::testing::Values(
        Case{"PathUnquoted", "service-path-unquoted",
             [](MachineState& machine) { machine.service.program = "C:\\Program Files\\x.exe"; }},
        Case{"ProgramWritable", "service-writable",
             [](MachineState& machine) { machine.service.programWriters.names = {"BUILTIN\\Users"}; }},
        Case{"FolderWritable", "service-writable",
             [](MachineState& machine) { machine.service.folderWriters.names = {"BUILTIN\\Users"}; }},
        Case{"DisabledWhileItRuns", "service-disabled-while-running",
             [](MachineState& machine) { machine.service.startType = StartType::Disabled; }},
        Case{"ProgramHidden", "service-program-hidden",
             [](MachineState& machine) {
                 machine.service.programExists = false;
                 machine.service.programError = 5;
             }},
        Case{"ToastHidden", "toast-controller-hidden",
             [](MachineState& machine) {
                 machine.toastController.programExists = false;
                 machine.toastController.programError = 5;
             }},
        Case{"Namesake", "service-namesake",
             [](MachineState& machine) { machine.service.hasNamesake = true; }},
        Case{"ToastWritable", "toast-controller-writable",
             [](MachineState& machine) { machine.toastController.programWriters.names = {"Everyone"}; }},
        Case{"ToastAccessByDefault", "toast-controller-access-default",
             [](MachineState& machine) { machine.toastController.access = Permission::NotSet; }}),
    NameOf);

TEST(Judgement, WritersThatAreNotToldAreNoneOfWhomItWarns) {
    const Judgement judgement = JudgedWith([](MachineState& machine) {
        machine.service.programWriters.error = 5;
        machine.service.folderWriters.error = 5;
        machine.toastController.programWriters.error = 5;
    });
    EXPECT_TRUE(judgement.findings.empty());
}

TEST(Judgement, AnImageOfWhichItIsNotToldWhetherTheServiceMayReadItIsNoFault) {
    for (const Permission told : {Permission::NotSet, Permission::Unreadable}) {
        EXPECT_TRUE(
            JudgedWith([told](MachineState& machine) { machine.image.ofService = told; }).findings.empty());
    }
}

TEST(Judgement, NamesEachWriterOnce) {
    const Judgement judgement = JudgedWith([](MachineState& machine) {
        machine.service.programWriters.names = {"BUILTIN\\Users", "VM\\root"};
        machine.service.folderWriters.names = {"BUILTIN\\Users", "Everyone"};
    });
    EXPECT_EQ(Find(judgement, "service-writable")->text,
              "The service's program or its folder can be changed by BUILTIN\\Users, VM\\root and Everyone.");
}

TEST(Judgement, AQuotedPathMayHaveBlanks) {
    const Judgement judgement = JudgedWith([](MachineState& machine) {
        machine.service.program = "C:\\Program Files\\x.exe";
        machine.service.isQuoted = true;
    });
    EXPECT_TRUE(judgement.findings.empty());
}

TEST(Judgement, AManualStartIsNoted) {
    const Judgement judgement =
        JudgedWith([](MachineState& machine) { machine.service.startType = StartType::Manual; });
    ASSERT_EQ(judgement.findings.size(), 1U);
    EXPECT_EQ(judgement.findings.front().id, "service-starts-by-hand");
    EXPECT_EQ(judgement.findings.front().severity, Severity::Note);
}

TEST(Judgement, AToastControllerThatDoesNotRunIsNoFaultWhileTheServiceIsStopped) {
    const Judgement judgement = JudgedWith([](MachineState& machine) {
        machine.service.runState = RunState::Stopped;
        machine.toastController.sessions.clear();
    });
    EXPECT_EQ(judgement.stoppedBy, "service-not-running");
    EXPECT_EQ(Find(judgement, "toast-controller-not-running"), nullptr);
}

TEST(Judgement, AToastControllerThatWaitsForSomebodyIsNoFault) {
    const Judgement judgement = JudgedWith([](MachineState& machine) {
        machine.toastController.sessions.clear();
        machine.isNobodyLoggedOn = true;
    });
    EXPECT_EQ(judgement.verdict, Verdict::UpdateOffered);
    EXPECT_FALSE(judgement.wouldAsk);
    EXPECT_EQ(judgement.stoppedBy, "toast-controller-waits");
    ASSERT_NE(Find(judgement, "toast-controller-waits"), nullptr);
    EXPECT_EQ(Find(judgement, "toast-controller-waits")->severity, Severity::Note);
    EXPECT_EQ(
        judgement.headline,
        "An update would be offered, were somebody logged on and the service restarted then: a camera has "
        "the firmware 5.10.2.0, the image is 5.10.3.0.");
}

TEST(Judgement, WithNobodyLoggedOnWhatElseIsWrongStaysWrong) {
    MachineState machine = ReadyMachine();
    machine.isNobodyLoggedOn = true;
    machine.toastController.sessions.clear();
    EXPECT_EQ(Judge(machine).verdict, Verdict::UpToDate);
    EXPECT_EQ(Judge(machine).stoppedBy, "no-camera");
    machine.toastController.launch = Permission::Refused;
    EXPECT_EQ(Judge(machine).stoppedBy, "toast-controller-launch");
}

TEST(Judgement, ACameraOfTheMakerWithoutTheUnitIsNoneOfTheFamily) {
    MachineState machine = ReadyMachine();
    machine.cameras.cameras = {CameraWith("")};
    machine.cameras.cameras.front().unitError = 0x80004005;
    Judgement judgement = Judge(machine);
    EXPECT_EQ(judgement.verdict, Verdict::UpToDate);
    EXPECT_EQ(judgement.stoppedBy, "no-camera");
    EXPECT_EQ(judgement.headline,
              "Ready: no camera is present. One whose firmware is not 5.10.3.0 would be asked about.");
    ASSERT_NE(Find(judgement, "camera-without-unit"), nullptr);
    EXPECT_EQ(Find(judgement, "camera-without-unit")->severity, Severity::Note);
    machine.cameras.cameras.push_back(CameraWith("5.10.3.0"));
    judgement = Judge(machine);
    EXPECT_EQ(judgement.stoppedBy, "versions-equal");
}

TEST(Judgement, AnImageInTheFolderOf32BitProgramsIsNamed) {
    const Judgement judgement = JudgedWith([](MachineState& machine) {
        machine.image.exists = false;
        machine.image.isIn32BitFolder = true;
    });
    EXPECT_NE(Find(judgement, "image-missing")->advice.find("SysWOW64"), std::string::npos);
}

TEST(Judgement, ComparesVersionsNumberByNumber) {
    EXPECT_LT(CompareVersions("5.9.9.9", "5.10.0.0"), 0);
    EXPECT_GT(CompareVersions("6.0.0.0", "5.255.255.255"), 0);
    EXPECT_EQ(CompareVersions("5.10.3.0", "5.10.3.0"), 0);
    EXPECT_EQ(CompareVersions("", "5.10.3.0"), 0);
    EXPECT_EQ(CompareVersions("5.10.3", "5.10.3.0"), 0);
    EXPECT_EQ(CompareVersions("5.10.3.0.1", "5.10.3.0"), 0);
    EXPECT_EQ(CompareVersions("No FW version", "5.10.3.0"), 0);
}
