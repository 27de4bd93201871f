#include "support/EncoderInput.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Muxing.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/AudioPacketEncoder.h>
#include <TARN/videoio/Exception.h>

#include <cstdint>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::Block;
using test::ffmpegText;
using test::IsFraction;
using test::IsLogLine;
using test::numberedBlock;
using test::ownLines;
using test::placeText;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::Gt;
using ::testing::SizeIs;

constexpr int mono = 4;   // the speaker in front
constexpr int stereo = 3; // left and right

class ProbeEncoder : public AudioPacketEncoder {
public:
    using AudioPacketEncoder::AudioPacketEncoder;

    using PacketEncoder::codecContext;
    using PacketEncoder::codecParameters;
    using PacketEncoder::frame;
};

// What FFmpeg's encoder, called directly, answers to the second of two equal blocks of silence.
int answerToSecondBlock(int rows) {
    const test::CodecPointer codec(
        test::checkFound(avcodec_alloc_context3(avcodec_find_encoder(AV_CODEC_ID_AAC)), "AAC"));
    compat::setChannelMask(*codec, stereo);
    codec->sample_rate = 48000;
    codec->sample_fmt = AV_SAMPLE_FMT_FLTP;
    codec->time_base = {1, 48000};
    test::check(avcodec_open2(codec.get(), nullptr, nullptr), "opening AAC");
    const test::FramePointer frame(test::checkFound(av_frame_alloc(), "frame"));
    frame->sample_rate = codec->sample_rate;
    frame->format = codec->sample_fmt;
    frame->nb_samples = rows;
    compat::copyChannels(*frame, *codec);
    test::check(av_frame_get_buffer(frame.get(), 1), "samples");
    for (int channel = 0; channel < 2; ++channel)
        std::memset(frame->data[channel], 0, static_cast<size_t>(rows) * sizeof(float));
    frame->pts = 0;
    test::check(avcodec_send_frame(codec.get(), frame.get()), "first block");
    const test::PacketPointer packet(test::checkFound(av_packet_alloc(), "packet"));
    avcodec_receive_packet(codec.get(), packet.get()); // takes the first block in
    frame->pts = rows;
    return avcodec_send_frame(codec.get(), frame.get());
}

class AudioPacketEncoderTest : public ::testing::Test {
protected:
    ~AudioPacketEncoderTest() override {
        if (encoder) // a frame that nobody flushes stays
            av_frame_free(&encoder->frame);
    }

    void open(int layout = stereo, int rate = 48000, Rational timeBase = Rational()) {
        encoder = std::make_unique<ProbeEncoder>(layout, rate, timeBase);
    }

    // Swallows the blocks and notes their times.
    void noteTimes() {
        intercepted->avcodec_send_frame.instead = [this](AVCodecContext*, const AVFrame* frame) {
            times.push_back(frame->pts);
            return 0;
        };
    }

    void expectBlockFails(int rows) const {
        EXPECT_EQ(thrownText<Exception>(
                      [&] { encoder->writeNextFrame(numberedBlock(rows, 2), Rational()); }),
                  ffmpegText(AVERROR(EINVAL)) + placeText("AudioPacketEncoder", 79))
            << rows;
    }

    test::Interception intercepted;
    test::LogCapture log;
    std::unique_ptr<ProbeEncoder> encoder;
    std::vector<int64_t> times;
};

// Construction

TEST_F(AudioPacketEncoderTest, WithoutATimeBaseItCountsSamples) {
    open(stereo, 48000, Rational(0, 1));
    EXPECT_THAT(encoder->getUnitTime(), IsFraction(1, 48000));
    EXPECT_EQ(compat::channelCount(*encoder->codecContext), 2);
    EXPECT_EQ(encoder->getFrameWidth(), 1024u);
}

TEST_F(AudioPacketEncoderTest, ATimeBaseThatIsGivenStays) {
    open(mono, 44100, Rational(1, 1000));
    EXPECT_THAT(encoder->getUnitTime(), IsFraction(1, 1000));
    EXPECT_EQ(encoder->codecContext->time_base.den, 1000);
}

TEST_F(AudioPacketEncoderTest, EncodesAacFromPlanarFloat) {
    open(stereo, 44100);
    EXPECT_EQ(encoder->codecParameters->codec_id, AV_CODEC_ID_AAC);
    EXPECT_EQ(encoder->codecContext->sample_fmt, AV_SAMPLE_FMT_FLTP);
    EXPECT_EQ(encoder->codecContext->sample_rate, 44100);
    EXPECT_EQ(compat::channelMask(*encoder->codecContext), 3u);
}

TEST_F(AudioPacketEncoderTest, GivesTheCodecNoOptions) {
    bool asked = false;
    intercepted->codecOptions = [&](const AVDictionary* options) {
        asked = true;
        EXPECT_EQ(av_dict_count(options), 0);
    };
    open();
    EXPECT_TRUE(asked);
}

TEST_F(AudioPacketEncoderTest, TheFrameHasTheFormatButNoSamplesYet) {
    open(stereo, 44100);
    const AVFrame& frame = *encoder->frame;
    EXPECT_EQ(frame.sample_rate, 44100);
    EXPECT_EQ(frame.format, AV_SAMPLE_FMT_FLTP);
    EXPECT_EQ(compat::channelCount(frame), 2);
    EXPECT_EQ(compat::channelMask(frame), 3u);
    EXPECT_EQ(frame.nb_samples, 0);
    EXPECT_EQ(frame.data[0], nullptr);
    EXPECT_EQ(frame.pts, -1);
}

TEST_F(AudioPacketEncoderTest, OpensEveryLayoutThatAacHas) {
    for (const int layout : {0x4, 0x3, 0xB, 0x3F, 0x60F, 0x63F}) {
        open(layout);
        EXPECT_EQ(compat::channelMask(*encoder->codecContext), static_cast<uint64_t>(layout));
        av_frame_free(&encoder->frame);
    }
}

TEST_F(AudioPacketEncoderTest, TheFrameWidthIsZeroForACodecThatTakesAnyLength) {
    open();
    const AVCodec* aac = encoder->codecContext->codec;
    encoder->codecContext->codec = avcodec_find_encoder(AV_CODEC_ID_PCM_S16LE);
    EXPECT_EQ(encoder->getFrameWidth(), 0u);
    encoder->codecContext->codec = aac;
}

TEST_F(AudioPacketEncoderTest, AMissingAacEncoderIsCalledH264) {
    intercepted->avcodec_find_encoder.instead = [](AVCodecID) -> const AVCodec* { return nullptr; };
    EXPECT_EQ(thrownText<tio::Exception>([this] { open(); }),
              "Could not find ffmpeg's h264 encoder");
}

TEST_F(AudioPacketEncoderTest, ThrowsOnALayoutWithoutOrWithTooManySpeakers) {
    for (const int layout : {0, 0x7FF, -1})
        EXPECT_EQ(thrownText<Exception>([&] { open(layout); }),
                  ffmpegText(AVERROR(EINVAL)) + placeText("PacketEncoder", 82))
            << layout;
}

TEST_F(AudioPacketEncoderTest, ThrowsOnARateThatIsNone) {
    for (const int rate : {0, -48000, 12345})
        EXPECT_EQ(thrownText<Exception>([&] { open(stereo, rate); }),
                  ffmpegText(AVERROR(EINVAL)) + placeText("PacketEncoder", 82))
            << rate;
}

TEST_F(AudioPacketEncoderTest, ThrowsWithoutMemoryForTheFrame) {
    intercepted->av_frame_alloc.instead = []() -> AVFrame* { return nullptr; };
    EXPECT_EQ(thrownText<tio::Exception>([this] { open(); }), "Could not allocate frame");
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 4,
                                                     "Could not allocate frame" +
                                                         placeText("AudioPacketEncoder", 44)),
                                           IsLogLine("root", 4, "Assertion failed: frame")));
}

// Times

TEST_F(AudioPacketEncoderTest, BlocksWithoutATimeAreOneTickApartAndNotOneBlock) {
    noteTimes();
    open();
    for (int i = 0; i < 3; ++i)
        encoder->writeNextFrame(numberedBlock(1024, 2));
    EXPECT_THAT(times, ElementsAre(0, 1, 2));
    EXPECT_THAT(encoder->getFrameTime(), IsFraction(1, 24000));
}

TEST_F(AudioPacketEncoderTest, ABlockWithoutATimeAfterOneAtZeroIsOneTickLater) {
    noteTimes();
    open();
    encoder->writeNextFrame(numberedBlock(1024, 2), Rational());
    encoder->writeNextFrame(numberedBlock(1024, 2));
    EXPECT_THAT(times, ElementsAre(0, 1));
    EXPECT_THAT(encoder->getFrameTime(), IsFraction(1, 48000));
}

TEST_F(AudioPacketEncoderTest, ATimeBetweenTwoTicksIsTruncatedTowardZero) {
    noteTimes();
    open(stereo, 48000, Rational(1, 1000));
    encoder->writeNextFrame(numberedBlock(1024, 2), Rational(1024, 48000)); // 21.33 ms
    encoder->writeNextFrame(numberedBlock(1024, 2), Rational(-1024, 48000));
    EXPECT_THAT(times, ElementsAre(21, -21));
}

TEST_F(AudioPacketEncoderTest, BlocksWithTimesBecomePacketsWithThoseTimesAfterTheEncodersDelay) {
    open();
    std::vector<int64_t> pts;
    const auto note = [&](const std::vector<OutputPacket>& packets) {
        for (const OutputPacket& packet : packets) {
            EXPECT_THAT(packet.getUnitTime(), IsFraction(1, 48000));
            EXPECT_EQ(packet.getEncodingCodec(), Codec::Aac);
            EXPECT_EQ(packet.getPacket().duration, 1024);
            pts.push_back(packet.getPacket().pts);
        }
    };
    for (int64_t i = 0; i < 3; ++i)
        note(encoder->writeNextFrame(numberedBlock(1024, 2), Rational(1024 * i, 48000)));
    note(encoder->flush());
    EXPECT_THAT(pts, ElementsAre(-1024, 0, 1024, 2048));
}

// Blocks

TEST_F(AudioPacketEncoderTest, ColumnsBecomePlanes) {
    noteTimes();
    open();
    Block block = numberedBlock(1024, 2);
    encoder->writeNextFrame(block, Rational());
    for (int channel = 0; channel < 2; ++channel) {
        const auto* plane = reinterpret_cast<const float*>(encoder->frame->data[channel]);
        for (int i = 0; i < 1024; ++i)
            ASSERT_EQ(plane[i], block(i, channel)) << channel << ", " << i;
    }
}

TEST_F(AudioPacketEncoderTest, EightChannelsHaveAPlaneEach) {
    noteTimes();
    open(0x63F); // 7.1
    Block block = numberedBlock(1024, 8);
    encoder->writeNextFrame(block, Rational());
    for (int channel = 0; channel < 8; ++channel)
        EXPECT_EQ(reinterpret_cast<const float*>(encoder->frame->data[channel])[1023],
                  block(1023, channel));
}

TEST_F(AudioPacketEncoderTest, AllBlocksGoThroughOneBuffer) {
    noteTimes();
    int alignment = 0;
    intercepted->av_frame_get_buffer.instead = [&](AVFrame* frame, int asked) {
        alignment = asked;
        return test::real::getBuffer(frame, asked);
    };
    open();
    for (int i = 0; i < 3; ++i)
        encoder->writeNextFrame(numberedBlock(500, 2));
    EXPECT_EQ(intercepted->av_frame_get_buffer.count, 1);
    EXPECT_EQ(alignment, 1);
    EXPECT_EQ(encoder->frame->nb_samples, 500);
}

TEST_F(AudioPacketEncoderTest, ABlockOfAnotherLengthThrows) {
    open();
    encoder->writeNextFrame(numberedBlock(1024, 2), Rational());
    const std::string expected = ffmpegText(AVERROR(EINVAL)) + placeText("AudioPacketEncoder", 79);
    EXPECT_EQ(thrownText<Exception>([this] { encoder->writeNextFrame(numberedBlock(300, 2)); }),
              expected);
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 5, expected)));
}

TEST_F(AudioPacketEncoderTest, AfterABlockOfAnotherLengthEveryBlockThrowsWhateverItsLength) {
    open();
    encoder->writeNextFrame(numberedBlock(1024, 2), Rational());
    for (const int rows : {300, 300, 1024, 1024, 300})
        expectBlockFails(rows);
}

TEST_F(AudioPacketEncoderTest, AfterABlockOfAnotherLengthTheBlocksBeforeAreStillFlushed) {
    open();
    auto packets = encoder->writeNextFrame(numberedBlock(1024, 2), Rational()).size();
    packets += encoder->writeNextFrame(numberedBlock(1024, 2), Rational(1024, 48000)).size();
    expectBlockFails(300);
    packets += encoder->flush().size();
    EXPECT_EQ(packets, 3u);
}

// Newer releases of FFmpeg allow only the last block of all to be short.
TEST_F(AudioPacketEncoderTest, BlocksShorterThanAFrameAreTakenOrRefusedAsByFfmpeg) {
    open();
    encoder->writeNextFrame(numberedBlock(500, 2), Rational());
    const auto writeAnother = [this] {
        encoder->writeNextFrame(numberedBlock(500, 2), Rational(500, 48000));
    };
    const int answer = answerToSecondBlock(500);
    if (answer >= 0)
        EXPECT_NO_THROW(writeAnother());
    else
        EXPECT_EQ(thrownText<Exception>(writeAnother),
                  ffmpegText(answer) + placeText("PacketEncoder", 140));
}

TEST_F(AudioPacketEncoderTest, AnEmptyBlockThrowsAndTheNextStillFits) {
    noteTimes();
    open();
    expectBlockFails(0);
    encoder->writeNextFrame(numberedBlock(1024, 2), Rational());
    EXPECT_THAT(times, SizeIs(1));
}

TEST_F(AudioPacketEncoderTest, ThrowsWithoutMemoryForTheSamples) {
    open();
    intercepted->av_frame_get_buffer.instead = [](AVFrame*, int) { return AVERROR(ENOMEM); };
    const std::string expected = ffmpegText(AVERROR(ENOMEM)) + placeText("AudioPacketEncoder", 79);
    EXPECT_EQ(thrownText<Exception>([this] { encoder->writeNextFrame(numberedBlock(1024, 2)); }),
              expected);
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 5, expected)));
}

TEST_F(AudioPacketEncoderTest, ABlockWithAnotherNumberOfChannelsThrowsAndChangesNothing) {
    noteTimes();
    open();
    const std::string message = "A block of 1 channels does not fit an encoder of 2";
    EXPECT_EQ(
        thrownText<tio::Exception>([this] { encoder->writeNextFrame(numberedBlock(1024, 1)); }),
        message);
    EXPECT_THAT(ownLines(log),
                ElementsAre(IsLogLine("root", 4, message + placeText("AudioPacketEncoder", 91)),
                            IsLogLine("root", 4, "Assertion failed: samples.cols() == channels")));
    EXPECT_THROW(encoder->writeNextFrame(numberedBlock(1024, 3)), tio::Exception);
    EXPECT_THROW(encoder->writeNextFrame(Block()), tio::Exception);
    encoder->writeNextFrame(numberedBlock(1024, 2));
    EXPECT_THAT(times, ElementsAre(0));
}

TEST_F(AudioPacketEncoderTest, NoBlockMayFollowAFlush) {
    open();
    encoder->flush();
    EXPECT_EQ(thrownText<tio::Exception>(
                  [this] { encoder->writeNextFrame(numberedBlock(1024, 2), Rational()); }),
              "No frame may follow a flush");
    EXPECT_THROW(encoder->writeNextFrame(numberedBlock(1024, 2)), tio::Exception);
}

TEST_F(AudioPacketEncoderTest, FlushingGivesWhatTheEncoderHeldBack) {
    open();
    encoder->writeNextFrame(numberedBlock(1024, 2), Rational());
    EXPECT_THAT(encoder->flush(), SizeIs(Gt(0u)));
}

} // namespace
} // namespace tio::ffmpeg
