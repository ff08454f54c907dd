#include "dfu/DfuCommand.h"
#include "discovery/DeviceInterfaceWatcher.h"
#include "discovery/WatchedProducts.h"
#include "host/bench/AddressKeeper.h"
#include "host/bench/AllocationCounter.h"
#include "host/bench/BareDownload.h"
#include "host/bench/BareRefresh.h"
#include "host/bench/EngineDownload.h"
#include "host/bench/PresentLinks.h"

#include <valgrind/callgrind.h>

#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// counted_work NAME N: does one of the works once, with N blocks or links, and prints what it took as one
// JSON object. Under callgrind with --collect-atstart=no, the work's instructions are the ones collected.

namespace {

bench::Allocations Count(const std::function<void()>& work) {
    bench::AllocationCounter::Start();
    CALLGRIND_TOGGLE_COLLECT;
    work();
    CALLGRIND_TOGGLE_COLLECT;
    return bench::AllocationCounter::Stop();
}

void Print(const bench::Allocations& allocations) {
    std::cout << R"("allocations": )" << allocations.count << R"(, "allocated_bytes": )" << allocations.bytes
              << R"(, "largest_allocation": )" << allocations.largest << "}\n";
}

using Download = void(const bench::ReadyCamera& camera, const std::vector<std::uint8_t>& image);

void CountDownload(Download& download, std::size_t blocks) {
    const std::vector<std::uint8_t> image = lab::test::MakeImage(blocks * bench::kBlockSize);
    const bench::ReadyCamera camera;
    const bench::Allocations allocations = Count([&] { download(camera, image); });
    camera.MustHold(image);
    std::cout << R"({"transfers": )" << camera.Transfers() << ", ";
    Print(allocations);
}

void CountRefresh(std::size_t links) {
    const bench::PresentLinks present(links);
    DeviceInterfaceWatcher watcher(kDfuDeviceWatcherName, kVendorText, kFirstDfuProductText);
    watcher.AddFilter(kVendorText, kSecondDfuProductText);
    const bench::Allocations allocations = Count([&] { watcher.Refresh(); });
    bench::PresentLinks::MustBeAllMatching(watcher.Devices().size());
    std::cout << '{';
    Print(allocations);
}

void CountBareRefresh(std::size_t links) {
    const bench::PresentLinks present(links);
    std::size_t found = 0;
    const bench::Allocations allocations = Count([&] { found = bench::RefreshBare(); });
    bench::PresentLinks::MustBeAllMatching(found);
    std::cout << '{';
    Print(allocations);
}

// How many of the image's bytes are handed over from where they lie in it.
void CountBytesInPlace(std::size_t blocks) {
    const std::vector<std::uint8_t> image = lab::test::MakeImage(blocks * bench::kBlockSize);
    const bench::StillClock clock;
    const auto endpoint = std::make_shared<bench::AddressKeeper>();
    dfu::DfuCommand command(endpoint, 0, nullptr, {});
    if (FAILED(command.Update(image.data(), image.size()))) {
        throw std::runtime_error("the engine failed");
    }
    std::cout << R"({"bytes": )" << image.size() << R"(, "in_place": )"
              << (endpoint->First() == image.data() ? endpoint->InOneRow() : 0) << "}\n";
}

void CountWork(const std::string& name, std::size_t size) {
    if (name == "engine") {
        CountDownload(bench::DownloadWithEngine, size);
    } else if (name == "bare-loop") {
        CountDownload(bench::DownloadBare, size);
    } else if (name == "bytes-in-place") {
        CountBytesInPlace(size);
    } else if (name == "refresh") {
        CountRefresh(size);
    } else if (name == "bare-refresh") {
        CountBareRefresh(size);
    } else {
        throw std::invalid_argument("there is no work " + name);
    }
}

}  // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount != 3) {
        std::cerr << "usage: counted_work engine|bare-loop|bytes-in-place|refresh|bare-refresh N\n";
        return 2;
    }
    try {
        CountWork(arguments[1], std::stoul(arguments[2]));
    } catch (const std::exception& error) {
        std::cerr << "counted_work: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
