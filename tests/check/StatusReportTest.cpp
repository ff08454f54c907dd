#include "check/StatusReport.h"

#include "tests/check/ReadyMachine.h"

#include <gtest/gtest.h>

using namespace check;

namespace {

std::string TextOf(const MachineState& machine) {
    return StatusText(machine, Judge(machine));
}

std::string JsonOf(const MachineState& machine) {
    return StatusJson(machine, Judge(machine), "1.2.3");
}

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

TEST(StatusReport, SaysAllThatThereIsToSayOfAReadyMachine) {
    MachineState machine = ReadyMachine();
    machine.cameras.cameras = {CameraWith("5.10.3.0")};
    machine.cameras.others = 2;
    EXPECT_EQ(TextOf(machine), R"(Up to date: the camera's firmware is the image's, 5.10.3.0.

Service VeyraCameraDfuService
  installed          yes
  account            NT AUTHORITY\LocalService
  path               C:\Windows\VeyraCameraDfu\VeyraCameraDfuService.exe
  quoted             no
  program            version 1.0.0.0
  writable by        administrators
  folder writable by administrators
  start type         automatic
  state              running

Update mode
  DFUAutoMode        Service Controlled
  updating allowed   yes

Firmware image
  path               C:\Windows\system32\drivers\KV400Firmware.bin
  there              yes
  service may read   yes
  size               262144 bytes
  version            5.10.3.0
  SHA-256            c6400f9e80d461792ed4dac40fefc2b9023f14f3998ba06ae33ca7f559c51acf

Toast controller
  registered         yes, the package's
  class              {20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}
  program            C:\Windows\VeyraCameraDfu\VeyraCameraToastCntl.exe
  there              yes
  writable by        administrators
  AppID              {6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}
  runs as            Interactive User
  launch permission  granted
  access permission  granted
  runs               in session 1

Cameras
  Morrow KV400       5.10.3.0, up to date
                     \\?\usb#vid_2f1a&pid_7e00&mi_00#6&1&0&0000
                     listed as sensor camera
                     listed as video camera
  of other makers    2
)");
}

TEST(StatusReport, SaysLittleOfWhatIsNotThere) {
    const std::string text = TextOf({});
    EXPECT_TRUE(Has(text, "Not ready: nobody would be asked. The service is not installed.\n"));
    EXPECT_TRUE(Has(text, "  installed          no\n\nUpdate mode"));
    EXPECT_TRUE(Has(text, "  registered         no\n"));
    EXPECT_TRUE(Has(text, "  of the family      none is present\n"));
}

TEST(StatusReport, DoesNotSayThatNobodyWritesWhereWindowsDoesNotTell) {
    MachineState machine = ReadyMachine();
    machine.service.folderWriters.error = 5;
    machine.toastController.programWriters.names = {"Everyone"};
    const std::string text = TextOf(machine);
    EXPECT_TRUE(Has(text, "  writable by        administrators\n  folder writable by not told (error 5)\n"));
    EXPECT_TRUE(Has(text, "  writable by        administrators, Everyone\n"));
    const std::string json = JsonOf(machine);
    EXPECT_TRUE(Has(json, "\"program_writers\": [],\n    \"folder_writers\": null,\n"));
    machine.service.programExists = false;
    EXPECT_TRUE(Has(TextOf(machine), "  program            missing\n  writable by        -\n"));
}

TEST(StatusReport, SaysThatTheStartIsDelayed) {
    MachineState machine = ReadyMachine();
    EXPECT_TRUE(Has(JsonOf(machine), "\"start_type\": \"automatic\",\n    \"delayed_start\": false,\n"));
    machine.service.isDelayed = true;
    EXPECT_TRUE(Has(TextOf(machine), "  start type         automatic, delayed\n"));
    EXPECT_TRUE(Has(JsonOf(machine), "\"delayed_start\": true"));
}

TEST(StatusReport, NamesTheControllersClass) {
    EXPECT_TRUE(Has(JsonOf(ReadyMachine()), "\"class_id\": \"{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}\""));
}

TEST(StatusReport, TellsProgramsThatNobodyIsLoggedOn) {
    MachineState machine = ReadyMachine();
    EXPECT_TRUE(Has(JsonOf(machine), "\"nobody_logged_on\": false"));
    machine.isNobodyLoggedOn = true;
    EXPECT_TRUE(Has(JsonOf(machine), "\"nobody_logged_on\": true"));
}

TEST(StatusReport, SaysWhatCannotBeSeen) {
    MachineState machine = ReadyMachine();
    machine.service.programExists = machine.toastController.programExists = machine.image.exists = false;
    machine.service.programError = machine.toastController.programError = machine.image.error = 5;
    machine.image.isHidden = true;
    machine.image.isReadable = false;
    machine.image.ofService = Permission::Unreadable;
    const std::string text = TextOf(machine);
    EXPECT_TRUE(Has(text, "  program            cannot be seen, error 5\n"));
    EXPECT_TRUE(Has(text, "  there              cannot be seen, error 5\n  service may read   not told\n"));
    EXPECT_TRUE(Has(text, "  there              cannot be seen, error 5\n  writable by        -\n"));
    const std::string json = JsonOf(machine);
    EXPECT_TRUE(Has(json, "\"service_may_read\": null\n"));
    EXPECT_TRUE(Has(json, "\"program_exists\": false,\n    \"program_error\": 5"));
}

TEST(StatusReport, SaysOfADeviceInDfuModeWhetherItOpens) {
    MachineState machine = ReadyMachine();
    machine.dfuDevices.devices = {{"one", false, false, "", 0, 0},
                                  {"two", true, true, "", 0, 4096},
                                  {"three", true, false, "opening it", 5, 0}};
    const std::string text = TextOf(machine);
    EXPECT_TRUE(Has(text, "one\n                     not opened, since the service is not stopped\n"));
    EXPECT_TRUE(Has(text, "two\n                     opens, blocks of 4096 bytes\n"));
    EXPECT_TRUE(Has(text, "three\n                     does not open: opening it, error 5\n"));
}

TEST(StatusReport, SaysForProgramsWhatStopsTheUpdate) {
    MachineState machine = ReadyMachine();
    machine.service.runState = RunState::Stopped;
    const std::string json = JsonOf(machine);
    EXPECT_TRUE(Has(json, "\"verdict\": \"not ready\",\n  \"exit_code\": 20,\n"));
    EXPECT_TRUE(Has(json, "\"stopped_by\": \"service-not-running\""));
    EXPECT_TRUE(Has(json, "\"version\": \"1.2.3\""));
    EXPECT_TRUE(Has(json, "\"sessions\": [\n      1\n    ]"));
}

TEST(StatusReport, EachVerdictHasItsExitCode) {
    EXPECT_EQ(ExitCodeOf(Verdict::UpToDate), 0);
    EXPECT_EQ(ExitCodeOf(Verdict::UpdateOffered), 10);
    EXPECT_EQ(ExitCodeOf(Verdict::NotReady), 20);
    EXPECT_EQ(ExitCodeOf(Verdict::CameraTrouble), 30);
}
