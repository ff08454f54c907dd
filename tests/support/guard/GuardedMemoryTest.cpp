#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

bool IsAccessible(const void* address) {
    MEMORY_BASIC_INFORMATION information{};
    return VirtualQuery(address, &information, sizeof information) != 0 && information.State == MEM_COMMIT &&
           information.Protect == PAGE_READWRITE;
}

// Hidden from the compiler, which would refuse the wrong access or leave it out.
volatile std::size_t offset = 0;

}  // namespace

TEST(GuardedMemory, EndsAtAnInaccessiblePage) {
    for (const std::size_t size : {1U, 15U, 16U, 17U, 4080U, 4096U, 4097U, 100'000U}) {
        const auto block = std::make_unique<char[]>(size);
        const std::size_t rounded = (size + 15) / 16 * 16;
        EXPECT_TRUE(IsAccessible(block.get() + rounded - 1)) << size;
        EXPECT_FALSE(IsAccessible(block.get() + rounded)) << size;
    }
}

TEST(GuardedMemory, StaysInaccessibleOnceItIsFreed) {
    auto block = std::make_unique<char[]>(10'000);
    const char* const was = block.get();
    block.reset();
    const auto other = std::make_unique<char[]>(10'000);
    EXPECT_FALSE(IsAccessible(was));
    EXPECT_FALSE(IsAccessible(was + 9'999));
    EXPECT_NE(other.get(), was);
}

TEST(GuardedMemory, IsFilledWithAPatternWhenItIsFresh) {
    const std::unique_ptr<unsigned char[]> block(new unsigned char[3]);
    EXPECT_EQ(block[0], 0xCD);
    EXPECT_EQ(block[2], 0xCD);
}

TEST(GuardedMemory, IsAlignedAsAsked) {
    struct alignas(64) Wide {
        char byte;
    };
    const std::unique_ptr<Wide[]> block(new Wide[3]);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block.get()) % 64, 0U);
    EXPECT_FALSE(IsAccessible(block.get() + 3));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(std::make_unique<char[]>(1).get()) % 16, 0U);
}

TEST(GuardedMemory, ServesManyThreads) {
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([] {
            for (std::size_t size = 0; size < 500; ++size) {
                EXPECT_EQ(std::string(size, 'x').size(), size);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(GuardedMemoryDeathTest, StopsAWriteBehindTheEnd) {
    const auto block = std::make_unique<char[]>(16);
    offset = 16;
    EXPECT_DEATH(block.get()[offset] = 1, "");
}

TEST(GuardedMemoryDeathTest, StopsAReadOfFreedMemory) {
    auto block = std::make_unique<char[]>(16);
    const volatile char* const was = block.get();
    block.reset();
    EXPECT_DEATH(static_cast<void>(was[offset]), "");
}

TEST(GuardedMemoryDeathTest, NoticesAWriteIntoTheSlackWhenTheBlockIsFreed) {
    offset = 5;
    EXPECT_DEATH(
        {
            auto block = std::make_unique<char[]>(5);
            block.get()[offset] = 1;
            block.reset();
        },
        "the bytes behind the block were written");
}

TEST(GuardedMemoryDeathTest, NoticesAWriteBeforeTheBlockWhenItIsFreed) {
    EXPECT_DEATH(
        {
            auto block = std::make_unique<char[]>(16);
            offset = 0;
            block.get()[offset - 9] = 1;
            block.reset();
        },
        "the bytes before the block were written");
}

TEST(GuardedMemoryDeathTest, StopsASecondFree) {
    EXPECT_DEATH(
        {
            const auto block = std::make_unique<char[]>(16);
            char* volatile hidden = block.get();
            const std::unique_ptr<char[]> same(hidden);
        },
        "");
}
