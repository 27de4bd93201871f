#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/HashedPicture.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Oracle.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/VideoPacketDecoder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ClipPlan;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::EndsWith;

using Picture = VideoPacketDecoder::Frame;
using RgbFrame = tio::Frame<tio::PixelFormat::RGB>;
using Nv12Frame = tio::Frame<tio::PixelFormat::NV12>;

Vec<int, 2> sizeOf(const Picture& picture) {
    if (const auto rgb = std::dynamic_pointer_cast<RgbFrame>(picture.frame))
        return rgb->size;
    return std::dynamic_pointer_cast<Nv12Frame>(picture.frame)->size;
}

uint64_t hashOf(const Picture& picture) {
    return test::hashedPicture(*picture.frame).hash;
}

class VideoPacketDecoderTest : public ::testing::Test {
protected:
    void openClip(const ClipPlan& plan = {}) {
        path = folder.file("clip." + plan.format);
        test::makeClip(path, plan);
        openFile();
    }

    // Two clips one after the other in a single stream, whose packets tell of the change.
    void openClips(const ClipPlan& first, const ClipPlan& second) {
        test::Track track = test::encodeVideo(first);
        const auto shift = static_cast<int64_t>(track.packets.size());
        const test::Track following = test::encodeVideo(second);
        for (test::RawPacket later : following.packets) {
            later.pts += shift;
            later.dts += shift;
            track.packets.push_back(std::move(later));
        }
        path = folder.file("clips.ts");
        test::writePackets(path, "mpegts", {track});
        openFile();
    }

    static ClipPlan tsPlan(int width, int height, const std::string& pixelFormat = "yuv420p") {
        ClipPlan plan;
        plan.format = "mpegts";
        plan.width = width;
        plan.height = height;
        plan.pixelFormat = pixelFormat;
        return plan;
    }

    void openFile() {
        const auto context = std::make_shared<InputFormatContext>(path);
        stream = std::make_unique<InputStream>(context, context->findBestVideoStreamIndex());
        packet = stream->getNextPacket();
        test::calls() = {}; // making the clip called FFmpeg as well
        log.clear();
    }

    void setRotateTag(const char* value) const {
        auto& described = const_cast<AVStream&>(packet->getStream());
        av_dict_set(&described.metadata, "rotate", value, 0);
    }

    static void readWhatThereIs(VideoPacketDecoder& decoder, std::vector<Picture>& pictures) {
        for (Picture next = decoder.readNextFrame(); next.frame; next = decoder.readNextFrame())
            pictures.push_back(std::move(next));
    }

    void readAll(VideoPacketDecoder& decoder, std::vector<Picture>& pictures) {
        for (; packet; packet = stream->getNextPacket()) {
            EXPECT_TRUE(decoder.offerPacket(packet));
            readWhatThereIs(decoder, pictures);
        }
        decoder.end();
        readWhatThereIs(decoder, pictures);
    }

    std::vector<Picture> readAll(VideoPacketDecoder& decoder) {
        std::vector<Picture> pictures;
        readAll(decoder, pictures);
        return pictures;
    }

    // Compares with what libav* makes of the file without the library.
    void expectPicturesOfTheFile(const std::vector<Picture>& pictures,
                                 test::OracleFormat format = test::OracleFormat::Rgb) const {
        test::OracleOptions options;
        options.format = format;
        const auto expected = test::oracleFrames(path, options);
        ASSERT_EQ(pictures.size(), expected.size());
        for (size_t n = 0; n < expected.size(); ++n) {
            const auto time = expected[n].time();
            EXPECT_EQ(pictures[n].timestamp, Rational(time.numerator, time.denominator)) << n;
            ASSERT_EQ(sizeOf(pictures[n]), (Vec<int, 2>(expected[n].height, expected[n].width)))
                << n;
            EXPECT_EQ(hashOf(pictures[n]), expected[n].hash) << n;
        }
    }

    test::TemporaryFolder folder;
    std::string path;
    test::Interception intercepted;
    test::LogCapture log;
    std::unique_ptr<InputStream> stream;
    std::shared_ptr<InputPacket> packet; // the next one
};

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

// Chroma of 4:2:2 is halved in one direction only. FFmpeg's quarter turn knows no such format and
// gives pictures of another one.
INSTANTIATE_TEST_SUITE_P(Angles, RotatedVideo,
                         ::testing::Combine(::testing::Values(90, 180, 270),
                                            ::testing::Values("yuv420p", "yuv422p", "yuv444p")));

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
