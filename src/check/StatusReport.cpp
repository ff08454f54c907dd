#include "check/StatusReport.h"

#include "check/JsonWriter.h"
#include "check/Words.h"

#include <algorithm>

namespace check {
namespace {

constexpr std::size_t kNameWidth = 20;

std::string_view YesOrNo(bool value) {
    return value ? "yes" : "no";
}

// Sections of lines, each a name and what there is to say of it.
class Lines {
  public:
    void Section(std::string_view title) {
        text_ += "\n";
        text_ += title;
        text_ += "\n";
    }
    void Line(std::string_view name, std::string_view value) {
        text_ += "  ";
        text_ += name;
        text_.append(kNameWidth - std::min(name.size() + 1, kNameWidth - 1), ' ');
        text_ += value.empty() ? std::string_view("-") : value;
        text_ += "\n";
    }
    void Plain(std::string_view line) {
        text_ += line;
        text_ += "\n";
    }
    [[nodiscard]] const std::string& Text() const { return text_; }

  private:
    std::string text_;
};

// Nothing, for a file that is not there.
std::string WritersText(const WritersState& writers, bool isThere) {
    if (!isThere) {
        return {};
    }
    if (writers.error != 0) {
        return "not told (" + Code(writers.error) + ")";
    }
    return writers.names.empty() ? "administrators" : "administrators, " + Listed(writers.names);
}

void Write(std::string_view name, const WritersState& writers, JsonWriter& json) {
    if (writers.error != 0) {
        json.Null(name);
    } else {
        json.Texts(name, writers.names);
    }
}

std::string StartTypeText(const ServiceState& service) {
    return std::string(Word(service.startType)) + (service.isDelayed ? ", delayed" : "");
}

void Write(const ServiceState& service, Lines& lines) {
    lines.Section("Service VeyraCameraDfuService");
    lines.Line("installed", YesOrNo(service.isInstalled));
    if (!service.isInstalled) {
        return;
    }
    lines.Line("account", service.account);
    lines.Line("path", service.commandLine);
    lines.Line("quoted", YesOrNo(service.isQuoted));
    lines.Line("program", service.programError != 0        ? "cannot be seen, " + Code(service.programError)
                          : !service.programExists         ? "missing"
                          : service.programVersion.empty() ? "there"
                                                           : "version " + service.programVersion);
    lines.Line("writable by", WritersText(service.programWriters, service.programExists));
    lines.Line("folder writable by", WritersText(service.folderWriters, service.programExists));
    lines.Line("start type", StartTypeText(service));
    lines.Line("state", Word(service.runState));
}

void Write(const UpdateModeState& mode, Lines& lines) {
    lines.Section("Update mode");
    lines.Line("DFUAutoMode", mode.error != 0 && mode.text.empty() ? "not set" : mode.text);
    lines.Line("updating allowed", YesOrNo(mode.isServiceControlled));
}

void Write(const ImageState& image, Lines& lines) {
    lines.Section("Firmware image");
    lines.Line("path", image.path);
    lines.Line("there", image.exists     ? "yes"
                        : image.isHidden ? "cannot be seen, " + Code(image.error)
                                         : "no");
    if (image.ofService != Permission::NotSet) {
        lines.Line("service may read", image.ofService == Permission::Granted   ? "yes"
                                       : image.ofService == Permission::Refused ? "no"
                                                                                : "not told");
    }
    if (image.isReadable) {
        lines.Line("size", std::to_string(image.size) + " bytes");
        lines.Line("version", image.version);
        lines.Line("SHA-256", image.sha256);
    }
}

std::string SessionsText(const std::vector<std::uint32_t>& sessions) {
    std::vector<std::string> words;
    words.reserve(sessions.size());
    for (const std::uint32_t session : sessions) {
        words.push_back(std::to_string(session));
    }
    return words.empty() ? "nowhere" : (words.size() == 1 ? "in session " : "in sessions ") + Listed(words);
}

void Write(const ToastControllerState& controller, Lines& lines) {
    lines.Section("Toast controller");
    lines.Line("registered", !controller.isRegistered ? "no"
                             : controller.isOurs      ? "yes, the package's"
                                                      : "yes, another maker's");
    if (!controller.isRegistered) {
        lines.Line("in System32", YesOrNo(controller.isInSystemFolder));
        return;
    }
    lines.Line("class", controller.classId);
    lines.Line("program", controller.program);
    lines.Line("there", controller.programError != 0 ? "cannot be seen, " + Code(controller.programError)
                        : !controller.programExists  ? "no"
                        : controller.programVersion.empty() ? "yes"
                                                            : "yes, version " + controller.programVersion);
    lines.Line("writable by", WritersText(controller.programWriters, controller.programExists));
    lines.Line("AppID", controller.appId);
    lines.Line("runs as", controller.runAs);
    lines.Line("launch permission", Word(controller.launch));
    lines.Line("access permission", Word(controller.access));
    lines.Line("runs", SessionsText(controller.sessions));
}

void Write(const MachineState& machine, const Judgement& judgement, Lines& lines) {
    lines.Section("Cameras");
    for (std::size_t index = 0; index < machine.cameras.cameras.size(); ++index) {
        const CameraState& camera = machine.cameras.cameras[index];
        lines.Line(camera.name, (camera.version.empty() ? std::string("no version") : camera.version) + ", " +
                                    std::string(Word(judgement.cameras[index])));
        lines.Line("", camera.device);
        for (const CameraListing& listing : camera.listings) {
            lines.Line("", "listed as " + listing.category);
        }
    }
    if (machine.cameras.cameras.empty()) {
        lines.Line("of the family", "none is present");
    }
    if (machine.cameras.others != 0) {
        lines.Line("of other makers", std::to_string(machine.cameras.others));
    }
    for (const DfuDeviceState& device : machine.dfuDevices.devices) {
        lines.Line("in DFU mode", device.link);
        lines.Line("", !device.wasTried ? "not opened, since the service is not stopped"
                       : device.opens   ? "opens, blocks of " + std::to_string(device.transferSize) + " bytes"
                                        : "does not open: " + device.failedStep + ", " + Code(device.error));
    }
}

void Write(const ServiceState& service, JsonWriter& json) {
    json.BeginObject("service").Truth("installed", service.isInstalled).Number("error", service.error);
    if (service.isInstalled) {
        json.Truth("marked_for_deletion", service.isMarkedForDeletion)
            .Text("account", service.account)
            .Text("path", service.commandLine)
            .Truth("quoted", service.isQuoted)
            .Text("program", service.program)
            .Truth("program_exists", service.programExists)
            .Number("program_error", service.programError)
            .Text("program_version", service.programVersion)
            .Text("started_instead", service.startedInstead);
        Write("program_writers", service.programWriters, json);
        Write("folder_writers", service.folderWriters, json);
        json.Text("start_type", Word(service.startType))
            .Truth("delayed_start", service.isDelayed)
            .Text("state", Word(service.runState))
            .Number("process_id", service.processId)
            .Number("exit_code", service.exitCode);
    }
    json.Truth("namesake", service.hasNamesake).End();
}

void Write(const UpdateModeState& mode, JsonWriter& json) {
    json.BeginObject("update_mode")
        .Truth("service_controlled", mode.isServiceControlled)
        .Text("text", mode.text)
        .Number("error", mode.error)
        .End();
}

void Write(const ImageState& image, JsonWriter& json) {
    json.BeginObject("image")
        .Text("path", image.path)
        .Truth("exists", image.exists)
        .Truth("readable", image.isReadable)
        .Number("error", image.error)
        .Number("size", image.size)
        .Text("sha256", image.sha256)
        .Text("version", image.version);
    if (image.ofService == Permission::Granted || image.ofService == Permission::Refused) {
        json.Truth("service_may_read", image.ofService == Permission::Granted);
    } else {
        json.Null("service_may_read");
    }
    json.End();
}

void Write(const ToastControllerState& controller, JsonWriter& json) {
    json.BeginObject("toast_controller")
        .Truth("registered", controller.isRegistered)
        .Number("error", controller.error)
        .Truth("ours", controller.isOurs)
        .Text("class_id", controller.classId)
        .Text("command", controller.commandLine)
        .Text("program", controller.program)
        .Truth("program_exists", controller.programExists)
        .Number("program_error", controller.programError)
        .Text("program_version", controller.programVersion);
    Write("program_writers", controller.programWriters, json);
    json.Text("app_id", controller.appId)
        .Text("run_as", controller.runAs)
        .Text("launch_permission", Word(controller.launch))
        .Text("access_permission", Word(controller.access))
        .Truth("in_system_folder", controller.isInSystemFolder)
        .BeginList("sessions");
    for (const std::uint32_t session : controller.sessions) {
        json.NumberElement(session);
    }
    json.End().End();
}

void Write(const CameraState& camera, CameraStanding standing, JsonWriter& json) {
    json.BeginObject()
        .Text("name", camera.name)
        .Text("device", camera.device)
        .Text("standing", Word(standing))
        .Text("version", camera.version)
        .Number("version_error", camera.versionError)
        .Number("open_error", camera.openError)
        .Number("unit_error", camera.unitError)
        .BeginList("listings");
    for (const CameraListing& listing : camera.listings) {
        json.BeginObject().Text("category", listing.category).Text("link", listing.link).End();
    }
    json.End().End();
}

void Write(const DfuDeviceState& device, JsonWriter& json) {
    json.BeginObject().Text("link", device.link).Truth("tried", device.wasTried);
    if (device.wasTried) {
        json.Truth("opens", device.opens)
            .Text("failed_step", device.failedStep)
            .Number("error", device.error)
            .Number("transfer_size", device.transferSize);
    }
    json.End();
}

}  // namespace

std::string StatusText(const MachineState& machine, const Judgement& judgement) {
    Lines lines;
    lines.Plain(judgement.headline);
    for (const Finding& finding : judgement.findings) {
        lines.Plain("  " + std::string(Word(finding.severity)) + ": " + finding.text);
        if (!finding.advice.empty()) {
            lines.Plain("    " + finding.advice);
        }
    }
    Write(machine.service, lines);
    Write(machine.updateMode, lines);
    Write(machine.image, lines);
    Write(machine.toastController, lines);
    Write(machine, judgement, lines);
    return lines.Text();
}

std::string StatusJson(const MachineState& machine, const Judgement& judgement,
                       std::string_view programVersion) {
    JsonWriter json;
    json.BeginObject()
        .Text("program", "VeyraCameraDfuCheck")
        .Text("version", programVersion)
        .Text("verdict", Word(judgement.verdict))
        .Number("exit_code", static_cast<std::uint64_t>(ExitCodeOf(judgement.verdict)))
        .Text("headline", judgement.headline)
        .Truth("would_ask", judgement.wouldAsk)
        .Text("stopped_by", judgement.stoppedBy)
        .BeginList("findings");
    for (const Finding& finding : judgement.findings) {
        json.BeginObject()
            .Text("severity", Word(finding.severity))
            .Text("id", finding.id)
            .Text("text", finding.text)
            .Text("advice", finding.advice)
            .End();
    }
    json.End();
    Write(machine.service, json);
    Write(machine.updateMode, json);
    Write(machine.image, json);
    Write(machine.toastController, json);
    json.Number("media_error", machine.cameras.mediaError).BeginList("cameras");
    for (std::size_t index = 0; index < machine.cameras.cameras.size(); ++index) {
        Write(machine.cameras.cameras[index], judgement.cameras[index], json);
    }
    json.End()
        .Truth("nobody_logged_on", machine.isNobodyLoggedOn)
        .Number("other_cameras", machine.cameras.others)
        .BeginList("dfu_devices");
    for (const DfuDeviceState& device : machine.dfuDevices.devices) {
        Write(device, json);
    }
    return json.End().End().Finished();
}

int ExitCodeOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::UpToDate:
            return 0;
        case Verdict::UpdateOffered:
            return 10;
        case Verdict::NotReady:
            return 20;
        case Verdict::CameraTrouble:
            break;
    }
    return 30;
}

}  // namespace check
