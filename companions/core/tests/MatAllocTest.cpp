#include <TARN/core/Exception.h>
#include <TARN/core/MatAlloc.h>

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <set>
#include <thread>
#include <vector>

namespace {

using tio::MatAlloc;
using Block = std::shared_ptr<char>;

constexpr std::size_t frameBytes = std::size_t{1920} * 1080 * 3;

std::vector<Block> takeBlocks(MatAlloc& allocator, std::size_t count, std::size_t bytes) {
    std::vector<Block> blocks;
    for (std::size_t i = 0; i < count; ++i)
        blocks.push_back(allocator.getBytes(bytes));
    return blocks;
}

TEST(MatAlloc, GlobalAllocatorIsOne) {
    ASSERT_NE(MatAlloc::getGlobalMatAlloc(), nullptr);
    EXPECT_EQ(MatAlloc::getGlobalMatAlloc(), MatAlloc::getGlobalMatAlloc());
}

TEST(MatAlloc, BlocksAreAligned) {
    MatAlloc allocator;
    for (const std::size_t bytes : {0U, 1U, 63U, 65U, 4097U, 100001U}) {
        const Block block = allocator.getBytes(bytes);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block.get()) % 64, 0U) << bytes << " bytes";
    }
}

TEST(MatAlloc, SpareBytesCanBeWritten) {
    MatAlloc allocator;
    for (const std::size_t bytes : {0U, 1U, 64U, 70000U}) {
        for (int use = 0; use < 2; ++use) { // fresh, then recycled
            const Block block = allocator.getBytes(bytes);
            std::memset(block.get(), 0x5A, bytes + 64);
            EXPECT_EQ(block.get()[bytes + 63], 0x5A);
        }
    }
}

TEST(MatAlloc, LiveBlocksDoNotOverlap) {
    MatAlloc allocator;
    const std::vector<Block> blocks = takeBlocks(allocator, 8, 70000);
    for (std::size_t i = 0; i < blocks.size(); ++i)
        std::memset(blocks[i].get(), static_cast<int>(i), 70000 + MatAlloc::spareBytes);
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_EQ(blocks[i].get()[0], static_cast<char>(i));
        EXPECT_EQ(blocks[i].get()[70000 + MatAlloc::spareBytes - 1], static_cast<char>(i));
    }
}

TEST(MatAlloc, StreamOfEqualFramesReusesBlocks) {
    MatAlloc allocator;
    std::set<const char*> places;
    Block previous;
    for (int frame = 0; frame < 100; ++frame) {
        Block current = allocator.getBytes(frameBytes);
        places.insert(current.get());
        previous = std::move(current); // as a player does: one picture shown, the next one made
    }
    EXPECT_EQ(places.size(), 2U);
}

TEST(MatAlloc, OtherSizesGetOtherBlocks) {
    MatAlloc allocator;
    const char* const place = allocator.getBytes(frameBytes).get();
    const std::size_t kept = allocator.cachedBytes();
    const Block larger = allocator.getBytes(frameBytes + 4096);
    EXPECT_NE(larger.get(), place);
    EXPECT_EQ(allocator.cachedBytes(), kept);
}

TEST(MatAlloc, KeepsNoMoreBlocksThanItsBound) {
    MatAlloc allocator;
    takeBlocks(allocator, MatAlloc::maxCachedBlocks + 10, 100000);
    EXPECT_GE(allocator.cachedBytes(), MatAlloc::maxCachedBlocks * 100000);
    EXPECT_LE(allocator.cachedBytes(), MatAlloc::maxCachedBlocks * (100000 + 128));
}

TEST(MatAlloc, KeepsNoMoreBytesThanItsBound) {
    constexpr std::size_t bytes = MatAlloc::maxCachedBytes / 4; // with its spare, three fit
    MatAlloc allocator;
    takeBlocks(allocator, 6, bytes);
    EXPECT_LE(allocator.cachedBytes(), MatAlloc::maxCachedBytes);
    EXPECT_GE(allocator.cachedBytes(), 3 * bytes);
}

TEST(MatAlloc, KeepsNoBlockBeyondTheWholeBound) {
    MatAlloc allocator;
    allocator.getBytes(100000).reset();
    const std::size_t before = allocator.cachedBytes();
    allocator.getBytes(MatAlloc::maxCachedBytes + 1).reset();
    EXPECT_EQ(allocator.cachedBytes(), before) << "what was kept before stays";
}

TEST(MatAlloc, KeepsNoSmallBlocks) {
    MatAlloc allocator;
    takeBlocks(allocator, 4, 1000);
    EXPECT_EQ(allocator.cachedBytes(), 0U);
}

TEST(MatAlloc, OldestBlocksLeaveFirst) {
    MatAlloc allocator;
    takeBlocks(allocator, 1, 200000);
    takeBlocks(allocator, MatAlloc::maxCachedBlocks, 100000);
    const std::size_t before = allocator.cachedBytes();
    const Block block = allocator.getBytes(200000);
    EXPECT_EQ(allocator.cachedBytes(), before) << "the early, larger block is gone";
}

TEST(MatAlloc, TrimGivesEverythingBack) {
    MatAlloc allocator;
    takeBlocks(allocator, 5, frameBytes);
    ASSERT_GE(allocator.cachedBytes(), 5 * frameBytes);
    allocator.trim();
    EXPECT_EQ(allocator.cachedBytes(), 0U);
}

TEST(MatAlloc, BlocksOutliveTheirAllocator) {
    Block survivor;
    {
        MatAlloc allocator;
        survivor = allocator.getBytes(frameBytes);
        takeBlocks(allocator, 2, frameBytes);
    }
    std::memset(survivor.get(), 1, frameBytes);
    EXPECT_EQ(survivor.get()[frameBytes - 1], 1);
    survivor.reset(); // the leak checker sees a block that would stay in a pool without owner
}

TEST(MatAlloc, RefusesImpossibleSizes) {
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
    MatAlloc allocator;
    EXPECT_THROW((void)allocator.getBytes(most), tio::Exception);
    EXPECT_THROW((void)allocator.getBytes(most - MatAlloc::spareBytes), tio::Exception);
    EXPECT_THROW((void)allocator.getBytes(most / 2), tio::Exception);
}

// Each thread marks its blocks and finds its marks again, so a block that two threads hold at once
// is seen; blocks also travel to another thread to be released there.
TEST(MatAlloc, ServesManyThreads) {
    MatAlloc allocator;
    std::vector<int> damaged(4, 0);
    std::vector<Block> released(4);
    std::vector<std::thread> threads;
    for (std::size_t id = 0; id < damaged.size(); ++id) {
        threads.emplace_back([&, id] {
            for (std::size_t round = 0; round < 500; ++round) {
                const Block block = allocator.getBytes(65536 + 64 * (round % 3));
                std::memset(block.get(), static_cast<int>(id + 1), 256);
                std::this_thread::yield();
                damaged[id] += block.get()[255] != static_cast<char>(id + 1);
                released[id] = block;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    released.clear();
    EXPECT_EQ(damaged, std::vector<int>(4, 0));
    EXPECT_LE(allocator.cachedBytes(), MatAlloc::maxCachedBytes);
}

// Only the order of destruction is under test: a crash at exit fails the program.
struct UsesMemoryAtExit {
    Block held = MatAlloc::getGlobalMatAlloc()->getBytes(100000);
    ~UsesMemoryAtExit() { held = MatAlloc::getGlobalMatAlloc()->getBytes(100000); }
};
const UsesMemoryAtExit usesMemoryAtExit;

#if defined(__SANITIZE_ADDRESS__)
#define TARN_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TARN_TEST_ASAN 1
#endif
#endif

#ifdef TARN_TEST_ASAN
TEST(MatAllocDeathTest, SanitizerSeesUseAfterRelease) {
    MatAlloc allocator;
    Block block = allocator.getBytes(frameBytes);
    volatile char* const dangling = block.get();
    block.reset();
    EXPECT_DEATH((void)dangling[frameBytes / 2], "use-after-poison");
}

TEST(MatAllocDeathTest, SanitizerSeesWritesBehindTheSpareBytes) {
    MatAlloc allocator;
    const Block block = allocator.getBytes(frameBytes - 10);
    volatile char* const bytes = block.get();
    EXPECT_DEATH(bytes[frameBytes - 10 + 64] = 1, "AddressSanitizer");
}
#endif

} // namespace
