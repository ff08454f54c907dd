#include "discovery/DeviceInterfaceWatcher.h"
#include "discovery/WatchedProducts.h"
#include "host/bench/BareDownload.h"
#include "host/bench/BareRefresh.h"
#include "host/bench/EngineDownload.h"
#include "host/bench/PresentLinks.h"
#include "tests/support/ProcessorTime.h"

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

// How long the engine takes beside its bare transfers, and a refresh beside its bare work; the argument is
// the number of blocks, or of links. The counter "times_bare" of Engine and Refresh is the relation of the
// two. It is taken from pairs: each round does the bare work too, just before and outside the benchmark's own
// time, and the median of the rounds' relations counts. Neighbours in time find the machine in one state, so
// that the counter is steady where either time is not.

namespace {

constexpr std::int64_t kMostBlocks = 65000;

// What a work takes on the processor, in nanoseconds.
double TimeOf(const std::function<void()>& work) {
    const std::chrono::nanoseconds begin = test_support::ProcessorTime();
    work();
    return static_cast<double>((test_support::ProcessorTime() - begin).count());
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::vector<std::uint8_t> Image(std::int64_t blocks) {
    return lab::test::MakeImage(static_cast<std::size_t>(blocks) * bench::kBlockSize);
}

double TimeOfBareLoop(const std::vector<std::uint8_t>& image) {
    const bench::ReadyCamera camera;
    const double time = TimeOf([&] { bench::DownloadBare(camera, image); });
    camera.MustHold(image);
    return time;
}

void BareLoop(benchmark::State& state) {
    const std::vector<std::uint8_t> image = Image(state.range(0));
    for ([[maybe_unused]] const auto& each : state) {
        state.PauseTiming();
        {
            const bench::ReadyCamera camera;
            state.ResumeTiming();
            bench::DownloadBare(camera, image);
            state.PauseTiming();
            camera.MustHold(image);
        }
        state.ResumeTiming();
    }
}

// The same steps around both works of a pair: what one leaves in the caches, the other finds.
void Engine(benchmark::State& state) {
    const std::vector<std::uint8_t> image = Image(state.range(0));
    std::vector<double> relations;
    for ([[maybe_unused]] const auto& each : state) {
        state.PauseTiming();
        const double bare = TimeOfBareLoop(image);
        {
            const bench::ReadyCamera camera;
            state.ResumeTiming();
            const double own = TimeOf([&] { bench::DownloadWithEngine(camera, image); });
            state.PauseTiming();
            camera.MustHold(image);
            relations.push_back(own / bare);
        }
        state.ResumeTiming();
    }
    state.counters["times_bare"] = Median(relations);
}

void BareRefresh(benchmark::State& state) {
    const bench::PresentLinks present(static_cast<std::size_t>(state.range(0)));
    for ([[maybe_unused]] const auto& each : state) {
        bench::PresentLinks::MustBeAllMatching(bench::RefreshBare());
    }
}

// Short lists are refreshed several times a round, so that looking at the clock does not count.
void Refresh(benchmark::State& state) {
    constexpr std::int64_t kLinksOfARound = 1000;
    const bench::PresentLinks present(static_cast<std::size_t>(state.range(0)));
    const std::int64_t times = std::max<std::int64_t>(1, kLinksOfARound / state.range(0));
    DeviceInterfaceWatcher watcher(kDfuDeviceWatcherName, kVendorText, kFirstDfuProductText);
    watcher.AddFilter(kVendorText, kSecondDfuProductText);
    std::vector<double> relations;
    while (state.KeepRunningBatch(times)) {
        state.PauseTiming();
        const double bare = TimeOf([times] {
            for (std::int64_t count = 0; count < times; ++count) {
                bench::PresentLinks::MustBeAllMatching(bench::RefreshBare());
            }
        });
        state.ResumeTiming();
        const double own = TimeOf([times, &watcher] {
            for (std::int64_t count = 0; count < times; ++count) {
                watcher.Refresh();
            }
        });
        relations.push_back(own / bare);
    }
    bench::PresentLinks::MustBeAllMatching(watcher.Devices().size());
    state.counters["times_bare"] = Median(relations);
}

BENCHMARK(Engine)->Arg(1000)->Arg(10000)->Arg(kMostBlocks)->Unit(benchmark::kMicrosecond);
BENCHMARK(BareLoop)->Arg(1000)->Arg(10000)->Arg(kMostBlocks)->Unit(benchmark::kMicrosecond);
BENCHMARK(Refresh)->Arg(10)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BareRefresh)->Arg(10)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

// Freed memory is kept, and the largest download is made once, so that no round that is measured pays for
// pages new from the system.
void WarmUp() {
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, -1);
    TimeOfBareLoop(Image(kMostBlocks));
}

}  // namespace

int main(int argumentCount, char** arguments) {
    benchmark::Initialize(&argumentCount, arguments);
    if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) {
        return 2;
    }
    WarmUp();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
