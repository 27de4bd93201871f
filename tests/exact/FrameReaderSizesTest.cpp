#include "FrameReaderFixture.h"
#include "support/Ffmpeg.h"

#include <TARN/videoio/FrameReader.h>

#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <vector>

namespace tio::ffmpeg {
namespace {

using FrameReaderSizes = test::FrameReaderTest;

// A decoder leaves columns in place that the clip says are cut off.
TEST_F(FrameReaderSizes, ThatTheClipDoesNotStateAreReadAsABatch) {
    make("CroppedLeft");
    const std::vector<test::OracleFrame> expected = test::everyPictureOf(clip);
    const InputFormatContext said(clip);
    FrameReaderOptions options;
    options.index = FrameIndex::fromBytes(FrameIndex::build(Source(clip)).toBytes());
    for (const bool given : {false, true}) {
        FrameReader frames(Source(clip), given ? options : FrameReaderOptions());
        ASSERT_EQ(frames.width(), expected[0].width);
        ASSERT_EQ(frames.height(), expected[0].height);
        ASSERT_NE(frames.width(), said.getStream(0)->codecpar->width);
        std::vector<Image> images;
        for (int place = 0; place < 3; ++place)
            images.emplace_back(PictureFormat::Rgb8, frames.height(), frames.width());
        frames.readFramesInto({30, 2, 17}, [&](size_t place) { return images[place].view(); });
        std::vector<int> numbers;
        for (const Image& image : images)
            numbers.push_back(test::readPictureNumber(image.data(), image.width(), image.height()));
        EXPECT_EQ(numbers, (std::vector<int>{30, 2, 17}));
    }
}

// Rows may be further apart than an int can say.
TEST_F(FrameReaderSizes, RowsMayBeFarApart) {
    test::ClipPlan plan;
    plan.height = 16;
    test::makeClip(clip, plan);
    constexpr int height = 16;
    constexpr std::ptrdiff_t stride = (std::ptrdiff_t{1} << 31) + 4096;
    void* block = mmap(nullptr, height * stride, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (block == MAP_FAILED)
        GTEST_SKIP() << "this system does not give away so many addresses";
    for (const Colours colours : {Colours::Tagged, Colours::Bt601}) {
        FrameReaderOptions options;
        options.colours = colours;
        FrameReader frames(Source(clip), options);
        ImageView view;
        view.height = height;
        view.width = frames.width();
        view.planes[0] = static_cast<uint8_t*>(block);
        view.strides[0] = stride;
        static_cast<void>(frames.readFrameInto(7, view));
        const Image expected = FrameReader(Source(clip), options).readFrame(7).image;
        for (int row = 0; row < height; ++row)
            EXPECT_EQ(std::memcmp(view.planes[0] + row * stride,
                                  expected.data() + row * expected.stride(),
                                  static_cast<size_t>(3 * view.width)),
                      0)
                << row;
    }
    munmap(block, height * stride);
}

} // namespace
} // namespace tio::ffmpeg
