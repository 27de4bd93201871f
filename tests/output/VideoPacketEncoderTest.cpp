#include "support/EncoderInput.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Muxing.h"
#include "support/SourceFrames.h"

#include <TARN/core/Exception.h>
#include <TARN/core/MatAlloc.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/VideoPacketEncoder.h>

extern "C" {
#include <libavutil/opt.h>
}

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ffmpegText;
using test::Image;
using test::IsFraction;
using test::IsLogLine;
using test::ownLines;
using test::Pixel;
using test::placeText;
using test::plainImage;
using test::spottedImage;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

class ProbeEncoder : public VideoPacketEncoder {
public:
    using VideoPacketEncoder::VideoPacketEncoder;

    using PacketEncoder::codecContext;
    using PacketEncoder::codecParameters;
    using PacketEncoder::frame;
};

using Options = std::map<std::string, std::string>;

class VideoPacketEncoderTest : public ::testing::Test {
protected:
    ~VideoPacketEncoderTest() override {
        if (encoder) // a frame that nobody flushes stays
            av_frame_free(&encoder->frame);
    }

    ProbeEncoder& open(int rows, int cols, const Options& options = {},
                       Rational timeBase = Rational(1, 30)) {
        encoder = std::make_unique<ProbeEncoder>(tio::Vec<int, 2>(rows, cols), timeBase, options);
        return *encoder;
    }

    // Swallows the frames and notes their times.
    std::vector<int64_t>& noteTimes() {
        intercepted->avcodec_send_frame.instead = [this](AVCodecContext*, const AVFrame* frame) {
            if (frame != nullptr)
                times.push_back(frame->pts);
            return 0;
        };
        return times;
    }

    std::string optionOf(const char* name) const {
        uint8_t* value = nullptr;
        test::check(av_opt_get(encoder->codecContext->priv_data, name, 0, &value), name);
        const std::string text(reinterpret_cast<char*>(value));
        av_free(value);
        return text;
    }

    // The level in the parameter set: after a start code of four bytes come the unit's type, the
    // profile, the constraints and the level.
    int codedLevel() const { return encoder->codecParameters->extradata[7]; }

    // What libswscale makes of an image that has even sides already.
    static test::FramePointer converted(const Image& image) {
        auto frame = test::makeFrame(AV_PIX_FMT_YUV420P, image.cols(), image.rows());
        const test::ScalerPointer scaler(
            sws_getContext(image.cols(), image.rows(), AV_PIX_FMT_RGB24, image.cols(), image.rows(),
                           AV_PIX_FMT_YUV420P, SWS_BICUBIC, nullptr, nullptr, nullptr));
        const auto* pixels = reinterpret_cast<const uint8_t*>(image.data());
        const int stride = 3 * image.cols();
        sws_scale(scaler.get(), &pixels, &stride, 0, image.rows(), frame->data, frame->linesize);
        return frame;
    }

    // Encodes `image` and expects that the encoder was given `padded`, which was made by hand.
    void expectEncodedAs(const Image& image, const Image& padded) {
        open(image.rows(), image.cols());
        encoder->writeNextFrame(image, Rational());
        ASSERT_EQ(encoder->frame->width, padded.cols());
        ASSERT_EQ(encoder->frame->height, padded.rows());
        const auto expected = converted(padded);
        for (int plane = 0; plane < 3; ++plane)
            EXPECT_EQ(test::planeBytes(*encoder->frame, plane), test::planeBytes(*expected, plane))
                << "plane " << plane;
    }

    test::Interception intercepted;
    test::LogCapture log;
    std::unique_ptr<ProbeEncoder> encoder;
    std::vector<int64_t> times;
};

// Construction

TEST_F(VideoPacketEncoderTest, OddSidesAreRoundedUpToEvenOnes) {
    open(481, 641);
    EXPECT_EQ(encoder->codecContext->height, 482);
    EXPECT_EQ(encoder->codecContext->width, 642);
    EXPECT_EQ(encoder->frame->height, 482);
    EXPECT_EQ(encoder->frame->width, 642);
}

TEST_F(VideoPacketEncoderTest, EvenSidesStay) {
    open(48, 64);
    EXPECT_EQ(encoder->codecContext->height, 48);
    EXPECT_EQ(encoder->codecContext->width, 64);
}

TEST_F(VideoPacketEncoderTest, EncodesH264In420WithoutBFrames) {
    open(48, 64, {}, Rational(1001, 30000));
    EXPECT_EQ(encoder->codecParameters->codec_id, AV_CODEC_ID_H264);
    EXPECT_EQ(encoder->codecContext->pix_fmt, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(encoder->codecContext->max_b_frames, 0);
    EXPECT_THAT(encoder->getUnitTime(), IsFraction(1001, 30000));
}

TEST_F(VideoPacketEncoderTest, TheFrameHasTheEncodersFormatAndNoSpaceBetweenRows) {
    int alignment = 0;
    intercepted->av_frame_get_buffer.instead = [&](AVFrame* frame, int asked) {
        alignment = asked;
        return test::real::getBuffer(frame, asked);
    };
    open(48, 64);
    EXPECT_EQ(alignment, 1);
    EXPECT_EQ(encoder->frame->format, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(encoder->frame->pts, -1);
    EXPECT_THAT(encoder->getFrameTime(), IsFraction(-1, 30));
}

TEST_F(VideoPacketEncoderTest, ASizeThatCannotBeRoundedUpIsRefused) {
    constexpr int largest = std::numeric_limits<int>::max();
    EXPECT_THROW(open(largest, largest), Exception);
}

TEST_F(VideoPacketEncoderTest, OptionsAreSetInOrderTheCallersLastAndAscending) {
    std::vector<std::pair<std::string, std::string>> order;
    intercepted->av_dict_set.instead = [&](AVDictionary** to, const char* key, const char* value,
                                           int flags) {
        EXPECT_EQ(flags, 0);
        order.emplace_back(key, value);
        return test::real::setOption(to, key, value, flags);
    };
    open(48, 64, {{"tune", "film"}, {"crf", "20"}, {"preset", "slow"}});
    EXPECT_THAT(order,
                ElementsAre(Pair("preset", "veryfast"), Pair("level", "51"), Pair("crf", "20"),
                            Pair("preset", "slow"), Pair("tune", "film")));
}

TEST_F(VideoPacketEncoderTest, WithoutOptionsThePresetIsVeryfastAndTheLevel51) {
    open(48, 64);
    EXPECT_EQ(optionOf("preset"), "veryfast");
    EXPECT_EQ(optionOf("level"), "51");
    EXPECT_EQ(codedLevel(), 51);
}

TEST_F(VideoPacketEncoderTest, TheCallersPresetWinsAndTheLevelStays) {
    open(48, 64, {{"preset", "slow"}, {"crf", "20"}});
    EXPECT_EQ(optionOf("preset"), "slow");
    EXPECT_EQ(std::stod(optionOf("crf")), 20.0);
    EXPECT_EQ(optionOf("level"), "51");
}

TEST_F(VideoPacketEncoderTest, TheCallersLevelWins) {
    open(48, 64, {{"level", "30"}});
    EXPECT_EQ(codedLevel(), 30);
}

TEST_F(VideoPacketEncoderTest, ABitrateReachesTheEncoder) {
    open(48, 64, {{"bitrate", "400000"}});
    EXPECT_EQ(encoder->codecParameters->bit_rate, 400000);
}

TEST_F(VideoPacketEncoderTest, ThrowsWithoutAnH264Encoder) {
    intercepted->avcodec_find_encoder.instead = [](AVCodecID) -> const AVCodec* { return nullptr; };
    EXPECT_EQ(thrownText<tio::Exception>([this] { open(48, 64); }),
              "Could not find ffmpeg's h264 encoder");
}

TEST_F(VideoPacketEncoderTest, ThrowsWhenAnOptionCannotBeSet) {
    intercepted->av_dict_set.instead = [](AVDictionary**, const char*, const char*, int) {
        return AVERROR(ENOMEM);
    };
    EXPECT_EQ(thrownText<Exception>([this] { open(48, 64); }),
              ffmpegText(AVERROR(ENOMEM)) + placeText("PacketEncoder", 214));
}

TEST_F(VideoPacketEncoderTest, ThrowsOnAPresetThatDoesNotExist) {
    const std::string expected = ffmpegText(AVERROR(EINVAL)) + placeText("PacketEncoder", 82);
    EXPECT_EQ(thrownText<Exception>([this] { open(48, 64, {{"preset", "no such"}}); }), expected);
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 5, expected)));
}

TEST_F(VideoPacketEncoderTest, ThrowsOnSizesThatAreNone) {
    for (const auto& [rows, cols] : {std::pair(0, 0), std::pair(-3, 64), std::pair(48, -8)})
        EXPECT_THROW(open(rows, cols), Exception) << rows << " x " << cols;
}

TEST_F(VideoPacketEncoderTest, ThrowsWithoutMemoryForTheFrame) {
    intercepted->av_frame_alloc.instead = []() -> AVFrame* { return nullptr; };
    EXPECT_EQ(thrownText<tio::Exception>([this] { open(48, 64); }),
              "Failed to allocate ffmpeg frame");
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 4,
                                                     "Failed to allocate ffmpeg frame" +
                                                         placeText("VideoPacketEncoder", 55)),
                                           IsLogLine("root", 4, "Assertion failed: frame")));
}

TEST_F(VideoPacketEncoderTest, ThrowsWithoutMemoryForTheFramesBuffer) {
    AVFrame* frame = nullptr; // stays, as every frame that is not flushed
    intercepted->av_frame_get_buffer.instead = [&](AVFrame* asked, int) {
        frame = asked;
        return AVERROR(ENOMEM);
    };
    const std::string expected = ffmpegText(AVERROR(ENOMEM)) + placeText("VideoPacketEncoder", 66);
    EXPECT_EQ(thrownText<Exception>([this] { open(48, 64); }), expected);
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 5, expected)));
    av_frame_free(&frame);
}

// Times

TEST_F(VideoPacketEncoderTest, FramesWithoutATimeAreOneTickApartFromZero) {
    noteTimes();
    open(48, 64);
    for (int i = 0; i < 3; ++i)
        encoder->writeNextFrame(plainImage(48, 64));
    EXPECT_THAT(times, ElementsAre(0, 1, 2));
    EXPECT_THAT(encoder->getFrameTime(), IsFraction(1, 15));
}

TEST_F(VideoPacketEncoderTest, FramesWithoutATimeGoOnOneTickAfterOneThatHasOne) {
    noteTimes();
    open(48, 64);
    encoder->writeNextFrame(plainImage(48, 64), Rational(10, 1));
    encoder->writeNextFrame(plainImage(48, 64));
    EXPECT_THAT(times, ElementsAre(300, 301));
    EXPECT_THAT(encoder->getFrameTime(), IsFraction(301, 30));
}

TEST_F(VideoPacketEncoderTest, ATimeBetweenTwoTicksIsTruncatedTowardZero) {
    noteTimes();
    open(48, 64);
    encoder->writeNextFrame(plainImage(48, 64), Rational(-1, 20)); // -1.5 ticks
    encoder->writeNextFrame(plainImage(48, 64), Rational(1, 20));
    encoder->writeNextFrame(plainImage(48, 64), Rational(99, 1000)); // 2.97 ticks
    EXPECT_THAT(times, ElementsAre(-1, 1, 2));
}

TEST_F(VideoPacketEncoderTest, EveryFrameBecomesAPacketAtItsTime) {
    open(48, 64);
    std::vector<int64_t> pts;
    const auto note = [&](const std::vector<OutputPacket>& packets) {
        for (const OutputPacket& packet : packets) {
            EXPECT_THAT(packet.getUnitTime(), IsFraction(1, 30));
            pts.push_back(packet.getPacket().pts);
        }
    };
    const std::vector<int64_t> ticks = {0, 1, 4, 5, 30, 31, 33};
    for (const int64_t tick : ticks)
        note(encoder->writeNextFrame(plainImage(48, 64), Rational(tick, 30)));
    note(encoder->flush());
    EXPECT_EQ(pts, ticks);
}

TEST_F(VideoPacketEncoderTest, TheFirstFramesYieldNoPackets) {
    open(48, 64);
    EXPECT_THAT(encoder->writeNextFrame(plainImage(48, 64)), IsEmpty());
    EXPECT_THAT(encoder->writeNextFrame(plainImage(48, 64)), IsEmpty());
    EXPECT_THAT(encoder->flush(), ::testing::SizeIs(2));
}

TEST_F(VideoPacketEncoderTest, NoFrameMayFollowAFlush) {
    open(48, 64);
    encoder->flush();
    EXPECT_THROW(encoder->writeNextFrame(plainImage(48, 64), Rational()), tio::Exception);
    EXPECT_THROW(encoder->writeNextFrame(plainImage(48, 64)), tio::Exception);
}

// Images

TEST_F(VideoPacketEncoderTest, AnEvenImageIsEncodedAsItIs) {
    expectEncodedAs(spottedImage(48, 64), spottedImage(48, 64));
}

TEST_F(VideoPacketEncoderTest, AnEvenImageIsNotCopied) {
    noteTimes();
    open(240, 320);
    const Image image = spottedImage(240, 320); // large enough for the allocator to keep
    MatAlloc::getGlobalMatAlloc()->trim();
    encoder->writeNextFrame(image);
    EXPECT_EQ(MatAlloc::getGlobalMatAlloc()->cachedBytes(), 0u) << "a copy came back";
}

TEST_F(VideoPacketEncoderTest, AnOddColumnIsPaddedAndTheLastRowBlackened) {
    const Image image = spottedImage(480, 641);
    Image padded(tio::Vec<int, 2>(480, 642));
    for (int r = 0; r < 480; ++r) {
        for (int c = 0; c < 642; ++c)
            padded(r, c) = c == 641 || r == 479 ? Pixel(0, 0, 0) : image(r, c);
    }
    expectEncodedAs(image, padded);
}

TEST_F(VideoPacketEncoderTest, AnOddRowIsAddedAsTheAllocatorGaveIt) {
    const Image image = spottedImage(481, 640);
    Image padded = plainImage(482, 640, Pixel(200, 30, 77));
    for (int r = 0; r < 481; ++r) {
        for (int c = 0; c < 640; ++c)
            padded(r, c) = image(r, c);
    }
    { const Image dirty = plainImage(482, 640, Pixel(200, 30, 77)); }
    expectEncodedAs(image, padded);
}

TEST_F(VideoPacketEncoderTest, WithBothSidesOddTheAddedRowIsBlackAtItsEndOnly) {
    const Image image = spottedImage(481, 641);
    Image padded = plainImage(482, 642, Pixel(200, 30, 77));
    for (int r = 0; r < 482; ++r) {
        for (int c = 0; c < 641 && r < 481; ++c)
            padded(r, c) = image(r, c);
        padded(r, 641) = Pixel(0, 0, 0);
    }
    { const Image dirty = plainImage(482, 642, Pixel(200, 30, 77)); }
    expectEncodedAs(image, padded);
}

TEST_F(VideoPacketEncoderTest, TheCallersImageIsLeftAsItIs) {
    const Image image = plainImage(48, 63);
    open(48, 63);
    encoder->writeNextFrame(image, Rational());
    EXPECT_EQ(image.cols(), 63);
    EXPECT_EQ(image(47, 62), Pixel(90, 120, 150));
}

TEST_F(VideoPacketEncoderTest, AnImageOfTheRoundedSizeFitsToo) {
    open(47, 63);
    EXPECT_NO_THROW(encoder->writeNextFrame(plainImage(48, 64), Rational()));
}

TEST_F(VideoPacketEncoderTest, AnImageOfAnotherSizeThrowsAndChangesNothing) {
    noteTimes();
    open(48, 64);
    const std::string message =
        "An image of 48 rows and 32 columns does not fit an encoder of 48 by 64";
    EXPECT_EQ(thrownText<tio::Exception>([this] { encoder->writeNextFrame(plainImage(48, 32)); }),
              message);
    EXPECT_THAT(ownLines(log),
                ElementsAre(IsLogLine("root", 4, message + placeText("VideoPacketEncoder", 88)),
                            IsLogLine("root", 4, "Assertion failed: image.size == size")));
    EXPECT_THROW(encoder->writeNextFrame(plainImage(50, 64)), tio::Exception);
    EXPECT_THROW(encoder->writeNextFrame(Image()), tio::Exception);
    encoder->writeNextFrame(plainImage(48, 64));
    EXPECT_THAT(times, ElementsAre(0));
}

} // namespace
} // namespace tio::ffmpeg
