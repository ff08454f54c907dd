#include "dfu/DfuCommand.h"
#include "dfu/DfuProtocol.h"
#include "host/support/CameraEndpoint.h"
#include "tests/lab/camera/CameraDriver.h"
#include "tests/support/FakeClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

// The service's engine, run as its DFU-mode pass runs it, on a device of every combination of traits, in
// virtual time: each update ends, with one of the outcomes that docs/laboratory.md lists.

namespace {

using lab::BusMode;
using lab::CameraSettings;
using lab::DfuTraits;
using lab::VirtualCamera;
using Bytes = std::vector<std::uint8_t>;
using Detach = DfuTraits::Detach;
using Upload = DfuTraits::Upload;
using Manifestation = DfuTraits::Manifestation;
using SetInterface = DfuTraits::SetInterface;

constexpr std::size_t kProbe = 68;
constexpr std::size_t kImageSize = 5000;

// A change of the camera's settings that stands for one value of a trait.
using Change = void (*)(CameraSettings&);

// Two traits that say nothing without the other are one here: what UPLOAD and then a block do, and whether
// the device hears while it writes. Left out is what this download cannot notice: hidesWriteTime (the service
// never looks at the poll time), takesEmptyImage, and addressesBlocks, which takes 65,537 blocks.
const std::vector<std::vector<Change>>& Choices() {
    static const std::vector<std::vector<Change>> choices{
        {[](CameraSettings& s) { s.traits->detach = Detach::Accepted; },
         [](CameraSettings& s) { s.traits->detach = Detach::Restarts; },
         [](CameraSettings& s) { s.traits->detach = Detach::RestartsInDfuMode; },
         [](CameraSettings& s) { s.traits->detach = Detach::Stalls; }},
        {[](CameraSettings& s) { s.traits->upload = Upload::StatusBlock; },
         [](CameraSettings& s) { s.traits->upload = Upload::Flash; },
         [](CameraSettings& s) {
             s.traits->upload = Upload::Flash;
             s.traits->dropsBlocksInUpload = true;
         },
         [](CameraSettings& s) { s.traits->upload = Upload::Stalls; }},
        {[](CameraSettings& s) { s.traits->writesAtOnce = true; },
         [](CameraSettings& s) { s.traits->answersWhileWriting = true; },
         [](CameraSettings& s) { s.traits->isDeafWhileWriting = true; }, [](CameraSettings&) {}},
        {[](CameraSettings& s) { s.traits->manifestation = Manifestation::WaitsForReset; },
         [](CameraSettings& s) { s.traits->manifestation = Manifestation::ResetsItself; },
         [](CameraSettings& s) { s.traits->manifestation = Manifestation::Tolerant; }},
        {[](CameraSettings& s) { s.traits->setInterface = SetInterface::Ignored; },
         [](CameraSettings& s) { s.traits->setInterface = SetInterface::ResetsState; },
         [](CameraSettings& s) { s.traits->setInterface = SetInterface::Stalls; }},
        {[](CameraSettings&) {}, [](CameraSettings& s) { s.manifestsAtOnce = true; }},
        {[](CameraSettings&) {}, [](CameraSettings& s) { s.traits->answersWhileManifesting = true; }},
        {[](CameraSettings&) {}, [](CameraSettings& s) { s.traits->isBusyFirst = true; }},
        {[](CameraSettings&) {}, [](CameraSettings& s) { s.traits->stallsInPlace = true; }},
        {[](CameraSettings&) {}, [](CameraSettings& s) { s.traits->hidesStatus = true; }},
        {[](CameraSettings&) {}, [](CameraSettings& s) { s.traits->hasHidInFront = true; }},
    };
    return choices;
}

// How an update ended: the result, the last request, and what is in the flash.
using Outcome = std::tuple<std::string, std::string, std::string>;

struct Tally {
    unsigned combinations = 0;
    ULONGLONG shortestMs = ~0ULL;
    ULONGLONG longestMs = 0;
};

std::string LastRequest(const CameraEndpoint& endpoint, bool isManifesting) {
    switch (endpoint.Last().request) {
        case dfu::kDetach:
            return "DETACH";
        case dfu::kGetState:
            return "GETSTATE";
        case dfu::kUpload:
            return "UPLOAD";
        case dfu::kDnload:
            return "DNLOAD";
        case dfu::kGetStatus:
            return isManifesting ? "GETSTATUS in manifestation" : "GETSTATUS after a block";
        default:
            return "?";
    }
}

std::string ResultInWords(HRESULT result) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(result));
    return text;
}

class Update {
  public:
    explicit Update(const CameraSettings& settings) : camera_(settings) {
        camera_.Plug(clock_.Now());
        camera_.WriteCommand(lab::test::MakeFrame(0x1E, {1, 0, 0, 0}), clock_.Now());
        clock_.Advance(1000);
        camera_.Advance(clock_.Now());
        EXPECT_EQ(camera_.Mode(), BusMode::Dfu);
    }

    Outcome Run(const Bytes& image) {
        const Bytes before = camera_.Flash();
        const ULONGLONG begin = clock_.Now();
        if (camera_.SetInterface(begin).end != lab::TransferEnd::Ok) {
            return {"not opened", "SET_INTERFACE", "old"};
        }
        const auto endpoint = std::make_shared<CameraEndpoint>(camera_);
        int blocks = 0;
        dfu::DfuCommand command(endpoint, kProbe, nullptr, [&blocks](std::int32_t) { ++blocks; });
        const HRESULT result = command.Update(image.data(), image.size());
        tookMs_ = clock_.Now() - begin;
        const auto sent = static_cast<int>((image.size() - 1) / endpoint->GetMaxTransferSize() + 1);
        const std::string flash = camera_.Flash() == image    ? "image"
                                  : camera_.Flash() == before ? "old"
                                                              : "other";
        return {ResultInWords(result), LastRequest(*endpoint, blocks == sent), flash};
    }

    [[nodiscard]] ULONGLONG TookMs() const { return tookMs_; }

  private:
    test_support::FakeClock clock_;
    VirtualCamera camera_;
    ULONGLONG tookMs_ = 0;
};

// Calls `visit` with a camera of each combination.
template <typename Visit>
void VisitCombinations(const CameraSettings& settings, std::size_t choice, const Visit& visit) {
    if (choice == Choices().size()) {
        visit(settings);
        return;
    }
    for (const Change change : Choices()[choice]) {
        CameraSettings changed = settings;
        change(changed);
        VisitCombinations(changed, choice + 1, visit);
    }
}

std::string Seconds(const Tally& tally) {
    char text[40];
    if (tally.shortestMs == tally.longestMs) {
        std::snprintf(text, sizeof text, "%.1f", static_cast<double>(tally.longestMs) / 1000);
    } else {
        std::snprintf(text, sizeof text, "%.1f to %.1f", static_cast<double>(tally.shortestMs) / 1000,
                      static_cast<double>(tally.longestMs) / 1000);
    }
    return text;
}

// The rows of the document's table without their last column, which tells in words what they mean.
std::vector<std::string> RowsOfTheDocument() {
    std::ifstream document("docs/laboratory.md");
    std::vector<std::string> rows;
    for (std::string line; std::getline(document, line);) {
        if (line.starts_with("| 0x") || line.starts_with("| not opened |")) {
            rows.push_back(line.substr(0, line.find_last_of('|', line.size() - 2) + 1));
        }
    }
    return rows;
}

}  // namespace

TEST(TraitSweep, EveryCombinationEndsInOneOfTheWaysThatTheDocumentLists) {
    CameraSettings settings{.traits = DfuTraits{.isRuntimeDevice = false}, .blockMs = 300, .timeoutMs = 5000};
    settings.manifestMs = 300;
    const Bytes image = lab::test::MakeImage(kImageSize, {5, 10, 3, 0});
    std::map<Outcome, Tally> tallies;
    VisitCombinations(settings, 0, [&](const CameraSettings& camera) {
        Update update(camera);
        Tally& tally = tallies[update.Run(image)];
        ++tally.combinations;
        tally.shortestMs = std::min(tally.shortestMs, update.TookMs());
        tally.longestMs = std::max(tally.longestMs, update.TookMs());
    });
    std::vector<std::string> rows;
    for (const auto& [outcome, tally] : tallies) {
        const auto& [result, last, flash] = outcome;
        rows.push_back("| " + result + " | " + last + " | " + flash + " | " + Seconds(tally) + " | " +
                       std::to_string(tally.combinations) + " |");
    }
    EXPECT_EQ(rows, RowsOfTheDocument());
}
