#include "dfu/DfuCommand.h"
#include "host/support/CameraEndpoint.h"
#include "tests/lab/camera/CameraDriver.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

namespace {

// Two cameras updated at once, each with an engine, an endpoint and a thread of its own: they share nothing.
TEST(EngineThreads, TwoUpdatesAtOnceShareNothing) {
    constexpr int kThreads = 4;
    std::vector<HRESULT> results(kThreads, E_FAIL);
    std::vector<lab::VirtualCamera> cameras;
    for (int number = 0; number < kThreads; ++number) {
        cameras.emplace_back(
            lab::CameraSettings{.manifestMs = 1, .resetMs = 60'000, .detachMs = 0, .enumerateMs = 0});
    }
    const auto image = lab::test::MakeImage(20000);
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < cameras.size(); ++number) {
        threads.emplace_back([&, number] {
            lab::VirtualCamera& camera = cameras[number];
            camera.Plug(GetTickCount64());
            camera.WriteCommand(lab::test::MakeFrame(0x1E, {1, 0, 0, 0}), GetTickCount64());
            camera.Advance(GetTickCount64());
            dfu::DfuCommand command(std::make_shared<CameraEndpoint>(camera), 68, nullptr, {});
            results[number] = command.Update(image.data(), image.size());
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t number = 0; number < cameras.size(); ++number) {
        EXPECT_EQ(results[number], S_OK);
        EXPECT_EQ(cameras[number].Flash(), image);
    }
}

}  // namespace
