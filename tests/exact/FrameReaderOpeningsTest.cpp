#include "FrameReaderFixture.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/ScriptedStream.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FrameReader.h>

#include <gtest/gtest.h>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ClipPlan;
using test::FrameReaderTest;
using test::readPictureNumber;
using test::ScriptedStream;

class FrameReaderOpenings : public FrameReaderTest {
protected:
    /// The clip as streams, of which it is counted how many were made.
    Source counted(ScriptedStream::Script script = {}) {
        script.bytes = test::readBytes(clip);
        const auto shared = std::make_shared<const ScriptedStream::Script>(std::move(script));
        return Source::streams(
            [this, shared] {
                ++openings;
                return std::make_unique<ScriptedStream>(shared);
            },
            "counted");
    }

    /// Reads all pictures in order, and then some out of order.
    static std::vector<int> readWhole(FrameReader& frames) {
        std::vector<int64_t> order(static_cast<size_t>(frames.frameCount()));
        std::iota(order.begin(), order.end(), int64_t{0});
        for (const int64_t number : {17, 3, 38, 0, 21, 20, 1, 39})
            order.push_back(number);
        std::vector<int> numbers;
        for (const int64_t number : order) {
            const Image image = frames.readFrame(number).image;
            numbers.push_back(readPictureNumber(image.data(), image.width(), image.height()));
            EXPECT_EQ(numbers.back(), number);
        }
        return numbers;
    }

    static ClipPlan fortyFrames(const char* format, const char* encoder = "libx264") {
        ClipPlan plan;
        plan.format = format;
        plan.encoder = encoder;
        plan.frameCount = 40;
        plan.gopSize = 8;
        return plan;
    }

    int openings = 0;
};

struct Container {
    const char* format;
    const char* encoder;
};

// The one is asked what there is, the other is read from.
class WholeReading : public FrameReaderOpenings, public testing::WithParamInterface<Container> {};

TEST_P(WholeReading, OpensASourceTwice) {
    test::makeClip(clip, fortyFrames(GetParam().format, GetParam().encoder));
    FrameReader frames(counted());
    EXPECT_EQ(readWhole(frames).size(), 48u);
    EXPECT_EQ(openings, 2);
    EXPECT_EQ(frames.counters().sourceOpenings, 1);
}

TEST_P(WholeReading, OpensASourceTwiceWithChecksums) {
    test::makeClip(clip, fortyFrames(GetParam().format, GetParam().encoder));
    FrameReaderOptions options;
    options.checksums = true;
    FrameReader frames(counted(), options);
    EXPECT_EQ(readWhole(frames).size(), 48u);
    EXPECT_EQ(openings, 2);
}

INSTANTIATE_TEST_SUITE_P(Containers, WholeReading,
                         testing::Values(Container{"mp4", "libx264"},
                                         Container{"matroska", "libx264"},
                                         Container{"mpegts", "libx264"},
                                         Container{"h264", "libx264"}, Container{"avi", "mpeg4"},
                                         Container{"mpeg", "mpeg2video"}),
                         [](const auto& of) { return std::string(of.param.format); });

TEST_F(FrameReaderOpenings, AStreamThatCannotSeekIsReadAllTheSame) {
    ClipPlan large =
        fortyFrames("mpegts"); // than what FFmpeg reads ahead, within which it can seek
    large.width = 704;
    large.height = 576;
    large.encoderOptions = {{"qp", "4"}};
    test::makeClip(clip, large);
    ScriptedStream::Script script;
    script.size = [](int64_t) { return ByteStream::unknownSize; };
    script.seek = [](int64_t) { throw std::runtime_error("no way back"); };
    FrameReaderOptions options;
    options.checksums = true;
    FrameReader frames(counted(script), options);
    EXPECT_EQ(frames.frameCount(), 40);
    for (const int64_t number : {0, 1, 5}) {
        const Image image = frames.readFrame(number).image;
        EXPECT_EQ(readPictureNumber(image.data(), image.width(), image.height()), number);
    }
    EXPECT_GT(openings, 2);
}

// What is given but once for each opening would be missing after a seek to the start.
TEST_F(FrameReaderOpenings, APaletteThatComesOnceCostsAnotherOne) {
    make("PaletteComesOnce");
    FrameReader frames(counted());
    for (int64_t number = 0; number < frames.frameCount(); ++number) {
        const Image image = frames.readFrame(number).image;
        const int index = (5 * 3 + static_cast<int>(number) * 7) & 255; // of pixel 5
        EXPECT_EQ(image.data()[3 * 5 + 2], index) << number;
        EXPECT_EQ(image.data()[3 * 5 + 1], 255 - index) << number;
    }
    EXPECT_GT(openings, 2);
}

TEST_F(FrameReaderOpenings, AnIndexIsMadeWithTwo) {
    test::makeClip(clip, fortyFrames("mp4"));
    EXPECT_EQ(FrameIndex::build(counted()).frameCount(), 40);
    EXPECT_EQ(openings, 2);
}

} // namespace
} // namespace tio::ffmpeg
