#include "PacketEncoderFixture.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/Muxing.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/PacketEncoder.h>

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::IsLogLine;
using test::ownLines;
using test::PacketEncoderTest;
using test::placeText;
using test::ProbeEncoder;
using test::thrownText;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::SizeIs;

// Finding and opening the encoder

TEST_F(PacketEncoderTest, AMissingEncoderIsCalledH264WhicheverWasAskedFor) {
    intercepted->avcodec_find_encoder.instead = [](AVCodecID) -> const AVCodec* { return nullptr; };
    for (const AVCodecID id : {AV_CODEC_ID_H264, AV_CODEC_ID_AAC}) {
        log.clear();
        EXPECT_EQ(thrownText<tio::Exception>([id] { ProbeEncoder(Rational(1, 25), id); }),
                  "Could not find ffmpeg's h264 encoder");
        EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 4,
                                                         "Could not find ffmpeg's h264 encoder" +
                                                             placeText("PacketEncoder", 51)),
                                               IsLogLine("root", 4, "Assertion failed: codec")));
    }
}

TEST_F(PacketEncoderTest, FindsTheEncoderOfACodec) {
    EXPECT_EQ(PacketEncoder::findEncoder(AV_CODEC_ID_AAC)->id, AV_CODEC_ID_AAC);
    EXPECT_TRUE(av_codec_is_encoder(PacketEncoder::findEncoder(AV_CODEC_ID_AAC)));
}

TEST_F(PacketEncoderTest, OpensWithoutBFramesWithAGlobalHeaderOnAllThreads) {
    AVCodecContext opened = {};
    intercepted->avcodec_open2.instead = [&](AVCodecContext* codec) {
        opened = *codec;
        return AVERROR(EINVAL);
    };
    EXPECT_THROW(open(Rational(1001, 30000)), Exception);
    EXPECT_EQ(opened.max_b_frames, 0);
    EXPECT_NE(opened.flags & AV_CODEC_FLAG_GLOBAL_HEADER, 0);
    EXPECT_EQ(opened.thread_count, static_cast<int>(std::thread::hardware_concurrency()));
    EXPECT_EQ(opened.time_base.num, 1001);
    EXPECT_EQ(opened.time_base.den, 30000);
}

TEST_F(PacketEncoderTest, ABitrateSetsTheRateControlGiveOrTakeAHalf) {
    struct Case {
        const char* text;
        int64_t rate, tolerance, most, least;
    };
    for (const Case& c : {Case{"1000000", 1000000, 500000, 1500000, 500000},
                          Case{"999", 999, 499, 1498, 500}, Case{" +12k", 12, 6, 18, 6},
                          Case{"2147483647", 2147483647, 1073741823, 3221225470, 1073741824}}) {
        AVCodecContext opened = {};
        intercepted->avcodec_open2.instead = [&](AVCodecContext* codec) {
            opened = *codec;
            return AVERROR(EINVAL);
        };
        EXPECT_THROW(open(Rational(1, 25), {{"bitrate", c.text}}), Exception);
        EXPECT_EQ(opened.bit_rate, c.rate) << c.text;
        EXPECT_EQ(opened.bit_rate_tolerance, c.tolerance) << c.text;
        EXPECT_EQ(opened.rc_max_rate, c.most) << c.text;
        EXPECT_EQ(opened.rc_min_rate, c.least) << c.text;
        EXPECT_EQ(opened.rc_buffer_size, c.rate) << c.text;
    }
}

TEST_F(PacketEncoderTest, TheBitrateEntryIsLeftInTheOptionsAndTheEncoderOpensWithIt) {
    std::string given;
    intercepted->codecOptions = [&](const AVDictionary* options) {
        given = av_dict_get(options, "bitrate", nullptr, 0)->value;
    };
    open(Rational(1, 25), {{"preset", "veryfast"}, {"bitrate", "200000"}});
    EXPECT_EQ(given, "200000");
}

TEST_F(PacketEncoderTest, ABitrateThatIsNoNumberThrows) {
    for (const char* text : {"", "fast", "k12", "-"})
        EXPECT_EQ(thrownText<std::invalid_argument>([&] {
                      open(Rational(1, 25), {{"bitrate", text}});
                  }),
                  "invalid stoi argument")
            << text;
}

TEST_F(PacketEncoderTest, ABitrateBeyondAnIntegerThrows) {
    for (const char* text : {"2147483648", "-2147483649", "99999999999999999999"})
        EXPECT_EQ(thrownText<std::out_of_range>([&] {
                      open(Rational(1, 25), {{"bitrate", text}});
                  }),
                  "stoi argument out of range")
            << text;
}

TEST_F(PacketEncoderTest, UnknownOptionsAreIgnored) {
    EXPECT_NO_THROW(open(Rational(1, 25), {{"preset", "veryfast"}, {"no such option", "7"}}));
}

TEST_F(PacketEncoderTest, ThrowsWhenTheEncoderRefusesItsSettings) {
    expectFailure(AVERROR(EINVAL), 82, [this] { open(Rational(0, 1)); });
}

TEST_F(PacketEncoderTest, ThrowsWhenTheParametersCannotBeRead) {
    intercepted->avcodec_parameters_from_context.instead =
        [](AVCodecParameters*, const AVCodecContext*) { return AVERROR(ENOMEM); };
    expectFailure(AVERROR(ENOMEM), 87, [this] { open(Rational(1, 25)); });
}

TEST_F(PacketEncoderTest, ThrowsWhenAnOptionCannotBeSet) {
    intercepted->av_dict_set.instead = [](AVDictionary**, const char*, const char*, int) {
        return AVERROR(ENOMEM);
    };
    AVDictionary* options = nullptr;
    expectFailure(AVERROR(ENOMEM), 214,
                  [&] { PacketEncoder::setOption(&options, "preset", "slow", 0); });
}

TEST_F(PacketEncoderTest, SetsOptionsWithFfmpegsFlags) {
    AVDictionary* options = nullptr;
    PacketEncoder::setOption(&options, "preset", "slow", 0);
    PacketEncoder::setOption(&options, "preset", "fast", AV_DICT_DONT_OVERWRITE);
    EXPECT_STREQ(av_dict_get(options, "preset", nullptr, 0)->value, "slow");
    PacketEncoder::setOption(&options, "preset", "fast", 0);
    EXPECT_STREQ(av_dict_get(options, "preset", nullptr, 0)->value, "fast");
    av_dict_free(&options);
}

// Parameters and the bytes that they need

TEST_F(PacketEncoderTest, KeepsACopyOfTheParameterSets) {
    open(Rational(1, 25));
    ASSERT_NE(encoder->extradata, nullptr);
    const auto* own = encoder->codecContext->extradata;
    EXPECT_THAT(*encoder->extradata,
                ::testing::ElementsAreArray(
                    own, static_cast<size_t>(encoder->codecContext->extradata_size)));
    EXPECT_NE(encoder->extradata->data(), own);
}

TEST_F(PacketEncoderTest, HasNoCopyWhenTheEncoderHasNoParameterSets) {
    encoder = std::make_unique<ProbeEncoder>(Rational(1, 25), AV_CODEC_ID_MPEG1VIDEO);
    intercepted->avcodec_open2.instead = [](AVCodecContext*) { return 0; };
    encoder->open({});
    EXPECT_EQ(encoder->extradata, nullptr);
}

TEST_F(PacketEncoderTest, EveryPacketSharesTheParametersAndTheirBytes) {
    open(Rational(1, 25));
    const auto packets = encodeAll({0, 1, 2, 3});
    ASSERT_THAT(packets, SizeIs(4));
    for (const OutputPacket& packet : packets)
        EXPECT_EQ(&packet.getCodecParameters(), encoder->codecParameters);
    EXPECT_EQ(encoder->extradata.use_count(), 1 + 4);
}

TEST_F(PacketEncoderTest, TheBytesOutliveTheEncoderAsLongAsAPacket) {
    open(Rational(1, 25));
    auto packets = encodeAll({0});
    const std::weak_ptr<std::vector<uint8_t>> watched = encoder->extradata;
    encoder.reset();
    EXPECT_FALSE(watched.expired());
    packets.clear();
    EXPECT_TRUE(watched.expired());
}

// The end

TEST_F(PacketEncoderTest, FlushingFreesTheFrameAndSendsTheEndOfTheStream) {
    open(Rational(1, 25));
    bool end = false;
    intercepted->avcodec_send_frame.instead = [&](AVCodecContext* codec, const AVFrame* frame) {
        end = frame == nullptr;
        return test::real::sendFrame(codec, frame);
    };
    encoder->flush();
    EXPECT_TRUE(end);
    EXPECT_EQ(encoder->frame, nullptr);
}

TEST_F(PacketEncoderTest, FlushingTwiceThrows) {
    open(Rational(1, 25));
    encodeAll({0, 1});
    expectFailure(AVERROR_EOF, 140, [this] { encoder->flush(); });
}

TEST_F(PacketEncoderTest, NoFrameMayFollowAFlush) {
    open(Rational(1, 25));
    encoder->flush();
    EXPECT_EQ(thrownText<tio::Exception>([this] { encoder->encodeFrameAt(Rational(1, 1)); }),
              "No frame may follow a flush");
    EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 4,
                                                     "No frame may follow a flush" +
                                                         placeText("PacketEncoder", 120)),
                                           IsLogLine("root", 4, "Assertion failed: frame")));
    EXPECT_THROW(encoder->setFrameTime(Rational()), tio::Exception);
    EXPECT_THROW(static_cast<void>(encoder->getFrameTime()), tio::Exception);
}

TEST_F(PacketEncoderTest, PacketsStayReadableAfterTheEncoderIsGone) {
    open(Rational(1, 25));
    const auto packets = encodeAll({0, 1});
    encoder.reset();
    for (const OutputPacket& packet : packets) {
        int size = 0;
        const uint8_t* data = packet.getData(size);
        ASSERT_GT(size, 4);
        EXPECT_THAT(std::vector<uint8_t>(data, data + 2), Each(0)) << "a start code";
    }
}

} // namespace
} // namespace tio::ffmpeg
