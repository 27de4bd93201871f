#include "FrameReaderFixture.h"
#include "support/Ffmpeg.h"

#include <TARN/videoio/FrameReader.h>

#include <gtest/gtest.h>
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

} // namespace
} // namespace tio::ffmpeg
