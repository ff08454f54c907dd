#pragma once

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <mutex>
#include <vector>

#include "lab/rig/bus/Bus.h"
#include "tests/lab/camera/CameraDriver.h"
#include "tests/lab/rig/RecordedEvents.h"

// A bus of cameras that change their modes within milliseconds, and all that it announces and records.
class BusFixture : public ::testing::Test {
  protected:
    static lab::CameraSettings QuickCamera() {
        lab::CameraSettings settings;
        settings.manifestMs = 5;
        settings.detachMs = 5;
        settings.enumerateMs = 5;
        return settings;
    }

    void Begin(std::vector<lab::CameraSettings> cameras) {
        lab::rig::BusSettings settings;
        settings.cameras = std::move(cameras);
        BeginOn(settings);
    }

    // The host's waits move the clock instead of passing.
    void BeginSkippingWaits(const lab::CameraSettings& camera) {
        lab::rig::BusSettings settings;
        settings.skipsWaits = true;
        settings.cameras = {camera};
        BeginOn(settings);
    }

    void BeginOn(const lab::rig::BusSettings& settings) {
        bus_ = std::make_unique<lab::rig::Bus>(
            settings, [this](const nlohmann::json& event) { events_.Add(event); },
            [this](const lab::rig::InterfaceEvent& event) {
                const std::lock_guard lock(mutex_);
                announced_.push_back(event);
            },
            [] { return true; });
    }

    // Begins with one camera and plugs it in.
    void BeginRunning(lab::CameraSettings camera = QuickCamera()) {
        Begin({std::move(camera)});
        bus_->Plug(0);
    }

    // False when the bus has not settled within ten seconds.
    bool Settle() {
        const auto settled = std::make_shared<std::promise<void>>();
        bus_->WhenSettled([settled] { settled->set_value(); });
        return settled->get_future().wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    }

    // What was announced since the last call.
    std::vector<lab::rig::InterfaceEvent> TakeAnnounced() {
        const std::lock_guard lock(mutex_);
        return std::exchange(announced_, {});
    }

    // The answer to the firmware command that makes the camera come back in DFU mode.
    lab::TransferResult SendDfuModeCommand(const lab::rig::Presence& presence) {
        return bus_->WriteCommand(presence, lab::test::MakeFrame(0x1E, {1}));
    }

    // Plugs camera 0 in and brings it into DFU mode.
    lab::rig::Presence BringIntoDfuMode() {
        bus_->Plug(0);
        const auto source = bus_->FindSource(links_.SensorCamera());
        EXPECT_TRUE(source.has_value());
        EXPECT_EQ(SendDfuModeCommand(*source).end, lab::TransferEnd::Ok);
        EXPECT_TRUE(Settle());
        const auto device = bus_->FindDfuDevice(links_.DfuUsb());
        EXPECT_TRUE(device.has_value());
        return device.value_or(lab::rig::Presence{});
    }

    const lab::rig::DeviceLinks links_{0};  // of camera 0
    RecordedEvents events_;
    std::mutex mutex_;
    std::vector<lab::rig::InterfaceEvent> announced_;
    std::unique_ptr<lab::rig::Bus> bus_;
};
