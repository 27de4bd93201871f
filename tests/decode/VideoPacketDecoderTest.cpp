#include "VideoPacketDecoderFixture.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/Oracle.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/VideoPacketDecoder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>

namespace tio::ffmpeg {
namespace {

using test::ClipPlan;
using test::thrownText;
using test::VideoPacketDecoderTest;
using ::testing::ElementsAre;

using Picture = VideoPacketDecoder::Frame;
using RgbFrame = tio::Frame<tio::PixelFormat::RGB>;
using Nv12Frame = tio::Frame<tio::PixelFormat::NV12>;

// The frame

TEST(VideoPacketDecoderFrame, IsEmptyAtTimeZeroWhenItIsMadeOfNothing) {
    const Picture none;
    EXPECT_EQ(none.frame, nullptr);
    EXPECT_EQ(none.timestamp.numerator, 0);
    EXPECT_EQ(none.timestamp.denominator, 1);
    EXPECT_EQ(none.unitTime.numerator, 0);
    EXPECT_EQ(none.unitTime.denominator, 1);
}

TEST(VideoPacketDecoderFrame, ACopySharesThePicture) {
    const Picture picture{std::make_shared<RgbFrame>(), {3, 25}, {1, 25}};
    const Picture copy = picture; // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(copy.frame, picture.frame);
    EXPECT_EQ(copy.timestamp, Rational(3, 25));
    EXPECT_EQ(copy.unitTime, Rational(1, 25));
}

TEST(VideoPacketDecoderFrame, AMoveTakesThePictureAway) {
    Picture picture{std::make_shared<RgbFrame>(), {3, 25}, {1, 25}};
    const Picture moved = std::move(picture);
    EXPECT_NE(moved.frame, nullptr);
    EXPECT_EQ(picture.frame, nullptr); // NOLINT(bugprone-use-after-move)
}

// Reading

TEST_F(VideoPacketDecoderTest, YieldsNothingBeforeTheFirstPacket) {
    VideoPacketDecoder decoder;
    const Picture none = decoder.readNextFrame();
    EXPECT_EQ(none.frame, nullptr);
    EXPECT_EQ(none.timestamp.numerator, 0);
    EXPECT_EQ(none.timestamp.denominator, 1);
    EXPECT_EQ(none.unitTime.numerator, 0);
    EXPECT_EQ(none.unitTime.denominator, 1);
}

TEST_F(VideoPacketDecoderTest, YieldsNothingWhenAnotherPacketIsNeeded) {
    openClip();
    VideoPacketDecoder decoder;
    ASSERT_TRUE(decoder.offerPacket(packet));
    const Picture none = decoder.readNextFrame(); // the encoder's B-frames hold the first one back
    EXPECT_EQ(none.frame, nullptr);
    EXPECT_EQ(none.timestamp, Rational());
    EXPECT_EQ(none.unitTime, Rational());
}

TEST_F(VideoPacketDecoderTest, DefaultGivesRgb) {
    openClip();
    VideoPacketDecoder decoder(PixelFormat::Default);
    for (const Picture& picture : readAll(decoder))
        EXPECT_NE(std::dynamic_pointer_cast<RgbFrame>(picture.frame), nullptr);
}

TEST_F(VideoPacketDecoderTest, AskedForNv12GivesNv12) {
    openClip();
    VideoPacketDecoder decoder(PixelFormat::NV12);
    for (const Picture& picture : readAll(decoder))
        EXPECT_NE(std::dynamic_pointer_cast<Nv12Frame>(picture.frame), nullptr);
}

TEST_F(VideoPacketDecoderTest, GivesThePicturesAndTimesOfTheFileAsRgb) {
    openClip();
    VideoPacketDecoder decoder;
    expectPicturesOfTheFile(readAll(decoder));
}

TEST_F(VideoPacketDecoderTest, GivesThePicturesAndTimesOfTheFileAsNv12) {
    openClip();
    VideoPacketDecoder decoder(PixelFormat::NV12);
    expectPicturesOfTheFile(readAll(decoder), test::OracleFormat::Nv12);
}

TEST_F(VideoPacketDecoderTest, EveryPictureCarriesTheUnitOfTheStream) {
    openClip();
    const AVRational unit = packet->getStream().time_base;
    VideoPacketDecoder decoder;
    for (const Picture& picture : readAll(decoder))
        EXPECT_EQ(picture.unitTime, Rational(unit));
}

// No width leaves columns at the right edge unwritten: the clip's hash covers every byte.
TEST_F(VideoPacketDecoderTest, FillsTheRightEdgeOfEveryWidth) {
    for (int width = 64; width < 80; width += 2) {
        ClipPlan plan;
        plan.width = width;
        plan.frameCount = 3;
        openClip(plan);
        VideoPacketDecoder decoder;
        expectPicturesOfTheFile(readAll(decoder));
    }
}

// Size and rotation

TEST_F(VideoPacketDecoderTest, FrameSizeIsHeightThenWidth) {
    openClip();
    VideoPacketDecoder decoder;
    decoder.offerPacket(packet);
    EXPECT_EQ(decoder.getFrameSize(), (Vec<int, 2>(64, 96)));
}

TEST_F(VideoPacketDecoderTest, FrameSizeIsRefusedBeforeTheFirstPacket) {
    const VideoPacketDecoder decoder;
    const std::string message = "Frame size is not known before the first packet";
    EXPECT_EQ(thrownText<tio::Exception>([&] { (void)decoder.getFrameSize(); }), message);
    EXPECT_THAT(log.linesAt(4),
                ElementsAre(message + R"( @ ..\src\TARN\videoio\VideoPacketDecoder:41)",
                            "Assertion failed: codecContext"));
}

TEST_F(VideoPacketDecoderTest, AStreamWithoutRotationNeedsNoFilter) {
    openClip();
    VideoPacketDecoder decoder;
    EXPECT_FALSE(readAll(decoder).empty());
    EXPECT_EQ(intercepted->avfilter_graph_create_filter.count, 0);
    EXPECT_EQ(intercepted->av_buffersrc_add_frame_flags.count, 0);
}

TEST_F(VideoPacketDecoderTest, ARotateTagOfZeroNeedsNoFilter) {
    openClip();
    setRotateTag("0");
    VideoPacketDecoder decoder;
    decoder.offerPacket(packet);
    EXPECT_EQ(intercepted->avfilter_graph_create_filter.count, 0);
    EXPECT_EQ(decoder.getFrameSize(), (Vec<int, 2>(64, 96)));
}

TEST_F(VideoPacketDecoderTest, AStreamTagged180IsFilteredButKeepsItsSize) {
    openClip();
    setRotateTag("180");
    VideoPacketDecoder decoder;
    decoder.offerPacket(packet);
    EXPECT_EQ(intercepted->avfilter_graph_create_filter.count, 2); // source and sink
    EXPECT_EQ(decoder.getFrameSize(), (Vec<int, 2>(64, 96)));
}

TEST_F(VideoPacketDecoderTest, TheFilterIsMadeOnceForAllPictures) {
    ClipPlan plan;
    plan.rotation = 270;
    openClip(plan);
    VideoPacketDecoder decoder;
    EXPECT_EQ(readAll(decoder).size(), 25u);
    decoder.flush();
    stream->seekToOrBefore(0);
    packet = stream->getNextPacket();
    EXPECT_EQ(readAll(decoder).size(), 25u);
    EXPECT_EQ(intercepted->avfilter_graph_create_filter.count, 2); // source and sink
}

class RotatedVideo : public VideoPacketDecoderTest,
                     public ::testing::WithParamInterface<std::tuple<int, const char*>> {
protected:
    RotatedVideo() {
        ClipPlan plan;
        plan.rotation = std::get<0>(GetParam());
        plan.pixelFormat = std::get<1>(GetParam());
        plan.width = 90; // no multiple of anything that a converter works in
        plan.height = 58;
        openClip(plan);
    }
};

TEST_P(RotatedVideo, HasTheSizeOfItsUprightPictures) {
    VideoPacketDecoder decoder;
    decoder.offerPacket(packet);
    const bool sideways = std::get<0>(GetParam()) != 180;
    EXPECT_EQ(decoder.getFrameSize(), sideways ? (Vec<int, 2>(90, 58)) : (Vec<int, 2>(58, 90)));
}

TEST_P(RotatedVideo, ComesOutUprightAsRgb) {
    VideoPacketDecoder decoder;
    expectPicturesOfTheFile(readAll(decoder));
}

TEST_P(RotatedVideo, ComesOutUprightAsNv12) {
    VideoPacketDecoder decoder(PixelFormat::NV12);
    expectPicturesOfTheFile(readAll(decoder), test::OracleFormat::Nv12);
}

// A stream that the caller opened with FFmpeg itself, which sets no tag from release 5 on.
TEST_P(RotatedVideo, OfAStreamOfTheCallersOwnComesOutUpright) {
    AVFormatContext* own = nullptr;
    ASSERT_EQ(avformat_open_input(&own, path.c_str(), nullptr, nullptr), 0);
    ASSERT_GE(avformat_find_stream_info(own, nullptr), 0);
    AVPacket* read = av_packet_alloc();
    std::vector<Picture> pictures;
    {
        VideoPacketDecoder decoder;
        while (av_read_frame(own, read) >= 0) {
            decoder.offerPacket(std::make_shared<InputPacket>(read, own->streams[0]));
            av_packet_unref(read);
            readWhatThereIs(decoder, pictures);
        }
        decoder.end();
        readWhatThereIs(decoder, pictures);
    }
    expectPicturesOfTheFile(pictures);
    av_packet_free(&read);
    avformat_close_input(&own);
}

// Chroma of 4:2:2 is halved in one direction only. FFmpeg's quarter turn knows no such format and
// gives pictures of another one.
INSTANTIATE_TEST_SUITE_P(Angles, RotatedVideo,
                         ::testing::Combine(::testing::Values(90, 180, 270),
                                            ::testing::Values("yuv420p", "yuv422p", "yuv444p")));

} // namespace
} // namespace tio::ffmpeg
