// What reading costs beside decoding: objects, copies and pages for each picture, once it runs.
//
// A program of its own, because it replaces operator new.

#include "support/ClipMaker.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/MatAlloc.h>
#include <TARN/videoio.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <sys/resource.h>

namespace {

std::atomic<int64_t> allocations{0};

void* allocate(std::size_t size) {
    ++allocations;
    if (void* const block = std::malloc(size == 0 ? 1 : size))
        return block;
    throw std::bad_alloc();
}

} // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete[](void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    std::free(block);
}

namespace tio::ffmpeg {
namespace {

constexpr int64_t warmUp = 50;
constexpr int64_t measured = 100;

struct Cost {
    int64_t allocations;
    int64_t freshPages;
};

int64_t pageFaults() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

/// What `measured` calls cost when `warmUp` others went before.
Cost costOf(const std::function<void()>& readOne) {
    for (int64_t i = 0; i < warmUp; ++i)
        readOne();
    const int64_t allocatedBefore = allocations;
    const int64_t faultsBefore = pageFaults();
    for (int64_t i = 0; i < measured; ++i)
        readOne();
    return {allocations - allocatedBefore, pageFaults() - faultsBefore};
}

/// Decodes and converts nothing.
class SkippingDecoder : public PacketDecoder {
public:
    using PacketDecoder::receiveFrame;

protected:
    void onCodecOpened() override {}
};

class SteadyStateTest : public ::testing::Test {
protected:
    std::shared_ptr<InputFormatContext> openClip(bool withAudio = false) {
        test::ClipPlan plan;
        plan.width = 640;
        plan.height = 360;
        plan.frameCount = static_cast<int>(warmUp + measured) + 30;
        plan.audio = withAudio;
        const std::string path = folder.file("clip.mp4");
        test::makeClip(path, plan);
        return std::make_shared<InputFormatContext>(path);
    }

    test::TemporaryFolder folder;
    test::LogCapture log;
};

// A packet and a picture are an object each, and every plane is a block that knows its owner.
TEST_F(SteadyStateTest, ARgbPictureTakesThreeAllocations) {
    VideoStreamDecoder video(openClip(), PixelFormat::RGB);
    const Cost cost = costOf([&] { ASSERT_TRUE(video.readNextFrame().frame); });
    EXPECT_LE(cost.allocations, 3 * measured);
}

TEST_F(SteadyStateTest, AnNv12PictureTakesFourAllocations) {
    VideoStreamDecoder video(openClip(), PixelFormat::NV12);
    const Cost cost = costOf([&] { ASSERT_TRUE(video.readNextFrame().frame); });
    EXPECT_LE(cost.allocations, 4 * measured);
}

TEST_F(SteadyStateTest, ASkippedPictureTakesNoMoreThanItsPacket) {
    auto input = openClip();
    InputStream stream(input, 0);
    SkippingDecoder decoder;
    const Cost cost = costOf([&] {
        auto packet = stream.getNextPacket();
        ASSERT_TRUE(packet);
        decoder.offerPacket(std::move(packet));
        decoder.receiveFrame();
    });
    EXPECT_LE(cost.allocations, measured);
}

TEST_F(SteadyStateTest, ABlockOfSoundTakesTwoAllocations) {
    AudioStreamDecoder sound(openClip(true));
    const Cost cost = costOf([&] { ASSERT_NE(sound.readNextFrame().samples.count, 0); });
    EXPECT_LE(cost.allocations, 2 * measured);
}

// A picture of 640 by 360 has 169 pages as RGB; memory that came fresh from the system would have
// to be mapped page by page.
TEST_F(SteadyStateTest, PicturesComeInMemoryThatWasUsedBefore) {
    VideoStreamDecoder video(openClip(), PixelFormat::RGB);
    const Cost cost = costOf([&] { ASSERT_TRUE(video.readNextFrame().frame); });
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers map pages of their own";
#endif
    EXPECT_LT(cost.freshPages, measured);
}

TEST_F(SteadyStateTest, NoMoreMemoryIsKeptThanForOnePicture) {
    VideoStreamDecoder video(openClip(), PixelFormat::RGB);
    for (int i = 0; i < 2; ++i) // the decoder keeps the latest
        ASSERT_TRUE(video.readNextFrame().frame);
    const std::size_t kept = MatAlloc::getGlobalMatAlloc()->cachedBytes();
    for (int64_t i = 0; i < measured; ++i)
        ASSERT_TRUE(video.readNextFrame().frame);
    EXPECT_EQ(MatAlloc::getGlobalMatAlloc()->cachedBytes(), kept);
}

} // namespace
} // namespace tio::ffmpeg
