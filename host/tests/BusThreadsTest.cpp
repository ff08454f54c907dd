#include "lab/rig/bus/Bus.h"
#include "tests/lab/camera/CameraDriver.h"
#include "tests/lab/rig/RecordedEvents.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// The rig's bus with every thread of the service's process upon it at once: one plugs and unplugs, one sends
// firmware commands, one transfers in DFU mode, one asks, lists and waits. What they get differs from run to
// run; what must hold is that nothing races, nothing hangs, and the bus is whole afterwards.

namespace {

using lab::rig::Bus;
using lab::rig::InterfaceEvent;
using lab::rig::SourceKind;

constexpr int kRounds = 300;

TEST(BusThreads, ShareTheCamerasWithoutARace) {
    lab::rig::BusSettings settings;
    settings.cameras.resize(2);
    for (lab::CameraSettings& camera : settings.cameras) {
        camera.detachMs = 1;
        camera.enumerateMs = 1;
        camera.manifestMs = 1;
    }
    using Notices = lab::rig::Departure::Notices;
    settings.departures = {{.notices = Notices::WhileTheArrivalIsHandled},
                           {.notices = Notices::AfterTheArrivalIsHandled}};
    RecordedEvents events;
    std::atomic<int> announced = 0;
    std::atomic<bool> isOver = false;
    Bus bus(
        settings, [&events](const nlohmann::json& event) { events.Add(event); },
        [&announced](const InterfaceEvent&) { ++announced; }, [] { return true; });

    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        for (int round = 0; round < kRounds; ++round) {
            for (const std::size_t camera : {0U, 1U}) {
                try {
                    round % 2 == 0 ? bus.Plug(camera) : bus.Unplug(camera);
                } catch (const std::runtime_error&) {
                    // It is where it was to go: another thread sent it there.
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        isOver = true;
    });
    threads.emplace_back([&] {
        const auto frame = lab::test::MakeFrame(0x1E, {1});
        while (!isOver) {
            for (const std::wstring& link : bus.SourceLinks(SourceKind::SensorCamera)) {
                if (const auto source = bus.FindSource(link)) {
                    bus.WriteCommand(*source, frame);
                    std::vector<std::uint8_t> reply(1024);
                    bus.ReadReply(*source, reply);
                }
            }
            std::this_thread::yield();
        }
    });
    threads.emplace_back([&] {
        const lab::SetupPacket dnload{.requestType = 0x21, .request = 1, .length = 64};
        const lab::SetupPacket getStatus{.requestType = 0xA1, .request = 3, .length = 6};
        std::array<std::uint8_t, 64> block{};
        while (!isOver) {
            for (const wchar_t* const number : {L"0001", L"0002"}) {
                const std::wstring link = std::wstring(LR"(\\?\USB#VID_2F1A&PID_7E01#KV400)") + number +
                                          L"#{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
                if (const auto device = bus.FindDfuDevice(link)) {
                    bus.ControlTransfer(*device, dnload, block);
                    bus.ControlTransfer(*device, getStatus, block);
                    static_cast<void>(bus.Interfaces(*device));
                    bus.ReadDescriptor(*device, 2, 0, block);
                }
            }
            std::this_thread::yield();
        }
    });
    threads.emplace_back([&] {
        while (!isOver) {
            static_cast<void>(bus.State(0));
            static_cast<void>(bus.Flash(1));
            static_cast<void>(bus.PresentLinks(GUID{}));
            bus.ServiceWaits(lab::rig::DeviceLinks(0).DfuUsb());
            bus.Wake();
            std::this_thread::yield();
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_GT(announced, 0);
    EXPECT_FALSE(events.Named("camera").empty());
    EXPECT_NO_THROW(static_cast<void>(bus.State(0)));
}

}  // namespace
