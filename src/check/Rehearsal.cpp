#include "check/Rehearsal.h"

#include "check/JsonWriter.h"
#include "check/StatusReport.h"
#include "check/Words.h"

#include <algorithm>
#include <array>

namespace check {
namespace {

constexpr std::uint32_t kProbeSize = 68;
constexpr std::uint64_t kHandlerLimitMs = 30000;
// What boot loaders usually tell.
constexpr std::array<std::uint32_t, 4> kUsualBlockSizes{512, 1024, 2048, 4096};

// The first fault whose id begins so; null when there is none.
const Finding* FaultOf(const Judgement& judgement, std::string_view beginning) {
    const auto found = std::find_if(
        judgement.findings.begin(), judgement.findings.end(), [beginning](const Finding& finding) {
            return finding.severity == Severity::Fault && std::string_view(finding.id).starts_with(beginning);
        });
    return found == judgement.findings.end() ? nullptr : &*found;
}

// One camera's steps, until one of them ends the way.
class Way {
  public:
    explicit Way(CameraRehearsal& camera) : camera_(camera) {}

    void Step(std::string text) {
        if (!isOver_) {
            camera_.steps.push_back(std::move(text));
        }
    }
    void End(std::string text) {
        Step(std::move(text));
        isOver_ = true;
    }
    void EndAt(const Finding* fault) {
        if (fault != nullptr) {
            End("It ends here. " + fault->text);
        }
    }
    [[nodiscard]] bool IsOver() const { return isOver_; }

  private:
    CameraRehearsal& camera_;
    bool isOver_ = false;
};

// The stops that lie before both passes.
void PassTheDoor(const Judgement& judgement, Way& way) {
    way.EndAt(FaultOf(judgement, "service-"));
    way.EndAt(FaultOf(judgement, "update-mode-"));
    way.Step("The update mode is read: \"Service Controlled\".");
}

void Download(const MachineState& machine, Way& way) {
    way.Step("GETSTATE, DETACH, GETSTATE and a read of " + std::to_string(kProbeSize) + " bytes are sent.");
    way.Step("The " + std::to_string(machine.image.size) +
             " bytes of the image are sent block by block, with a look after each, and an empty block at the "
             "end.");
    way.Step("The camera manifests the image: it is looked at every 200 ms, for 30 s at the most.");
}

void Ask(const MachineState& machine, const Judgement& judgement, CameraRehearsal& camera, Way& way) {
    if (way.IsOver()) {
        return;
    }
    way.EndAt(FaultOf(judgement, "toast-controller-"));
    if (way.IsOver()) {
        return;
    }
    camera.wouldDownload = true;
    way.Step("The user is asked, at each of these arrivals: " + std::to_string(camera.questions) +
             (camera.questions == 1 ? " time." : " times."));
    way.Step(
        "If the user accepts, the camera is sent into DFU mode with the command 0x1E and leaves the bus.");
    way.Step(
        "It comes back as USB device 2F1A:7E01 or 2F1A:7E02, is opened with WinUSB, and its DFU interface is "
        "selected.");
    Download(machine, way);
    way.End("The camera restarts with firmware " + machine.image.version +
            ", and nothing is to be done at its arrival.");
}

unsigned UpdatableListings(const CameraState& camera) {
    return static_cast<unsigned>(
        std::count_if(camera.listings.begin(), camera.listings.end(),
                      [](const CameraListing& listing) { return listing.category != kCaptureListing; }));
}

std::string ListingsText(const CameraState& camera) {
    std::vector<std::string> categories;
    for (const CameraListing& listing : camera.listings) {
        categories.push_back(listing.category);
    }
    return Listed(categories);
}

// What ends the way of a camera that does not come to a question.
std::string EndOf(const CameraState& camera, CameraStanding standing) {
    switch (standing) {
        case CameraStanding::NotOpened:
            return "It ends here. The camera is left out, since it does not open (" + Code(camera.openError) +
                   ").";
        case CameraStanding::WithoutUnit:
            return "It ends here. The camera has no firmware extension unit, and is taken for another "
                   "maker's.";
        case CameraStanding::NotUpdatable:
            return "It ends here. The camera is listed as a capture device alone, which is passed over.";
        case CameraStanding::VersionUnknown:
            return "It ends here. The camera does not tell its version, in five attempts.";
        case CameraStanding::UpToDate:
            return "The versions are equal: nothing is done.";
        case CameraStanding::Older:
        case CameraStanding::Newer:
        case CameraStanding::ImageUnknown:
            break;
    }
    return {};
}

CameraRehearsal RehearseCamera(const MachineState& machine, const Judgement& judgement, std::size_t index) {
    const CameraState& camera = machine.cameras.cameras[index];
    const CameraStanding standing = judgement.cameras[index];
    CameraRehearsal rehearsal{camera.name, camera.device, {}, 0, false};
    Way way(rehearsal);
    way.Step("Windows tells of the camera's arrival, as " + ListingsText(camera) + ".");
    PassTheDoor(judgement, way);
    way.EndAt(FaultOf(judgement, "media-foundation"));
    const bool isAsked = standing != CameraStanding::NotOpened && standing != CameraStanding::WithoutUnit &&
                         standing != CameraStanding::NotUpdatable &&
                         standing != CameraStanding::VersionUnknown;
    if (isAsked) {
        way.Step("The camera is opened and asked for its firmware's version, with the command 0x10: " +
                 camera.version + ".");
        way.EndAt(FaultOf(judgement, "image-"));
        way.Step("The image's version is read: " + machine.image.version + ".");
    }
    if (const std::string end = EndOf(camera, standing); !end.empty()) {
        way.End(end);
    }
    if (!way.IsOver()) {
        rehearsal.questions = UpdatableListings(camera);
        Ask(machine, judgement, rehearsal, way);
        if (!rehearsal.wouldDownload) {
            rehearsal.questions = 0;
        }
    }
    return rehearsal;
}

CameraRehearsal RehearseDfuDevice(const MachineState& machine, const Judgement& judgement,
                                  std::size_t index) {
    const DfuDeviceState& device = machine.dfuDevices.devices[index];
    CameraRehearsal rehearsal{"Camera in DFU mode", device.link, {}, 0, false};
    Way way(rehearsal);
    way.Step("It waits until some USB device arrives.");
    PassTheDoor(judgement, way);
    if (index != 0) {
        way.End(
            "It ends here. Another camera in DFU mode stands before it in Windows' list, and that one is "
            "taken.");
    }
    if (device.wasTried && !device.opens) {
        way.End("It ends here. The camera does not open: " + device.failedStep + ", " + Code(device.error) +
                ".");
    }
    way.Step("The camera is opened with WinUSB, its DFU interface is selected, and nobody is asked.");
    if (!machine.image.isReadable) {
        way.End("It ends here. There is no image that could be read.");
    }
    if (device.opens && device.transferSize < kProbeSize) {
        way.End("It ends here. The camera's blocks have " + std::to_string(device.transferSize) +
                " bytes, fewer than the " + std::to_string(kProbeSize) + " that are read first.");
    }
    if (!way.IsOver()) {
        rehearsal.wouldDownload = true;
        Download(machine, way);
        way.End("The camera restarts with the image's firmware.");
    }
    return rehearsal;
}

std::vector<std::uint32_t> BlockSizes(const MachineState& machine, std::optional<std::uint32_t> blockSize) {
    if (blockSize) {
        return {*blockSize};
    }
    std::vector<std::uint32_t> sizes;
    for (const DfuDeviceState& device : machine.dfuDevices.devices) {
        if (device.opens && device.transferSize != 0) {
            sizes.push_back(device.transferSize);
        }
    }
    if (sizes.empty()) {
        sizes.assign(kUsualBlockSizes.begin(), kUsualBlockSizes.end());
    }
    return sizes;
}

// "12.6 s", or "2 min 5 s".
std::string Duration(std::uint64_t milliseconds) {
    const std::uint64_t seconds = milliseconds / 1000;
    if (seconds >= 60) {
        return std::to_string(seconds / 60) + " min " + std::to_string(seconds % 60) + " s";
    }
    return std::to_string(seconds) + "." + std::to_string(milliseconds % 1000 / 100) + " s";
}

std::string LineOf(const DownloadEstimate& download) {
    std::string line = "  " + std::to_string(download.blocks) + " blocks of " +
                       std::to_string(download.blockSize) + " bytes";
    if (download.lastBlock != download.blockSize) {
        line += ", the last of " + std::to_string(download.lastBlock);
    }
    line += ": " + std::to_string(download.transfers) + " transfers; waits of " + Duration(download.leastMs) +
            " when the camera is always ready, " + Duration(download.busyOnceMs) +
            " when it is busy once a block, at the most " + Duration(download.mostMs) + "\n";
    return line;
}

}  // namespace

Rehearsal Rehearse(const MachineState& machine, const Judgement& judgement,
                   std::optional<std::uint32_t> blockSize) {
    Rehearsal rehearsal;
    for (std::size_t index = 0; index < machine.cameras.cameras.size(); ++index) {
        rehearsal.cameras.push_back(RehearseCamera(machine, judgement, index));
    }
    for (std::size_t index = 0; index < machine.dfuDevices.devices.size(); ++index) {
        rehearsal.cameras.push_back(RehearseDfuDevice(machine, judgement, index));
    }
    if (machine.image.isReadable && machine.image.size != 0) {
        for (const std::uint32_t size : BlockSizes(machine, blockSize)) {
            rehearsal.downloads.push_back(EstimateDownload(machine.image.size, size));
        }
    }
    return rehearsal;
}

std::string RehearsalText(const MachineState& machine, const Judgement& judgement,
                          const Rehearsal& rehearsal) {
    std::string text = judgement.headline + "\n";
    for (const CameraRehearsal& camera : rehearsal.cameras) {
        text += "\n" + camera.name + "\n  " + camera.device + "\n";
        unsigned number = 0;
        for (const std::string& step : camera.steps) {
            text += "  " + std::to_string(++number) + ". " + step + "\n";
        }
    }
    if (!rehearsal.downloads.empty()) {
        text += "\nThe download of " + machine.image.path + ", " + std::to_string(machine.image.size) +
                " bytes, by the size of the blocks that the camera takes:\n";
        for (const DownloadEstimate& download : rehearsal.downloads) {
            text += LineOf(download);
        }
        text +=
            "  What the transfers and the camera's restart take comes on top. Windows notes event 7011 for a "
            "download\n"
            "  that takes longer than " +
            Duration(kHandlerLimitMs) + ".\n";
    }
    text += "\nNothing was sent but reads.\n";
    return text;
}

std::string RehearsalJson(const MachineState& machine, const Judgement& judgement, const Rehearsal& rehearsal,
                          std::string_view programVersion) {
    JsonWriter json;
    json.BeginObject()
        .Text("program", "VeyraCameraDfuCheck")
        .Text("version", programVersion)
        .Text("verdict", Word(judgement.verdict))
        .Number("exit_code", static_cast<std::uint64_t>(ExitCodeOf(judgement.verdict)))
        .Text("headline", judgement.headline)
        .Text("image", machine.image.path)
        .Text("image_version", machine.image.version)
        .Number("image_size", machine.image.size)
        .BeginList("cameras");
    for (const CameraRehearsal& camera : rehearsal.cameras) {
        json.BeginObject()
            .Text("name", camera.name)
            .Text("device", camera.device)
            .Number("questions", camera.questions)
            .Truth("would_download", camera.wouldDownload)
            .Texts("steps", camera.steps)
            .End();
    }
    json.End().BeginList("downloads");
    for (const DownloadEstimate& download : rehearsal.downloads) {
        json.BeginObject()
            .Number("block_size", download.blockSize)
            .Number("blocks", download.blocks)
            .Number("last_block", download.lastBlock)
            .Number("transfers", download.transfers)
            .Number("least_ms", download.leastMs)
            .Number("busy_once_ms", download.busyOnceMs)
            .Number("most_ms", download.mostMs)
            .End();
    }
    return json.End().End().Finished();
}

}  // namespace check
