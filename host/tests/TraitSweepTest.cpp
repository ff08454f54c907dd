#include "dfu/DfuCommand.h"
#include "host/support/CameraEndpoint.h"
#include "tests/lab/camera/CameraDriver.h"
#include "tests/support/FakeClock.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

// The service's engine, run as its DFU-mode pass runs it, on a device of every combination of traits, in
// virtual time: each update ends, with one of the outcomes below.

namespace {

using lab::BusMode;
using lab::CameraSettings;
using lab::DfuTraits;
using lab::VirtualCamera;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kProbe = 68;
constexpr std::size_t kImageSize = 5000;

// Result, flash, time: how many of the combinations. 400 and 1400 ms: busy first, or waiting for dfuMANIFEST
// to end between two looks at it; 1000 ms: a block's 200 ms for each of five.
constexpr char kWays[] =
    "0x80004005, flash image, 30000 ms: 144\n"  // written; then the device is not where it is waited for
    "0x80004005, flash image, 31000 ms: 144\n"  // the same, busy first
    "0x80004005, flash old, 400 ms: 48\n"       // fails when it is asked while it manifests
    "0x80004005, flash old, 1400 ms: 48\n"      //
    "0x80004005, flash old, 5000 ms: 384\n"     // takes blocks in dfuUPLOAD-IDLE, drops them and stays there
    "0x8007001F, flash old, 0 ms: 3456\n"       // refuses DETACH, the probe or the first block
    "0x800701B1, flash old, 0 ms: 2304\n"       // restarts at DETACH
    "0x00000000, flash image, 0 ms: 128\n"      // updated
    "0x00000000, flash image, 400 ms: 64\n"     //
    "0x00000000, flash image, 1000 ms: 128\n"   //
    "0x00000000, flash image, 1400 ms: 64\n";   //

std::vector<CameraSettings> EveryCombination() {
    std::vector<CameraSettings> all{CameraSettings{}};
    all[0].traits =
        DfuTraits{.isRuntimeDevice = false, .answersWhileWriting = true, .answersWhileManifesting = true};
    const auto spread = [&all](auto... changes) {
        std::vector<CameraSettings> spread;
        for (const CameraSettings& settings : all) {
            (changes(spread.emplace_back(settings)), ...);
        }
        all = std::move(spread);
    };
    const auto flag = [&spread](bool DfuTraits::*trait) {
        spread([](CameraSettings&) {},
               [trait](CameraSettings& s) { (*s.traits).*trait = !((*s.traits).*trait); });
    };
    using Detach = DfuTraits::Detach;
    using Upload = DfuTraits::Upload;
    using Manifestation = DfuTraits::Manifestation;
    spread([](CameraSettings& s) { s.traits->detach = Detach::Accepted; },
           [](CameraSettings& s) { s.traits->detach = Detach::Restarts; },
           [](CameraSettings& s) { s.traits->detach = Detach::Stalls; });
    spread([](CameraSettings& s) { s.traits->upload = Upload::StatusBlock; },
           [](CameraSettings& s) { s.traits->upload = Upload::Flash; },
           [](CameraSettings& s) { s.traits->upload = Upload::Stalls; });
    spread([](CameraSettings& s) { s.traits->manifestation = Manifestation::WaitsForReset; },
           [](CameraSettings& s) { s.traits->manifestation = Manifestation::ResetsItself; },
           [](CameraSettings& s) { s.traits->manifestation = Manifestation::Tolerant; });
    spread([](CameraSettings&) {}, [](CameraSettings& s) { s.manifestsAtOnce = true; });
    spread([](CameraSettings&) {},
           [](CameraSettings& s) { s.traits->setInterface = DfuTraits::SetInterface::ResetsState; });
    for (const auto trait :
         {&DfuTraits::dropsBlocksInUpload, &DfuTraits::isBusyFirst, &DfuTraits::stallsInPlace,
          &DfuTraits::takesEmptyImage, &DfuTraits::addressesBlocks, &DfuTraits::answersWhileManifesting}) {
        flag(trait);
    }
    return all;
}

// The result, what is in the flash, and the virtual milliseconds.
using Outcome = std::tuple<HRESULT, std::string, ULONGLONG>;

Outcome Update(const CameraSettings& settings, const Bytes& image) {
    test_support::FakeClock clock;
    VirtualCamera camera(settings);
    camera.Plug(clock.Now());
    camera.WriteCommand(lab::test::MakeFrame(0x1E, {1, 0, 0, 0}), clock.Now());
    clock.Advance(1000);
    camera.Advance(clock.Now());
    EXPECT_EQ(camera.Mode(), BusMode::Dfu);
    const Bytes before = camera.Flash();
    camera.SetInterface(clock.Now());
    const ULONGLONG begin = clock.Now();
    dfu::DfuCommand command(std::make_shared<CameraEndpoint>(camera), kProbe, nullptr, {});
    const HRESULT result = command.Update(image.data(), image.size());
    const std::string flash = camera.Flash() == image ? "image" : camera.Flash() == before ? "old" : "other";
    return {result, flash, clock.Now() - begin};
}

std::string InWords(const std::map<Outcome, int>& outcomes) {
    std::string words;
    for (const auto& [outcome, count] : outcomes) {
        const auto& [result, flash, tookMs] = outcome;
        char line[80];
        std::snprintf(line, sizeof line, "0x%08X, flash %s, %u ms: %d\n", static_cast<unsigned>(result),
                      flash.c_str(), static_cast<unsigned>(tookMs), count);
        words += line;
    }
    return words;
}

}  // namespace

TEST(TraitSweep, EveryCombinationEndsInOneOfTheseWays) {
    const Bytes image = lab::test::MakeImage(kImageSize, {5, 10, 3, 0});
    std::map<Outcome, int> outcomes;
    const auto combinations = EveryCombination();
    for (const CameraSettings& settings : combinations) {
        ++outcomes[Update(settings, image)];
    }
    EXPECT_EQ(combinations.size(), 6912U);
    EXPECT_EQ(InWords(outcomes), kWays);
}
