#include "tests/support/guard/GuardedMemory.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace test_support {
namespace {

constexpr std::size_t kPage = 4096;
// Address space for the blocks of a whole run; none of it is used twice.
constexpr std::size_t kRegionSize = std::size_t{64} << 30;
// Each guarded block is a mapping of its own, of which a process may have some 65,000.
constexpr unsigned kMostGuardedBlocks = 20'000;
constexpr std::uint64_t kMark = 0x6B61'6D64'7261'7567;
constexpr std::uint64_t kPlainMark = 0x6E69'616C'7061'7567;
constexpr unsigned char kFresh = 0xCD;
constexpr unsigned char kSlack = 0xFD;

// Stands just before a block.
struct Header {
    std::uint64_t mark;
    std::size_t size;
};

constexpr std::size_t RoundedUp(std::size_t value, std::size_t unit) {
    return (value + unit - 1) / unit * unit;
}

std::atomic<unsigned> guardedBlocks{0};

std::byte* Region() {
    static std::byte* const region =
        static_cast<std::byte*>(VirtualAlloc(nullptr, kRegionSize, MEM_RESERVE, PAGE_NOACCESS));
    return region;
}

[[noreturn]] void Stop(const char* complaint, const void* block) {
    std::fprintf(stderr, "guarded memory: %s (block %p)\n", complaint, block);
    std::fflush(stderr);
    std::abort();
}

std::byte* PageOf(std::byte* address) {
    return address - reinterpret_cast<std::uintptr_t>(address) % kPage;
}

std::byte* NewPages(std::size_t size) {
    static std::atomic<std::size_t> used{0};
    const std::size_t offset = used.fetch_add(size + kPage);
    if (Region() == nullptr || offset + size + kPage > kRegionSize) {
        return nullptr;
    }
    return static_cast<std::byte*>(VirtualAlloc(Region() + offset, size, MEM_COMMIT, PAGE_READWRITE));
}

void* Marked(std::byte* block, const Header& header) {
    std::memcpy(block - sizeof header, &header, sizeof header);
    return block;
}

void* AllocatePlain(std::size_t size) {
    auto* const memory = static_cast<std::byte*>(std::malloc(sizeof(Header) + size));
    return memory == nullptr ? nullptr : Marked(memory + sizeof(Header), {kPlainMark, size});
}

}  // namespace

void* GuardedMemory::Allocate(std::size_t size, std::size_t alignment) noexcept {
    if (size > kRegionSize / 2) {
        return nullptr;
    }
    if (guardedBlocks.load() >= kMostGuardedBlocks && alignment <= sizeof(Header)) {
        return AllocatePlain(size);
    }
    const std::size_t blockSize = RoundedUp(size, alignment);
    const std::size_t pages = RoundedUp(blockSize + std::max(alignment, sizeof(Header)), kPage);
    std::byte* const begin = NewPages(pages);
    if (begin == nullptr) {
        return nullptr;
    }
    ++guardedBlocks;
    std::byte* const block = begin + pages - blockSize;
    std::memset(block, kFresh, size);
    std::memset(block + size, kSlack, blockSize - size);
    return Marked(block, {kMark, size});
}

void GuardedMemory::Free(void* block) noexcept {
    if (block == nullptr) {
        return;
    }
    auto* const bytes = static_cast<std::byte*>(block);
    Header header{};
    std::memcpy(&header, bytes - sizeof header, sizeof header);
    if (header.mark == kPlainMark) {
        std::free(bytes - sizeof header);
        return;
    }
    if (header.mark != kMark) {
        Stop("the bytes before the block were written, or it is none", block);
    }
    std::byte* const end = PageOf(bytes + header.size + kPage - 1);
    if (std::any_of(bytes + header.size, end, [](std::byte slack) { return slack != std::byte{kSlack}; })) {
        Stop("the bytes behind the block were written", block);
    }
    std::byte* const begin = PageOf(bytes - sizeof header);
    VirtualFree(begin, static_cast<std::size_t>(end - begin), MEM_DECOMMIT);
    --guardedBlocks;
}

}  // namespace test_support
