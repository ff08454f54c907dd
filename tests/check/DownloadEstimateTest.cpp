#include "check/DownloadEstimate.h"

#include "dfu/DfuCommand.h"
#include "tests/dfu/FakeUsbControlEndpoint.h"
#include "tests/support/FakeClock.h"

#include <gtest/gtest.h>

#include <vector>

// The engine runs on a camera that it knows nothing of, in time that passes only when it waits.

namespace {

using check::DownloadEstimate;
using check::EstimateDownload;
using test_support::FakeClock;

constexpr std::size_t kProbeSize = 68;
constexpr std::uint8_t kDownloadIdle = 5;
constexpr std::uint8_t kManifestWaitReset = 8;
constexpr std::uint8_t kBusy = 4;

// A camera that is busy at so many looks at each block and at its end.
class BusyCamera {
  public:
    BusyCamera(std::uint16_t blockSize, std::size_t imageSize, unsigned blockLooks, unsigned endLooks)
        : endpoint_(std::make_shared<FakeUsbControlEndpoint>(blockSize)),
          blocks_((imageSize + blockSize - 1) / blockSize),
          blockLooks_(blockLooks),
          endLooks_(endLooks) {
        endpoint_->AnswerGetStatus([this] { return Answer(); });
    }

    [[nodiscard]] const std::shared_ptr<FakeUsbControlEndpoint>& Endpoint() const { return endpoint_; }

  private:
    FakeUsbControlEndpoint::StatusAnswer Answer() {
        const bool isEnd = endpoint_->BlockNumbers().size() > blocks_;
        if (endpoint_->BlockNumbers().size() != lookedAt_) {
            lookedAt_ = endpoint_->BlockNumbers().size();
            looks_ = 0;
        }
        const bool isBusy = looks_++ < (isEnd ? endLooks_ : blockLooks_);
        return {S_OK, 0, isBusy ? kBusy : isEnd ? kManifestWaitReset : kDownloadIdle};
    }

    std::shared_ptr<FakeUsbControlEndpoint> endpoint_;
    std::size_t blocks_;
    unsigned blockLooks_;
    unsigned endLooks_;
    std::size_t lookedAt_ = 0;
    unsigned looks_ = 0;
};

struct Downloaded {
    HRESULT result;
    std::uint64_t transfers;
    std::uint64_t waitedMs;
};

Downloaded Download(std::uint16_t blockSize, std::size_t imageSize, unsigned blockLooks, unsigned endLooks) {
    const FakeClock clock;
    const BusyCamera camera(blockSize, imageSize, blockLooks, endLooks);
    dfu::DfuCommand command(camera.Endpoint(), kProbeSize, nullptr, {});
    const std::vector<std::uint8_t> image(imageSize);
    const HRESULT result = command.Update(image.data(), image.size());
    return {result, camera.Endpoint()->Requests().size(), clock.Elapsed()};
}

}  // namespace

TEST(DownloadEstimate, CountsBlocksAndWhatIsLeft) {
    const DownloadEstimate estimate = EstimateDownload(262161, 1024);
    EXPECT_EQ(estimate.blockSize, 1024U);
    EXPECT_EQ(estimate.blocks, 257U);
    EXPECT_EQ(estimate.lastBlock, 17U);
    EXPECT_EQ(estimate.transfers, 521U);
    EXPECT_EQ(estimate.leastMs, 0U);
    EXPECT_EQ(estimate.busyOnceMs, 51600U);
    EXPECT_EQ(estimate.mostMs, 257U * 4800 + 29800);
    EXPECT_EQ(EstimateDownload(262144, 1024).lastBlock, 1024U);
    EXPECT_EQ(EstimateDownload(1, 65535).blocks, 1U);
    EXPECT_EQ(EstimateDownload(0, 1024).blocks, 0U);
}

TEST(DownloadEstimate, AgreesWithTheEngine) {
    for (const std::size_t imageSize : {68U, 1000U, 1024U, 5000U}) {
        for (const std::uint16_t blockSize : {std::uint16_t{68}, std::uint16_t{1024}, std::uint16_t{4096}}) {
            const DownloadEstimate estimate = EstimateDownload(imageSize, blockSize);
            const Downloaded ready = Download(blockSize, imageSize, 0, 0);
            EXPECT_EQ(ready.result, S_OK);
            EXPECT_EQ(ready.transfers, estimate.transfers);
            EXPECT_EQ(ready.waitedMs, estimate.leastMs);
            const Downloaded busyOnce = Download(blockSize, imageSize, 1, 1);
            EXPECT_EQ(busyOnce.result, S_OK);
            EXPECT_EQ(busyOnce.waitedMs, estimate.busyOnceMs);
            const Downloaded longest = Download(blockSize, imageSize, 24, 149);
            EXPECT_EQ(longest.result, S_OK);
            EXPECT_EQ(longest.waitedMs, estimate.mostMs);
        }
    }
}

TEST(DownloadEstimate, TheMostIsTheMost) {
    EXPECT_EQ(Download(1024, 3000, 25, 0).result, E_FAIL);
    EXPECT_EQ(Download(1024, 3000, 0, 150).result, E_FAIL);
}
