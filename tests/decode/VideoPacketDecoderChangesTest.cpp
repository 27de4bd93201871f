#include "VideoPacketDecoderFixture.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/Oracle.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/VideoPacketDecoder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ClipPlan;
using test::sizeOf;
using test::thrownText;
using test::VideoPacketDecoderTest;
using ::testing::ElementsAre;
using ::testing::EndsWith;

using Picture = VideoPacketDecoder::Frame;

// Streams that change

TEST_F(VideoPacketDecoderTest, PicturesThatChangeInSizeComeOutInTheirNewSize) {
    openClips(tsPlan(96, 64), tsPlan(54, 98));
    VideoPacketDecoder decoder;
    const auto pictures = readAll(decoder);
    expectPicturesOfTheFile(pictures);
    ASSERT_EQ(pictures.size(), 50u);
    EXPECT_EQ(sizeOf(pictures.front()), (Vec<int, 2>(64, 96)));
    EXPECT_EQ(sizeOf(pictures.back()), (Vec<int, 2>(98, 54)));
}

TEST_F(VideoPacketDecoderTest, PicturesThatGrowOrShrinkComeOutAsNv12) {
    openClips(tsPlan(54, 98), tsPlan(320, 240));
    VideoPacketDecoder decoder(PixelFormat::NV12);
    expectPicturesOfTheFile(readAll(decoder), test::OracleFormat::Nv12);
}

TEST_F(VideoPacketDecoderTest, PicturesThatChangeInPixelFormatAreConvertedFromTheNewOne) {
    openClips(tsPlan(96, 64, "yuv420p"), tsPlan(96, 64, "yuv444p"));
    VideoPacketDecoder decoder;
    const auto pictures = readAll(decoder);
    EXPECT_EQ(pictures.size(), 50u);
    expectPicturesOfTheFile(pictures);
}

TEST_F(VideoPacketDecoderTest, FrameSizeFollowsTheStream) {
    openClips(tsPlan(96, 64), tsPlan(54, 98));
    VideoPacketDecoder decoder;
    (void)readAll(decoder);
    EXPECT_EQ(decoder.getFrameSize(), (Vec<int, 2>(98, 54)));
}

TEST_F(VideoPacketDecoderTest, ARotatedStreamThatChangesInSizeIsRefusedFromThereOn) {
    openClips(tsPlan(96, 64), tsPlan(48, 32)); // smaller: its rows would be read past their end
    setRotateTag("90");
    VideoPacketDecoder decoder;
    std::vector<Picture> pictures;
    EXPECT_EQ(thrownText<tio::Exception>([&] { readAll(decoder, pictures); }),
              "Picture size or format changed in a rotated stream");
    EXPECT_EQ(pictures.size(), 25u);
    EXPECT_EQ(sizeOf(pictures.back()), (Vec<int, 2>(96, 64)));
    EXPECT_TRUE(log.contains("root", 4,
                             "Picture size or format changed in a rotated stream"
                             R"( @ ..\src\TARN\videoio\filter:146)"));
}

// Failures

TEST_F(VideoPacketDecoderTest, AValueThatIsNoPixelFormatFailsWithTheFirstPacket) {
    openClip();
    VideoPacketDecoder decoder(static_cast<PixelFormat>(7));
    EXPECT_EQ(thrownText<tio::Exception>([&] { decoder.offerPacket(packet); }),
              "Invalid pixel format");
    EXPECT_THAT(log.linesAt(4),
                ElementsAre(R"(Invalid pixel format @ ..\src\TARN\videoio\swscale:46)"));
}

TEST_F(VideoPacketDecoderTest, AStreamOfUnknownPixelFormatFailsWithTheFirstPacket) {
    ClipPlan plan;
    plan.format = "mov";
    plan.encoder = "mjpeg"; // its decoder learns the pixel format from the first picture
    plan.pixelFormat = "yuvj420p";
    openClip(plan);
    packet->getStream().codecpar->format = AV_PIX_FMT_NONE;
    VideoPacketDecoder decoder;
    EXPECT_EQ(thrownText<tio::Exception>([&] { decoder.offerPacket(packet); }),
              "Could not get swscale context");
    EXPECT_THAT(log.linesAt(4),
                ElementsAre(R"(Could not get swscale context @ ..\src\TARN\videoio\swscale:32)",
                            "Assertion failed: m_sws_context"));
}

TEST_F(VideoPacketDecoderTest, AFilterThatCannotBeMadeFailsWithTheFirstPacket) {
    openClip();
    setRotateTag("90");
    intercepted->avfilter_graph_config.instead = [](AVFilterGraph*) { return AVERROR(EINVAL); };
    VideoPacketDecoder decoder;
    EXPECT_THAT(thrownText<Exception>([&] { decoder.offerPacket(packet); }),
                EndsWith(R"( @ ..\src\TARN\videoio\filter:129)"));
}

TEST_F(VideoPacketDecoderTest, PicturesAreUprightAlsoWhenTheFilterCouldNotBeMadeAtFirst) {
    openClip();
    setRotateTag("90");
    intercepted->avfilter_graph_config.instead = [](AVFilterGraph*) { return AVERROR(ENOMEM); };
    VideoPacketDecoder decoder;
    EXPECT_THROW(decoder.offerPacket(packet), Exception);
    intercepted->avfilter_graph_config.instead = nullptr;
    EXPECT_EQ(decoder.readNextFrame().frame, nullptr);
    decoder.end();
    EXPECT_EQ(sizeOf(decoder.readNextFrame()), (Vec<int, 2>(96, 64)));
}

TEST_F(VideoPacketDecoderTest, APictureThatCannotBeTurnedFailsAndTheOthersComeOut) {
    ClipPlan plan;
    plan.rotation = 90;
    plan.frameCount = 3;
    openClip(plan);
    VideoPacketDecoder decoder;
    for (; packet; packet = stream->getNextPacket()) {
        EXPECT_TRUE(decoder.offerPacket(packet));
        EXPECT_EQ(decoder.readNextFrame().frame, nullptr);
    }
    decoder.end();
    intercepted->av_buffersrc_add_frame_flags.instead = [](AVFilterContext*, AVFrame*, int) {
        return AVERROR(EINVAL);
    };
    EXPECT_THAT(thrownText<Exception>([&] { (void)decoder.readNextFrame(); }),
                EndsWith(R"( @ ..\src\TARN\videoio\filter:152)"));
    intercepted->av_buffersrc_add_frame_flags.instead = nullptr;
    std::vector<Picture> pictures;
    readWhatThereIs(decoder, pictures);
    EXPECT_EQ(pictures.size(), 2u);
}

} // namespace
} // namespace tio::ffmpeg
