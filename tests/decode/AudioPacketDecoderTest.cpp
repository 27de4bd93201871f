#include "support/BareObjects.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Muxing.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/AudioPacketDecoder.h>
#include <TARN/videoio/Exception.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::IsFraction;
using test::IsLogLine;
using test::ownLines;
using test::placeText;
using test::thrownText;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ProbeDecoder : public AudioPacketDecoder {
public:
    using PacketDecoder::getCodecContext;
};

// The decoder over a codec that answers with frames of the test's own.
class AudioPacketDecoderTest : public ::testing::Test {
protected:
    AudioPacketDecoderTest() {
        AVCodecParameters& parameters = *context.stream().codecpar;
        parameters.codec_type = AVMEDIA_TYPE_AUDIO;
        parameters.codec_id = AV_CODEC_ID_PCM_S16LE;
        parameters.sample_rate = 44100;
        compat::setChannelMask(parameters, AV_CH_LAYOUT_STEREO);
        context.stream().time_base = {1, 44100};
        intercepted->avcodec_send_packet.instead = [](AVCodecContext*, const AVPacket*) {
            return 0;
        };
        intercepted->avcodec_receive_frame.instead = [this](AVCodecContext*, AVFrame* frame) {
            if (!next)
                return AVERROR(EAGAIN);
            av_frame_unref(frame);
            av_frame_move_ref(frame, next.get());
            next.reset();
            return 0;
        };
    }

    // Opens the codec.
    void prime() {
        const auto data = test::makePacket({1, 2, 3, 4});
        decoder.offerPacket(std::make_shared<InputPacket>(data.get(), &context.stream()));
    }

    // The codec's next frame, of which the test fills in the samples.
    AVFrame& prepare(AVSampleFormat format, int samples, uint64_t mask, int64_t pts = 0) {
        if (decoder.getCodecContext() == nullptr)
            prime();
        decoder.getCodecContext()->sample_fmt = format;
        next.reset(av_frame_alloc());
        next->format = format;
        next->sample_rate = 44100;
        next->nb_samples = samples;
        next->pts = pts;
        compat::setChannelMask(*next, mask);
        if (samples > 0)
            test::check(av_frame_get_buffer(next.get(), 0), "samples");
        return *next;
    }

    // What one row of samples in two channels becomes.
    template <typename T>
    std::vector<float> convert(AVSampleFormat format, T left, T right) {
        AVFrame& frame = prepare(format, 1, AV_CH_LAYOUT_STEREO);
        const bool planar = av_sample_fmt_is_planar(format) != 0;
        std::memcpy(frame.data[0], &left, sizeof left);
        std::memcpy(planar ? frame.data[1] : frame.data[0] + sizeof left, &right, sizeof right);
        const auto converted = readFresh();
        EXPECT_EQ(converted.samples.size, (tio::Vec<int, 2>(1, 2)));
        return {converted.samples.data(), converted.samples.data() + converted.samples.count};
    }

    // Reads a frame whatever its time is.
    AudioPacketDecoder::Frame readFresh() {
        intercepted->avcodec_flush_buffers.instead = [](AVCodecContext*) {};
        decoder.flush();
        return decoder.readNextFrame();
    }

    test::Interception intercepted;
    test::LogCapture log;
    test::BareContext context;
    test::FramePointer next;
    ProbeDecoder decoder;
};

float fromBits(uint32_t bits) {
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// Sample formats: exact values, worked out by hand

TEST_F(AudioPacketDecoderTest, Unsigned8IsDividedBy255AndNotCentred) {
    for (const AVSampleFormat format : {AV_SAMPLE_FMT_U8, AV_SAMPLE_FMT_U8P}) {
        EXPECT_THAT(convert<uint8_t>(format, 0, 255), ElementsAre(0.0F, 1.0F));
        EXPECT_THAT(convert<uint8_t>(format, 1, 128),
                    ElementsAre(fromBits(0x3B808081), 128 * fromBits(0x3B808081)));
    }
    EXPECT_NEAR(convert<uint8_t>(AV_SAMPLE_FMT_U8, 128, 0)[0], 0.50196, 0.00001) << "silence";
}

TEST_F(AudioPacketDecoderTest, Signed16IsDividedBy32768) {
    for (const AVSampleFormat format : {AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_S16P}) {
        EXPECT_THAT(convert<int16_t>(format, -32768, 32767),
                    ElementsAre(-1.0F, 0.999969482421875F));
        EXPECT_THAT(convert<int16_t>(format, 0, 1), ElementsAre(0.0F, fromBits(0x38000000)));
        EXPECT_THAT(convert<int16_t>(format, -1, 16384), ElementsAre(-fromBits(0x38000000), 0.5F));
    }
}

TEST_F(AudioPacketDecoderTest, Signed32IsRoundedToFloatThenDividedByTwoToThe31) {
    constexpr int32_t most = std::numeric_limits<int32_t>::max();
    constexpr int32_t least = std::numeric_limits<int32_t>::min();
    for (const AVSampleFormat format : {AV_SAMPLE_FMT_S32, AV_SAMPLE_FMT_S32P}) {
        EXPECT_THAT(convert<int32_t>(format, least, most), ElementsAre(-1.0F, 1.0F));
        EXPECT_THAT(convert<int32_t>(format, 1, -1),
                    ElementsAre(fromBits(0x30000000), -fromBits(0x30000000)));
        // 2^24 + 1 has no float of its own and goes to the even neighbour, 2^24.
        EXPECT_THAT(convert<int32_t>(format, 16777217, 1 << 30), ElementsAre(0.0078125F, 0.5F));
    }
}

TEST_F(AudioPacketDecoderTest, FloatsAreTakenAsTheyAreAlsoOutsideTheRange) {
    for (const AVSampleFormat format : {AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_FLTP}) {
        EXPECT_THAT(convert<float>(format, 0.1F, -3.5F), ElementsAre(0.1F, -3.5F));
        const auto odd = convert<float>(format, std::numeric_limits<float>::infinity(), NAN);
        EXPECT_TRUE(std::isinf(odd[0]));
        EXPECT_TRUE(std::isnan(odd[1]));
    }
}

TEST_F(AudioPacketDecoderTest, DoublesAreRoundedToFloat) {
    for (const AVSampleFormat format : {AV_SAMPLE_FMT_DBL, AV_SAMPLE_FMT_DBLP})
        EXPECT_THAT(convert<double>(format, 0.1, -1.0 - 1e-12),
                    ElementsAre(fromBits(0x3DCCCCCD), -1.0F));
}

// Layout of the samples

TEST_F(AudioPacketDecoderTest, InterleavedAndPlanarSamplesGiveTheSameMatrix) {
    const std::vector<int16_t> left = {1, 2, 3, 4, 5};
    const std::vector<int16_t> right = {-10, -20, -30, -40, -50};
    AVFrame& interleaved = prepare(AV_SAMPLE_FMT_S16, 5, AV_CH_LAYOUT_STEREO);
    auto* both = reinterpret_cast<int16_t*>(interleaved.data[0]);
    for (size_t i = 0; i < left.size(); ++i) {
        both[2 * i] = left[i];
        both[2 * i + 1] = right[i];
    }
    const auto first = readFresh().samples;
    AVFrame& planar = prepare(AV_SAMPLE_FMT_S16P, 5, AV_CH_LAYOUT_STEREO);
    std::memcpy(planar.data[0], left.data(), 10);
    std::memcpy(planar.data[1], right.data(), 10);
    const auto second = readFresh().samples;

    ASSERT_EQ(first.size, (tio::Vec<int, 2>(5, 2)));
    ASSERT_EQ(second.size, first.size);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(first(i, 0), static_cast<float>(left[static_cast<size_t>(i)]) / 32768.0F);
        EXPECT_EQ(first(i, 1), static_cast<float>(right[static_cast<size_t>(i)]) / 32768.0F);
        EXPECT_EQ(second(i, 0), first(i, 0));
        EXPECT_EQ(second(i, 1), first(i, 1));
    }
}

TEST_F(AudioPacketDecoderTest, MoreThanEightPlanesAreReadToo) {
    constexpr uint64_t tenSpeakers = 0x3FF;
    AVFrame& frame = prepare(AV_SAMPLE_FMT_FLTP, 3, tenSpeakers);
    for (int channel = 0; channel < 10; ++channel) {
        for (int i = 0; i < 3; ++i)
            reinterpret_cast<float*>(frame.extended_data[channel])[i] =
                static_cast<float>(100 * channel + i);
    }
    const auto samples = readFresh().samples;
    ASSERT_EQ(samples.size, (tio::Vec<int, 2>(3, 10)));
    for (int channel = 0; channel < 10; ++channel)
        EXPECT_EQ(samples(2, channel), static_cast<float>(100 * channel + 2));
}

TEST_F(AudioPacketDecoderTest, MoreThanEightInterleavedChannelsAreReadToo) {
    AVFrame& frame = prepare(AV_SAMPLE_FMT_FLT, 2, 0x3FF);
    for (int i = 0; i < 20; ++i)
        reinterpret_cast<float*>(frame.data[0])[i] = static_cast<float>(i);
    const auto samples = readFresh().samples;
    ASSERT_EQ(samples.size, (tio::Vec<int, 2>(2, 10)));
    EXPECT_EQ(samples(1, 9), 19.0F);
}

TEST_F(AudioPacketDecoderTest, AFrameWithoutSamplesIsEmptyAndHasItsTime) {
    prepare(AV_SAMPLE_FMT_S16, 0, AV_CH_LAYOUT_STEREO, 4410);
    const auto frame = readFresh();
    EXPECT_EQ(frame.samples.rows(), 0);
    EXPECT_EQ(frame.samples.count, 0);
    EXPECT_THAT(frame.timestamp, IsFraction(1, 10));
    EXPECT_EQ(frame.sampleRate, 44100);
}

// What comes with the samples

TEST_F(AudioPacketDecoderTest, TellsTimeRateAndLayoutOfTheBlock) {
    prepare(AV_SAMPLE_FMT_S16, 1, AV_CH_LAYOUT_STEREO, 1024);
    const auto frame = readFresh();
    EXPECT_THAT(frame.timestamp, IsFraction(256, 11025));
    EXPECT_THAT(frame.unitTime, IsFraction(1, 44100));
    EXPECT_EQ(frame.sampleRate, 44100);
    EXPECT_EQ(frame.channelLayout, 3);
    EXPECT_EQ(decoder.getSampleRate(), 44100);
    EXPECT_EQ(decoder.getChannelLayout(), 3);
}

TEST_F(AudioPacketDecoderTest, ALayoutIsReportedWithoutTheBitsAbove31) {
    prepare(AV_SAMPLE_FMT_S16, 1, AV_CH_LAYOUT_STEREO);
    compat::setChannelMask(*decoder.getCodecContext(), (uint64_t{1} << 33) | 0x80000003);
    EXPECT_EQ(decoder.getChannelLayout(), std::numeric_limits<int>::min() + 3);
    EXPECT_EQ(readFresh().channelLayout, std::numeric_limits<int>::min() + 3);
}

TEST_F(AudioPacketDecoderTest, WithoutAFrameEverythingIsEmpty) {
    prime();
    const auto frame = decoder.readNextFrame();
    EXPECT_EQ(frame.samples.count, 0);
    EXPECT_EQ(frame.samples.storage, nullptr);
    EXPECT_THAT(frame.timestamp, IsFraction(0, 1));
    EXPECT_THAT(frame.unitTime, IsFraction(0, 1));
    EXPECT_EQ(frame.sampleRate, 0);
    EXPECT_EQ(frame.channelLayout, 0);
}

TEST_F(AudioPacketDecoderTest, CopiesOfAFrameShareTheirSamples) {
    prepare(AV_SAMPLE_FMT_S16, 4, AV_CH_LAYOUT_STEREO);
    const auto frame = readFresh();
    const auto copy = frame;
    EXPECT_EQ(copy.samples.storage, frame.samples.storage);
}

TEST_F(AudioPacketDecoderTest, SamplesStayAsTheyAreWhenTheDecoderGoesOn) {
    AVFrame& one = prepare(AV_SAMPLE_FMT_FLT, 1, AV_CH_LAYOUT_MONO);
    reinterpret_cast<float*>(one.data[0])[0] = 0.25F;
    const auto first = readFresh();
    AVFrame& two = prepare(AV_SAMPLE_FMT_FLT, 1, AV_CH_LAYOUT_MONO);
    reinterpret_cast<float*>(two.data[0])[0] = 0.75F;
    readFresh();
    EXPECT_EQ(first.samples(0, 0), 0.25F);
}

TEST_F(AudioPacketDecoderTest, BlocksOfTheSameOrAFallingTimeAreDropped) {
    prepare(AV_SAMPLE_FMT_S16, 1, AV_CH_LAYOUT_STEREO, 100);
    EXPECT_EQ(decoder.readNextFrame().samples.rows(), 1);
    prepare(AV_SAMPLE_FMT_S16, 1, AV_CH_LAYOUT_STEREO, 100);
    EXPECT_EQ(decoder.readNextFrame().samples.rows(), 0);
}

// Failures

TEST_F(AudioPacketDecoderTest, AnUnknownSampleFormatThrowsAndTheDecoderStaysUsable) {
    for (const int format :
         {static_cast<int>(AV_SAMPLE_FMT_NONE), static_cast<int>(AV_SAMPLE_FMT_S64),
          static_cast<int>(AV_SAMPLE_FMT_S64P)}) {
        prepare(AV_SAMPLE_FMT_S16, 1, AV_CH_LAYOUT_STEREO);
        decoder.getCodecContext()->sample_fmt = static_cast<AVSampleFormat>(format);
        EXPECT_EQ(thrownText<tio::Exception>([this] { readFresh(); }), "Unknown sample format");
        prepare(AV_SAMPLE_FMT_S16, 1, AV_CH_LAYOUT_STEREO);
        EXPECT_EQ(readFresh().samples.rows(), 1);
    }
    EXPECT_THAT(ownLines(log), IsEmpty());
}

TEST_F(AudioPacketDecoderTest, AFrameInAnotherFormatThanTheCodecSaysIsReadByItsOwn) {
    AVFrame& frame = prepare(AV_SAMPLE_FMT_U8, 2, AV_CH_LAYOUT_MONO);
    frame.data[0][0] = 255;
    frame.data[0][1] = 0;
    decoder.getCodecContext()->sample_fmt = AV_SAMPLE_FMT_DBL; // would read past the frame
    const auto samples = readFresh().samples;
    EXPECT_EQ(samples(0, 0), 1.0F);
    EXPECT_EQ(samples(1, 0), 0.0F);
}

TEST_F(AudioPacketDecoderTest, RateAndLayoutAreUnknownBeforeTheFirstPacket) {
    const std::string message = "Sound parameters are not known before the first packet";
    EXPECT_EQ(thrownText<tio::Exception>([this] { static_cast<void>(decoder.getSampleRate()); }),
              message);
    EXPECT_THAT(ownLines(log),
                ElementsAre(IsLogLine("root", 4, message + placeText("AudioPacketDecoder", 31)),
                            IsLogLine("root", 4, "Assertion failed: codecContext")));
    EXPECT_EQ(thrownText<tio::Exception>([this] { static_cast<void>(decoder.getChannelLayout()); }),
              message);
    EXPECT_EQ(decoder.readNextFrame().samples.count, 0);
}

TEST_F(AudioPacketDecoderTest, AFailureWhileDecodingIsTheEngines) {
    prime();
    intercepted->avcodec_receive_frame.instead = [](AVCodecContext*, AVFrame*) {
        return AVERROR_INVALIDDATA;
    };
    EXPECT_EQ(thrownText<Exception>([this] { decoder.readNextFrame(); }),
              test::ffmpegText(AVERROR_INVALIDDATA) + placeText("PacketDecoder", 161));
}

} // namespace
} // namespace tio::ffmpeg
