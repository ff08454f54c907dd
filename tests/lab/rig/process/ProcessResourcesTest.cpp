#include <gtest/gtest.h>

#include <windows.h>

#include <future>
#include <thread>
#include <vector>

#include "lab/rig/process/ProcessResources.h"

using lab::rig::ProcessResources;

TEST(ProcessResources, CountHandles) {
    constexpr int kEvents = 50;
    const int before = ProcessResources().at("handles");
    std::vector<HANDLE> events;
    for (int event = 0; event < kEvents; ++event) {
        events.push_back(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    }
    EXPECT_EQ(ProcessResources().at("handles").get<int>(), before + kEvents);
    for (const HANDLE event : events) {
        CloseHandle(event);
    }
    EXPECT_EQ(ProcessResources().at("handles").get<int>(), before);
}

TEST(ProcessResources, CountHandlesOfHighValue) {
    constexpr int kOthers = 3000;
    std::vector<HANDLE> others;
    for (int event = 0; event < kOthers; ++event) {
        others.push_back(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    }
    const HANDLE last = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const int before = ProcessResources().at("handles");
    for (const HANDLE event : others) {
        CloseHandle(event);
    }
    EXPECT_EQ(ProcessResources().at("handles").get<int>(), before - kOthers);
    CloseHandle(last);
}

TEST(ProcessResources, CountThreads) {
    const int before = ProcessResources().at("threads");
    std::promise<void> end;
    std::thread thread([ended = end.get_future()] { ended.wait(); });
    EXPECT_EQ(ProcessResources().at("threads").get<int>(), before + 1);
    end.set_value();
    thread.join();
}

TEST(ProcessResources, TellCommittedMemory) {
    constexpr std::size_t kSize = std::size_t{64} << 20;
    const std::uint64_t before = ProcessResources().at("private_bytes");
    void* const memory = VirtualAlloc(nullptr, kSize, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    ASSERT_NE(memory, nullptr);
    EXPECT_GE(ProcessResources().at("private_bytes").get<std::uint64_t>(), before + kSize);
    VirtualFree(memory, 0, MEM_RELEASE);
}
