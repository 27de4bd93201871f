#include "support/ClipMaker.h"
#include "support/HashedPicture.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Oracle.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>

namespace tio::ffmpeg {
namespace {

using ::testing::HasSubstr;

class VideoStreamDecoderTest : public ::testing::Test {
protected:
    std::string clip(const test::ClipPlan& plan = {}, const std::string& name = "clip.mp4") {
        const std::string path = folder.file(name);
        test::makeClip(path, plan);
        return path;
    }

    static std::unique_ptr<VideoStreamDecoder> open(const std::string& path,
                                                    PixelFormat format = PixelFormat::RGB) {
        return std::make_unique<VideoStreamDecoder>(std::make_shared<InputFormatContext>(path),
                                                    format);
    }

    static uint64_t hashOf(const VideoPacketDecoder::Frame& frame) {
        return test::hashedPicture(*frame.frame).hash;
    }

    test::TemporaryFolder folder;
    test::Interception intercepted;
    test::LogCapture log;
};

TEST_F(VideoStreamDecoderTest, ConstructingReadsNothing) {
    auto context = std::make_shared<InputFormatContext>(clip());
    const int read = intercepted->av_read_frame.count;
    const VideoStreamDecoder decoder(context, PixelFormat::RGB);
    EXPECT_EQ(intercepted->av_read_frame.count, read);
}

TEST_F(VideoStreamDecoderTest, AnInputWithoutVideoFailsInTheConstructor) {
    auto context = std::make_shared<InputFormatContext>(clip());
    context->getStream(0)->codecpar->codec_type = AVMEDIA_TYPE_DATA;
    try {
        const VideoStreamDecoder decoder(context, PixelFormat::RGB);
        FAIL() << "expected an exception";
    } catch (const Exception& failure) {
        EXPECT_THAT(failure.what(), HasSubstr("Could not find stream of requested type"));
    }
}

// Nobody may be kept busy with one and the same exception.
TEST_F(VideoStreamDecoderTest, AStreamWithoutAPixelFormatFailsOnceAndIsReadOn) {
    const std::string path = clip();
    auto context = std::make_shared<InputFormatContext>(path);
    context->getStream(0)->codecpar->format = AV_PIX_FMT_NONE;
    VideoStreamDecoder decoder(context, PixelFormat::RGB);
    try {
        (void)decoder.readNextFrame();
        FAIL() << "expected an exception";
    } catch (const tio::Exception& failure) {
        EXPECT_STREQ(failure.what(), "Could not get swscale context");
    }
    for (const test::OracleFrame& expected : test::oracleFrames(path)) {
        const auto frame = decoder.readNextFrame();
        ASSERT_TRUE(frame.frame);
        EXPECT_EQ(hashOf(frame), expected.hash);
    }
    EXPECT_FALSE(decoder.readNextFrame().frame);
}

TEST_F(VideoStreamDecoderTest, FrameSizeReadsAndOffersExactlyOnePacketThatIsNotLost) {
    const std::string path = clip();
    auto decoder = open(path);
    const int read = intercepted->av_read_frame.count;
    EXPECT_EQ(decoder->getFrameSize(), (tio::Vec<int, 2>(64, 96)));
    EXPECT_EQ(intercepted->av_read_frame.count, read + 1);
    decoder->getFrameSize();
    EXPECT_EQ(intercepted->av_read_frame.count, read + 1);
    EXPECT_EQ(hashOf(decoder->readNextFrame()), test::oracleFrames(path)[0].hash);
}

TEST_F(VideoStreamDecoderTest, SeekToZeroOnAFreshDecoderReadsFrameZero) {
    const std::string path = clip();
    auto decoder = open(path);
    decoder->seek(0);
    const auto frame = decoder->readNextFrame();
    EXPECT_EQ(frame.timestamp, Rational(0, 1));
    EXPECT_EQ(hashOf(frame), test::oracleFrames(path)[0].hash);
}

TEST_F(VideoStreamDecoderTest, ReturnsAFrameWithoutAPictureAtTheEndAsOftenAsAsked) {
    auto decoder = open(clip());
    int count = 0;
    while (decoder->readNextFrame().frame)
        ++count;
    EXPECT_EQ(count, 25);
    for (int i = 0; i < 3; ++i) {
        const auto frame = decoder->readNextFrame();
        EXPECT_EQ(frame.frame, nullptr);
        EXPECT_EQ(frame.timestamp, Rational(0, 1));
        EXPECT_EQ(frame.unitTime, Rational(0, 1));
    }
}

TEST_F(VideoStreamDecoderTest, ASeekConvertsAndTurnsOnlyTheWantedPicture) {
    test::ClipPlan plan;
    plan.rotation = 90;
    plan.gopSize = 25;
    auto decoder = open(clip(plan));
    decoder->seek(20);
    EXPECT_GE(intercepted->avcodec_receive_frame.count, 20);
    EXPECT_EQ(intercepted->sws_scale.count, 0);
    EXPECT_EQ(intercepted->av_buffersrc_add_frame_flags.count, 0);
    decoder->readNextFrame();
    EXPECT_EQ(intercepted->sws_scale.count, 1);
    EXPECT_EQ(intercepted->av_buffersrc_add_frame_flags.count, 1);
}

TEST_F(VideoStreamDecoderTest, AnIndexFromAnEarlierRunGivesTheSameFramesWithoutAScan) {
    const std::string path = clip();
    const std::string index = folder.file("clip.index");
    open(path)->storeSeekingIndex(index);
    const auto truth = test::oracleFrames(path);

    auto decoder = open(path);
    intercepted->av_read_frame.count = 0;
    decoder->loadSeekingIndex(index);
    EXPECT_EQ(decoder->getFrameCount(), 25);
    EXPECT_LE(intercepted->av_read_frame.count, 1);
    for (const int64_t n : {24, 3, 17, 0}) {
        decoder->seek(n);
        EXPECT_EQ(hashOf(decoder->readNextFrame()), truth[static_cast<size_t>(n)].hash) << n;
    }
}

TEST_F(VideoStreamDecoderTest, CopiesOfAFrameShareItsPicture) {
    auto decoder = open(clip());
    const auto frame = decoder->readNextFrame();
    const auto copy = frame;
    EXPECT_EQ(copy.frame, frame.frame);
}

TEST_F(VideoStreamDecoderTest, PicturesStayAsTheyAreWhenTheDecoderGoesOnAndAway) {
    const std::string path = clip();
    auto decoder = open(path);
    const auto first = decoder->readNextFrame();
    while (decoder->readNextFrame().frame) {
    }
    decoder.reset();
    EXPECT_EQ(hashOf(first), test::oracleFrames(path)[0].hash);
}

TEST_F(VideoStreamDecoderTest, UnitTimeIsTheStreamsTimeBase) {
    auto context = std::make_shared<InputFormatContext>(clip());
    VideoStreamDecoder decoder(context, PixelFormat::RGB);
    EXPECT_EQ(decoder.getUnitTime(), Rational(context->getStream(0)->time_base));
    EXPECT_EQ(decoder.readNextFrame().unitTime, decoder.getUnitTime());
}

TEST_F(VideoStreamDecoderTest, TheContextLivesAsLongAsTheDecoder) {
    auto context = std::make_shared<InputFormatContext>(clip());
    VideoStreamDecoder decoder(context, PixelFormat::RGB);
    context.reset();
    EXPECT_NE(decoder.readNextFrame().frame, nullptr);
}

// What cannot be decoded is told once

TEST_F(VideoStreamDecoderTest, AStreamWithoutADecoderIsToldOnceAndThenOver) {
    const auto input = std::make_shared<InputFormatContext>(clip());
    input->getStream(0)->codecpar->codec_id = AV_CODEC_ID_PROBE;
    VideoStreamDecoder video(input, PixelFormat::RGB);
    EXPECT_THROW((void)video.readNextFrame(), Exception);
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(video.readNextFrame().frame, nullptr);
}

TEST_F(VideoStreamDecoderTest, AFilterThatCanNeverBeMadeIsToldOnceAndThenTheStreamIsOver) {
    test::ClipPlan plan;
    plan.rotation = 90;
    const std::string path = clip(plan);
    intercepted->avfilter_graph_config.instead = [](AVFilterGraph*) { return AVERROR(EINVAL); };
    const auto video = open(path);
    EXPECT_THROW((void)video->readNextFrame(), Exception);
    const size_t lines = log.linesAt(5).size();
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(video->readNextFrame().frame, nullptr);
    EXPECT_LE(log.linesAt(5).size(), lines + 1);
}

TEST_F(VideoStreamDecoderTest, WhereMemoryWasShortForTheFilterPicturesComeUprightLater) {
    test::ClipPlan plan;
    plan.rotation = 90;
    const std::string path = clip(plan);
    intercepted->avfilter_graph_config.instead = [](AVFilterGraph*) { return AVERROR(ENOMEM); };
    const auto video = open(path);
    for (int i = 0; i < 3; ++i)
        EXPECT_THROW((void)video->readNextFrame(), Exception);
    intercepted->avfilter_graph_config.instead = nullptr;
    for (const auto& expected : test::oracleFrames(path)) {
        const auto frame = video->readNextFrame();
        ASSERT_NE(frame.frame, nullptr);
        EXPECT_EQ(hashOf(frame), expected.hash);
    }
}

static_assert(noexcept(std::declval<const VideoStreamDecoder&>().getUnitTime()));

TEST_F(VideoStreamDecoderTest, ADecoderThatIsConstKnowsTheSizeOfItsPictures) {
    const auto decoder = open(clip());
    const VideoStreamDecoder& constant = *decoder;
    EXPECT_EQ(constant.getFrameSize(), decoder->getFrameSize());
    EXPECT_NE(constant.getFrameSize(), (Vec<int, 2>()));
}

TEST_F(VideoStreamDecoderTest, ANullContextIsRefused) {
    EXPECT_THROW(VideoStreamDecoder(nullptr, PixelFormat::RGB), tio::Exception);
}

} // namespace
} // namespace tio::ffmpeg
