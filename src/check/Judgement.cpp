#include "check/Judgement.h"

#include "check/Words.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

namespace check {
namespace {

constexpr std::string_view kAccount = "NT AUTHORITY\\LocalService";
constexpr std::string_view kInteractiveUser = "Interactive User";
constexpr std::uint32_t kNotFound = 2;
constexpr const char* kControllerWaits = "toast-controller-waits";

using Version = std::array<unsigned, 4>;

std::optional<Version> VersionOf(std::string_view text) {
    Version version{};
    const char* position = text.data();
    const char* const end = position + text.size();
    for (std::size_t index = 0; index < version.size(); ++index) {
        if (index != 0 && (position == end || *position++ != '.')) {
            return std::nullopt;
        }
        const auto [next, error] = std::from_chars(position, end, version[index]);
        if (error != std::errc{}) {
            return std::nullopt;
        }
        position = next;
    }
    return position == end ? std::optional(version) : std::nullopt;
}

// What is said of one machine, in the order in which the service meets it.
class Findings {
  public:
    void Fault(std::string id, std::string text, std::string advice) {
        Add(Severity::Fault, std::move(id), std::move(text), std::move(advice));
    }
    void Warning(std::string id, std::string text, std::string advice) {
        Add(Severity::Warning, std::move(id), std::move(text), std::move(advice));
    }
    void Note(std::string id, std::string text, std::string advice = {}) {
        Add(Severity::Note, std::move(id), std::move(text), std::move(advice));
    }

    [[nodiscard]] const Finding* FirstFault() const {
        const auto found = std::find_if(list_.begin(), list_.end(), [](const Finding& finding) {
            return finding.severity == Severity::Fault;
        });
        return found == list_.end() ? nullptr : &*found;
    }
    [[nodiscard]] bool Has(std::string_view id) const {
        return std::any_of(list_.begin(), list_.end(),
                           [id](const Finding& finding) { return finding.id == id; });
    }
    [[nodiscard]] const std::vector<Finding>& List() const { return list_; }
    void Append(const Findings& others) {
        list_.insert(list_.end(), others.list_.begin(), others.list_.end());
    }

  private:
    void Add(Severity severity, std::string id, std::string text, std::string advice) {
        list_.push_back({severity, std::move(id), std::move(text), std::move(advice)});
    }

    std::vector<Finding> list_;
};

void LookAtProgram(const ServiceState& service, Findings& findings) {
    if (!service.startedInstead.empty()) {
        findings.Fault("service-program-replaced",
                       "Windows starts " + service.startedInstead + " in the service's place.",
                       "remove that file, and quote the service's path");
    } else if (service.programError != 0) {
        findings.Warning("service-program-hidden",
                         "Whether the service's program is there cannot be told (" +
                             Code(service.programError) + "): " + service.program + ".",
                         "run this at an elevated prompt");
    } else if (!service.programExists) {
        findings.Fault("service-program-missing",
                       "The service's program is missing: " + service.program + ".",
                       "repair the package, or put the program back");
    }
    if (!service.isQuoted && service.program.find(' ') != std::string::npos) {
        findings.Warning("service-path-unquoted", "The service's path has blanks and is not quoted.",
                         "quote it, or install into a folder without blanks");
    }
    std::vector<std::string> writers = service.programWriters.names;
    for (const std::string& writer : service.folderWriters.names) {
        if (std::find(writers.begin(), writers.end(), writer) == writers.end()) {
            writers.push_back(writer);
        }
    }
    if (!writers.empty()) {
        findings.Warning("service-writable",
                         "The service's program or its folder can be changed by " + Listed(writers) + ".",
                         "install into a folder that only administrators write");
    }
}

void LookAtRun(const ServiceState& service, Findings& findings) {
    const bool isDisabled = service.startType == StartType::Disabled;
    if (service.runState != RunState::Running) {
        if (isDisabled) {
            findings.Fault("service-disabled", "The service is disabled.",
                           "sc config VeyraCameraDfuService start= demand, then start it");
        } else {
            findings.Fault("service-not-running",
                           "The service is not running: it is " + std::string(Word(service.runState)) + ".",
                           "sc start VeyraCameraDfuService");
        }
    } else if (isDisabled) {
        findings.Warning("service-disabled-while-running",
                         "The service runs, but is disabled: once stopped it does not start again.",
                         "sc config VeyraCameraDfuService start= demand");
    }
    if (service.startType == StartType::Manual) {
        findings.Note("service-starts-by-hand",
                      "The service's start type is manual: after a restart something has to start it.");
    }
}

void LookAt(const ServiceState& service, Findings& findings) {
    if (service.error != 0) {
        findings.Fault(
            "service-unknown",
            "The service control manager did not tell about the service (" + Code(service.error) + ").",
            "run this at an elevated prompt");
        return;
    }
    if (!service.isInstalled) {
        findings.Fault("service-not-installed", "The service is not installed.",
                       "install the package, or run VeyraCameraDfuService.exe -install");
        return;
    }
    if (service.isMarkedForDeletion) {
        findings.Fault("service-deleted", "The service was deleted, and some program still has it open.",
                       "close the Services window, or restart Windows; then install it again");
    }
    if (!EqualsIgnoringCase(service.account, kAccount)) {
        findings.Fault("service-account",
                       "The service's account is " + service.account + ", not " + std::string(kAccount) + ".",
                       R"(sc config VeyraCameraDfuService obj= "NT AUTHORITY\LocalService")");
    }
    LookAtProgram(service, findings);
    LookAtRun(service, findings);
    if (service.hasNamesake) {
        findings.Warning(
            "service-namesake",
            "There is a service named VeyraCameraDFU: the uninstall monitor stops and deletes it.",
            "give that service another name");
    }
}

void LookAt(const UpdateModeState& mode, Findings& findings) {
    if (mode.isServiceControlled) {
        return;
    }
    const std::string advice =
        R"(reg add HKLM\SYSTEM\CurrentControlSet\Services\VeyraCameraDFU /v DFUAutoMode /t REG_SZ /d )"
        R"("Service Controlled" /f)";
    if (mode.error == kNotFound) {
        findings.Fault("update-mode-missing", "The update mode is not set.", advice);
    } else if (mode.error != 0) {
        findings.Fault("update-mode-unknown", "The update mode could not be read (" + Code(mode.error) + ").",
                       "run this at an elevated prompt");
    } else {
        const char* const id = mode.text == "Disabled" ? "update-mode-disabled"
                               : mode.text == "Auto"   ? "update-mode-auto"
                                                       : "update-mode-other";
        findings.Fault(id, R"(The update mode is ")" + mode.text + R"(", not "Service Controlled".)", advice);
    }
}

void LookAt(const ImageState& image, Findings& findings) {
    if (image.isHidden && image.ofService != Permission::Refused) {
        findings.Fault(
            "image-unknown",
            "The firmware image cannot be looked at (" + Code(image.error) + "): " + image.path + ".",
            "run this at an elevated prompt");
    } else if (!image.exists && !image.isHidden) {
        findings.Fault(
            "image-missing", "There is no firmware image: " + image.path + ".",
            image.isIn32BitFolder
                ? "one lies in SysWOW64\\drivers, where a 32-bit tool has put it: copy it with a 64-bit one"
                : "put the image in place");
    } else if (image.ofService == Permission::Refused) {
        findings.Fault(
            "image-refused",
            "LocalService, as which the service runs, may not read the firmware image: " + image.path + ".",
            "give it the permissions of its folder: icacls \"" + image.path + "\" /reset");
    } else if (!image.isReadable) {
        findings.Fault("image-unreadable",
                       "The firmware image cannot be read (" + Code(image.error) + "): " + image.path + ".",
                       "put the image in place, as a file that everybody may read");
    } else if (image.version.empty()) {
        findings.Fault(
            "image-too-short",
            "The firmware image has " + std::to_string(image.size) + " bytes, too few for a version.",
            "put the right image in place");
    }
}

void LookAtPermissions(const ToastControllerState& controller, Findings& findings) {
    const std::string advice = controller.isOurs ? "repair the package" : "install the toast controller anew";
    if (!EqualsIgnoringCase(controller.runAs, kInteractiveUser)) {
        findings.Fault(
            "toast-controller-unseen",
            "The toast controller is not registered to run as the logged-on user, who would not see it.",
            advice);
    }
    if (controller.launch == Permission::Refused || controller.launch == Permission::NotSet) {
        findings.Fault("toast-controller-launch", "LocalService may not start the toast controller.", advice);
    }
    if (controller.access == Permission::Refused) {
        findings.Fault("toast-controller-access", "LocalService may not call the toast controller.", advice);
    } else if (controller.access == Permission::NotSet) {
        findings.Warning(
            "toast-controller-access-default",
            "The toast controller has no access permission of its own: Windows' default decides.", advice);
    }
    if (controller.launch == Permission::Unreadable || controller.access == Permission::Unreadable) {
        findings.Fault("toast-controller-permission",
                       "A permission of the toast controller is not a valid security descriptor.", advice);
    }
}

// The toast controller runs as the logged-on user, and so nowhere while nobody is: nothing is wrong then.
void LookAtRun(const ToastControllerState& controller, const MachineState& machine, Findings& findings) {
    const bool runs = machine.service.isInstalled && machine.service.runState == RunState::Running;
    if (!runs || !controller.sessions.empty()) {
        return;
    }
    const char* const advice = "restart the service while somebody is logged on";
    if (machine.isNobodyLoggedOn) {
        findings.Note(
            kControllerWaits,
            "The toast controller does not run, since nobody is logged on: it is started once, with "
            "the service.",
            advice);
    } else {
        findings.Fault("toast-controller-not-running",
                       "The toast controller does not run: it is started once, with the service.", advice);
    }
}

void LookAt(const ToastControllerState& controller, const MachineState& machine, Findings& findings) {
    if (controller.error != 0) {
        findings.Fault(
            "toast-controller-unknown",
            "The toast controller's registration could not be read (" + Code(controller.error) + ").",
            "run this at an elevated prompt");
        return;
    }
    if (!controller.isRegistered) {
        findings.Fault(
            "toast-controller-missing", "No toast controller is registered: nobody can be asked.",
            controller.isInSystemFolder
                ? "run VeyraCameraToastCntl.exe /RegServer at an elevated prompt, then restart the service"
                : "install the package's, or another maker's; then restart the service");
        return;
    }
    if (controller.programError != 0) {
        findings.Warning("toast-controller-hidden",
                         "Whether the toast controller's program is there cannot be told (" +
                             Code(controller.programError) + "): " + controller.program + ".",
                         "run this at an elevated prompt");
    } else if (!controller.programExists) {
        findings.Fault(
            "toast-controller-broken",
            "The toast controller is registered, and its program is missing: " + controller.program + ".",
            controller.isOurs ? "repair the package" : "install the toast controller anew");
        return;
    }
    if (!controller.programWriters.names.empty()) {
        findings.Warning("toast-controller-writable",
                         "The toast controller's program can be changed by " +
                             Listed(controller.programWriters.names) + ".",
                         "keep it where only administrators write");
    }
    LookAtPermissions(controller, findings);
    LookAtRun(controller, machine, findings);
}

CameraStanding StandingOf(const CameraState& camera, const ImageState& image) {
    if (camera.openError != 0) {
        return CameraStanding::NotOpened;
    }
    if (camera.unitError != 0) {
        return CameraStanding::WithoutUnit;
    }
    const bool isUpdatable =
        std::any_of(camera.listings.begin(), camera.listings.end(),
                    [](const CameraListing& listing) { return listing.category != kCaptureListing; });
    if (!isUpdatable) {
        return CameraStanding::NotUpdatable;
    }
    if (camera.version.empty() || camera.version == kUnknownVersion) {
        return CameraStanding::VersionUnknown;
    }
    if (image.version.empty()) {
        return CameraStanding::ImageUnknown;
    }
    if (camera.version == image.version) {
        return CameraStanding::UpToDate;
    }
    return CompareVersions(camera.version, image.version) > 0 ? CameraStanding::Newer : CameraStanding::Older;
}

void LookAt(const CameraState& camera, CameraStanding standing, Findings& findings) {
    const std::string& name = camera.name;
    switch (standing) {
        case CameraStanding::VersionUnknown:
            findings.Fault("camera-version-unknown",
                           "A camera did not tell its firmware version (" + Code(camera.versionError) +
                               "): " + name + ".",
                           "plug it in again; else the camera is at fault");
            break;
        case CameraStanding::NotUpdatable:
            findings.Fault(
                "camera-listed-as-capture",
                "Windows lists a camera as a capture device alone, which the service passes over: " + name +
                    ".",
                "another USB port; the camera's driver");
            break;
        case CameraStanding::NotOpened:
            findings.Fault("camera-not-opened",
                           "A camera could not be opened (" + Code(camera.openError) + "): " + name + ".",
                           "close the programs that use it, plug it in again");
            break;
        case CameraStanding::WithoutUnit:
            findings.Note("camera-without-unit",
                          "A camera of the maker has no firmware extension unit (" + Code(camera.unitError) +
                              "), and the service passes it over: " + name + ".",
                          "if it is one of the family: the camera's driver");
            break;
        case CameraStanding::Newer:
            findings.Note(
                "camera-newer",
                "A camera's firmware is newer than the image, and is asked about: " + camera.version + ".");
            break;
        case CameraStanding::UpToDate:
        case CameraStanding::Older:
        case CameraStanding::ImageUnknown:
            break;
    }
}

void LookAt(const DfuDeviceState& device, const MachineState& machine, Findings& findings) {
    const bool runs = machine.service.isInstalled && machine.service.runState == RunState::Running;
    if (!device.wasTried) {
        findings.Fault("dfu-device-present", "A camera is in DFU mode: " + device.link + ".",
                       runs && machine.updateMode.isServiceControlled
                           ? "plug in any USB device: the service tries to download the image at each arrival"
                           : "start the service, and plug in any USB device");
    } else if (device.opens) {
        findings.Fault("dfu-device-waits", "A camera is in DFU mode and opens: " + device.link + ".",
                       "start the service, and plug in any USB device");
    } else {
        findings.Fault("dfu-device-not-opened",
                       "A camera is in DFU mode and does not open, " + device.failedStep + " (" +
                           Code(device.error) + "): " + device.link + ".",
                       "its driver has to be WinUSB; close what holds it, plug it in again");
    }
}

// A camera without the unit is none for the service.
bool HasUpToDate(const Judgement& judgement) {
    return std::find(judgement.cameras.begin(), judgement.cameras.end(), CameraStanding::UpToDate) !=
           judgement.cameras.end();
}

std::string HeadlineOf(Verdict verdict, const MachineState& machine, const Judgement& judgement,
                       const Finding* fault) {
    switch (verdict) {
        case Verdict::NotReady:
            return "Not ready: nobody would be asked. " + fault->text;
        case Verdict::CameraTrouble:
            return "A camera needs attention. " + fault->text;
        case Verdict::UpdateOffered: {
            const auto differs =
                std::find_if(judgement.cameras.begin(), judgement.cameras.end(), [](CameraStanding standing) {
                    return standing == CameraStanding::Older || standing == CameraStanding::Newer;
                });
            const auto index = static_cast<std::size_t>(differs - judgement.cameras.begin());
            return "An update would be offered" +
                   std::string(
                       judgement.wouldAsk ? "" : ", were somebody logged on and the service restarted then") +
                   ": a camera has the firmware " + machine.cameras.cameras[index].version +
                   ", the image is " + machine.image.version + ".";
        }
        case Verdict::UpToDate:
            break;
    }
    return !HasUpToDate(judgement)
               ? "Ready: no camera is present. One whose firmware is not " + machine.image.version +
                     " would be asked about."
               : "Up to date: the camera's firmware is the image's, " + machine.image.version + ".";
}

}  // namespace

int CompareVersions(std::string_view left, std::string_view right) {
    const auto leftVersion = VersionOf(left);
    const auto rightVersion = VersionOf(right);
    if (!leftVersion || !rightVersion || *leftVersion == *rightVersion) {
        return 0;
    }
    return *leftVersion < *rightVersion ? -1 : 1;
}

Judgement Judge(const MachineState& machine) {
    Judgement judgement;
    Findings ofMachine;
    LookAt(machine.service, ofMachine);
    LookAt(machine.updateMode, ofMachine);
    if (machine.cameras.mediaError != 0) {
        ofMachine.Fault("media-foundation",
                        "Media Foundation does not list cameras (" + Code(machine.cameras.mediaError) + ").",
                        R"(install Windows' media features, which an edition "N" lacks)");
    }
    LookAt(machine.image, ofMachine);
    LookAt(machine.toastController, machine, ofMachine);

    Findings ofCameras;
    for (const CameraState& camera : machine.cameras.cameras) {
        judgement.cameras.push_back(StandingOf(camera, machine.image));
        LookAt(camera, judgement.cameras.back(), ofCameras);
    }
    if (machine.dfuDevices.error != 0) {
        ofCameras.Fault("usb-devices-unknown",
                        "Windows did not list the USB devices (" + Code(machine.dfuDevices.error) + ").",
                        "run this once more");
    }
    for (const DfuDeviceState& device : machine.dfuDevices.devices) {
        LookAt(device, machine, ofCameras);
    }

    const bool differs =
        std::any_of(judgement.cameras.begin(), judgement.cameras.end(), [](CameraStanding standing) {
            return standing == CameraStanding::Older || standing == CameraStanding::Newer;
        });
    const Finding* fault = ofMachine.FirstFault();
    if (fault != nullptr) {
        judgement.verdict = Verdict::NotReady;
        judgement.stoppedBy = fault->id;
    } else if ((fault = ofCameras.FirstFault()) != nullptr) {
        judgement.verdict = Verdict::CameraTrouble;
        judgement.stoppedBy = differs ? std::string() : fault->id;
        judgement.wouldAsk = differs;
    } else if (differs) {
        judgement.verdict = Verdict::UpdateOffered;
        judgement.wouldAsk = true;
    } else {
        judgement.stoppedBy = HasUpToDate(judgement) ? "versions-equal" : "no-camera";
    }
    if (ofMachine.Has(kControllerWaits) && judgement.wouldAsk) {
        judgement.wouldAsk = false;
        judgement.stoppedBy = kControllerWaits;
    }
    judgement.headline = HeadlineOf(judgement.verdict, machine, judgement, fault);
    ofMachine.Append(ofCameras);
    judgement.findings = ofMachine.List();
    return judgement;
}

}  // namespace check
