#include "dfu/DfuCommand.h"
#include "discovery/DeviceInterfaceWatcher.h"
#include "discovery/WatchedProducts.h"
#include "host/bench/AddressKeeper.h"
#include "host/bench/AllocationCounter.h"
#include "host/bench/BareDownload.h"
#include "host/bench/BareRefresh.h"
#include "host/bench/EngineDownload.h"
#include "host/bench/PresentLinks.h"
#include "tests/support/ImageFile.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// What the works take in transfers, copies and allocations: numbers that are the same on every machine.

namespace {

using bench::AddressKeeper;
using bench::AllocationCounter;
using bench::Allocations;
using bench::kBlockSize;

using Download = void(const bench::ReadyCamera& camera, const std::vector<std::uint8_t>& image);

struct Cost {
    unsigned transfers = 0;
    Allocations allocations;
};

Cost CostOf(Download& download, std::size_t blocks) {
    const std::vector<std::uint8_t> image = lab::test::MakeImage(blocks * kBlockSize);
    const bench::ReadyCamera camera;
    AllocationCounter::Start();
    download(camera, image);
    const Allocations allocations = AllocationCounter::Stop();
    camera.MustHold(image);
    return {camera.Transfers(), allocations};
}

// Called by name, operator new is not left out by the compiler, as a new expression may be.
TEST(AllocationCounter, CountsEachAllocationBetweenStartAndStop) {
    AllocationCounter::Start();
    void* const first = ::operator new(100);
    void* const second = ::operator new(3000);
    const Allocations allocations = AllocationCounter::Stop();
    void* const third = ::operator new(10000);
    ::operator delete(first);
    ::operator delete(second);
    ::operator delete(third);
    EXPECT_EQ(allocations.count, 2U);
    EXPECT_EQ(allocations.bytes, 3100U);
    EXPECT_EQ(allocations.largest, 3000U);
}

class DownloadOf : public testing::TestWithParam<std::size_t> {};

TEST_P(DownloadOf, TakesTwoTransfersABlockAndSevenMore) {
    const auto expected = static_cast<unsigned>(2 * GetParam() + 7);
    EXPECT_EQ(CostOf(bench::DownloadWithEngine, GetParam()).transfers, expected);
    EXPECT_EQ(CostOf(bench::DownloadBare, GetParam()).transfers, expected);
}

INSTANTIATE_TEST_SUITE_P(Blocks, DownloadOf, testing::Values(1, 100, 1000, 3000));

std::size_t AllocationsOfTheEngineAlone(std::size_t blocks) {
    return CostOf(bench::DownloadWithEngine, blocks).allocations.count -
           CostOf(bench::DownloadBare, blocks).allocations.count;
}

TEST(EngineCosts, NoAllocationForABlock) {
    const std::size_t ofItself = AllocationsOfTheEngineAlone(100);
    EXPECT_LE(ofItself, 4U);
    EXPECT_EQ(AllocationsOfTheEngineAlone(1000), ofItself);
    EXPECT_EQ(AllocationsOfTheEngineAlone(3000), ofItself);
}

TEST(EngineCosts, HandsOverEveryBlockFromInsideTheImage) {
    const std::vector<std::uint8_t> image = lab::test::MakeImage(500 * kBlockSize + 17);
    const bench::StillClock clock;
    const auto endpoint = std::make_shared<AddressKeeper>();
    dfu::DfuCommand command(endpoint, 68, nullptr, {});
    ASSERT_EQ(command.Update(image.data(), image.size()), S_OK);
    EXPECT_EQ(endpoint->First(), image.data());
    EXPECT_EQ(endpoint->InOneRow(), image.size());
}

TEST(EngineCosts, HoldsAnImageFileInMemoryOnce) {
    constexpr std::size_t kSize = std::size_t{8} * 1024 * 1024;
    const test_support::ImageFile file(lab::test::MakeImage(kSize));
    const bench::StillClock clock;
    const auto endpoint = std::make_shared<AddressKeeper>();
    dfu::DfuCommand command(endpoint, 68, nullptr, {});
    AllocationCounter::Start();
    const HRESULT result = command.UpdateFromFile(file.Path().c_str());
    const Allocations allocations = AllocationCounter::Stop();
    ASSERT_EQ(result, S_OK);
    EXPECT_EQ(endpoint->InOneRow(), kSize);
    EXPECT_GE(allocations.largest, kSize);
    EXPECT_LT(allocations.bytes - allocations.largest, 64U * 1024) << "all the others together";
}

Allocations RefreshAllocations(std::size_t links) {
    const bench::PresentLinks present(links);
    DeviceInterfaceWatcher watcher(kDfuDeviceWatcherName, kVendorText, kFirstDfuProductText);
    watcher.AddFilter(kVendorText, kSecondDfuProductText);
    AllocationCounter::Start();
    watcher.Refresh();
    const Allocations allocations = AllocationCounter::Stop();
    EXPECT_EQ(watcher.Devices().size(), bench::PresentLinks::kMatching);
    return allocations;
}

TEST(RefreshCosts, NoAllocationForALink) {
    const std::size_t ofAHundred = RefreshAllocations(100).count;
    EXPECT_LE(ofAHundred, 10U);
    EXPECT_EQ(RefreshAllocations(10000).count, ofAHundred);
}

TEST(RefreshCosts, HoldsTheListInMemoryOnce) {
    const Allocations allocations = RefreshAllocations(10000);
    EXPECT_LT(allocations.bytes - allocations.largest, 4096U) << "all but the list";
}

TEST(RefreshCosts, TheBareWorkFindsTheSameLinks) {
    for (const std::size_t links : {std::size_t{10}, std::size_t{1000}, std::size_t{20000}}) {
        const bench::PresentLinks present(links);
        EXPECT_EQ(bench::RefreshBare(), bench::PresentLinks::kMatching) << links << " links";
    }
}

}  // namespace
