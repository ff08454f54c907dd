#include <gtest/gtest.h>

#include <windows.h>

#include <future>
#include <thread>
#include <vector>

#include "lab/rig/process/ProcessResources.h"

using lab::rig::ProcessResources;

namespace {

// What is held while so many threads wait.
ProcessResources HeldWithThreads(std::size_t count) {
    std::promise<void> end;
    const std::shared_future<void> ended(end.get_future());
    std::vector<std::thread> threads;
    for (std::size_t index = 0; index < count; ++index) {
        threads.emplace_back([ended] { ended.wait(); });
    }
    const ProcessResources held = ProcessResources::Now();
    end.set_value();
    for (std::thread& thread : threads) {
        thread.join();
    }
    return held;
}

}  // namespace

TEST(ProcessResources, CountHandles) {
    constexpr DWORD kEvents = 50;
    const DWORD before = ProcessResources::Now().handles;
    std::vector<HANDLE> events;
    for (DWORD event = 0; event < kEvents; ++event) {
        events.push_back(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    }
    EXPECT_EQ(ProcessResources::Now().handles, before + kEvents);
    for (const HANDLE event : events) {
        CloseHandle(event);
    }
    EXPECT_EQ(ProcessResources::Now().handles, before);
}

TEST(ProcessResources, CountHandlesOfHighValue) {
    constexpr DWORD kOthers = 3000;
    std::vector<HANDLE> others;
    for (DWORD event = 0; event < kOthers; ++event) {
        others.push_back(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    }
    const HANDLE last = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const DWORD before = ProcessResources::Now().handles;
    for (const HANDLE event : others) {
        CloseHandle(event);
    }
    EXPECT_EQ(ProcessResources::Now().handles, before - kOthers);
    CloseHandle(last);
}

TEST(ProcessResources, CountThreads) {
    const DWORD before = ProcessResources::Now().threads;
    std::promise<void> end;
    std::thread thread([ended = end.get_future()] { ended.wait(); });
    EXPECT_EQ(ProcessResources::Now().threads, before + 1);
    end.set_value();
    thread.join();
}

TEST(ProcessResources, TellCommittedMemory) {
    constexpr std::size_t kSize = std::size_t{64} << 20;
    const std::uint64_t before = ProcessResources::Now().privateBytes;
    void* const memory = VirtualAlloc(nullptr, kSize, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    ASSERT_NE(memory, nullptr);
    EXPECT_GE(ProcessResources::Now().privateBytes, before + kSize);
    VirtualFree(memory, 0, MEM_RELEASE);
}

TEST(ProcessResources, TellTheThreadsBlocksApart) {
    constexpr std::size_t kSize = std::size_t{1} << 20;
    const ProcessResources before = ProcessResources::Now();
    EXPECT_GT(before.threadBlockBytes, 0U);
    EXPECT_LT(before.threadBlockBytes, before.privateBytes);
    void* const memory = VirtualAlloc(nullptr, kSize, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(ProcessResources::Now().threadBlockBytes, before.threadBlockBytes);
    VirtualFree(memory, 0, MEM_RELEASE);
}

// The next threads take the blocks of those that have ended.
TEST(ProcessResources, ThreadsBlocksStayForTheNextThreads) {
    constexpr std::size_t kThreads = 12;
    const std::uint64_t before = ProcessResources::Now().threadBlockBytes;
    const std::uint64_t crowded = HeldWithThreads(kThreads).threadBlockBytes;
    EXPECT_GT(crowded, before);
    EXPECT_EQ(ProcessResources::Now().threadBlockBytes, crowded);
    EXPECT_EQ(HeldWithThreads(kThreads).threadBlockBytes, crowded);
}
