#include "tests/check/ReadyMachine.h"

using namespace check;

MachineState ReadyMachine() {
    MachineState machine;
    ServiceState& service = machine.service;
    service.isInstalled = true;
    service.startType = StartType::Automatic;
    service.runState = RunState::Running;
    service.processId = 4711;
    service.account = "NT AUTHORITY\\LocalService";
    service.commandLine = "C:\\Windows\\VeyraCameraDfu\\VeyraCameraDfuService.exe";
    service.program = service.commandLine;
    service.programExists = true;
    service.programVersion = "1.0.0.0";
    machine.updateMode.isServiceControlled = true;
    machine.updateMode.text = "Service Controlled";
    machine.image.path = "C:\\Windows\\system32\\drivers\\KV400Firmware.bin";
    machine.image.exists = true;
    machine.image.isReadable = true;
    machine.image.size = 262144;
    machine.image.sha256 = "c6400f9e80d461792ed4dac40fefc2b9023f14f3998ba06ae33ca7f559c51acf";
    machine.image.version = "5.10.3.0";
    machine.image.ofService = Permission::Granted;
    ToastControllerState& controller = machine.toastController;
    controller.isRegistered = true;
    controller.isOurs = true;
    controller.classId = "{20C4BEF7-CA2C-40F7-9B2A-33378E54E68C}";
    controller.program = "C:\\Windows\\VeyraCameraDfu\\VeyraCameraToastCntl.exe";
    controller.commandLine = "\"" + controller.program + "\"";
    controller.programExists = true;
    controller.appId = "{6D0F3A58-91C4-4B7E-8E25-C3A1F7094DB2}";
    controller.runAs = "Interactive User";
    controller.launch = Permission::Granted;
    controller.access = Permission::Granted;
    controller.sessions = {1};
    return machine;
}

CameraState CameraWith(const std::string& version) {
    CameraState camera;
    camera.name = "Morrow KV400";
    camera.device = "\\\\?\\usb#vid_2f1a&pid_7e00&mi_00#6&1&0&0000";
    camera.listings = {
        {camera.device + "#{24e552d7-6523-47f7-a647-d3465bf1f5ca}\\global", "sensor camera"},
        {camera.device + "#{e5323777-f976-4f5b-9b55-b94699c46e44}\\global", "video camera"},
    };
    camera.version = version;
    return camera;
}
