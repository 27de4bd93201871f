#include "support/Dictionary.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Muxing.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/PacketEncoder.h>

#include <algorithm>
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

using test::ffmpegText;
using test::IsFraction;
using test::IsLogLine;
using test::ownLines;
using test::placeText;
using test::thrownText;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

/// The engine with its protected side open, on a codec that the test chooses, without a picture
/// source: the frame is grey.
class ProbeEncoder : public PacketEncoder {
public:
    explicit ProbeEncoder(Rational unitTime, AVCodecID codec = AV_CODEC_ID_H264)
        : PacketEncoder(unitTime, codec) {
        codecContext->width = 64;
        codecContext->height = 48;
        codecContext->pix_fmt = AV_PIX_FMT_YUV420P;
    }

    using PacketEncoder::codecContext;
    using PacketEncoder::codecParameters;
    using PacketEncoder::extradata;
    using PacketEncoder::frame;

    void open(const test::Options& options = {{"preset", "veryfast"}}) {
        openCodec(test::Dictionary(options).release());
        frame = av_frame_alloc();
        frame->format = AV_PIX_FMT_YUV420P;
        frame->width = 64;
        frame->height = 48;
        test::check(av_frame_get_buffer(frame, 0), "picture");
        for (int plane = 0; plane < 3; ++plane)
            std::fill_n(frame->data[plane], frame->linesize[plane] * (plane == 0 ? 48 : 24), 128);
    }
};

class PacketEncoderTest : public ::testing::Test {
protected:
    ~PacketEncoderTest() override {
        if (encoder) // a frame that nobody flushes stays
            av_frame_free(&encoder->frame);
    }

    void open(Rational unitTime, const test::Options& options = {{"preset", "veryfast"}}) {
        encoder = std::make_unique<ProbeEncoder>(unitTime);
        encoder->open(options);
    }

    // An encoder that answers as scripted: each list holds the pts of the packets that come out
    // until it has to be asked for more.
    void scriptCodec(std::vector<std::vector<int64_t>> rounds, int lastAnswer = AVERROR(EAGAIN)) {
        script = std::move(rounds);
        intercepted->avcodec_send_frame.instead = [](AVCodecContext*, const AVFrame*) { return 0; };
        intercepted->avcodec_receive_packet.instead = [this, lastAnswer](AVCodecContext*,
                                                                         AVPacket* packet) {
            if (script.empty())
                return lastAnswer;
            if (script.front().empty()) {
                script.erase(script.begin());
                return AVERROR(EAGAIN);
            }
            test::check(av_new_packet(packet, 1), "packet");
            packet->pts = packet->dts = script.front().front();
            script.front().erase(script.front().begin());
            return 0;
        };
    }

    template <typename Action>
    void expectFailure(int code, int number, Action action) const {
        const std::string expected = ffmpegText(code) + placeText("PacketEncoder", number);
        EXPECT_EQ(thrownText<Exception>(action), expected);
        EXPECT_THAT(ownLines(log), ElementsAre(IsLogLine("root", 5, expected)));
    }

    static std::vector<int64_t> ptsOf(const std::vector<OutputPacket>& packets) {
        std::vector<int64_t> pts;
        for (const OutputPacket& packet : packets)
            pts.push_back(packet.getPacket().pts);
        return pts;
    }

    static std::vector<int64_t> durationsOf(const std::vector<OutputPacket>& packets) {
        std::vector<int64_t> durations;
        for (const OutputPacket& packet : packets)
            durations.push_back(packet.getPacket().duration);
        return durations;
    }

    // Encodes frames at these ticks, and everything that is left.
    std::vector<OutputPacket> encodeAll(const std::vector<int64_t>& times) const {
        std::vector<OutputPacket> all;
        const auto keep = [&all](const std::vector<OutputPacket>& packets) {
            for (const OutputPacket& packet : packets)
                all.emplace_back(packet);
        };
        for (const int64_t time : times)
            keep(encoder->encodeFrameAt(Rational(time, 1) * encoder->getUnitTime()));
        keep(encoder->flush());
        return all;
    }

    test::Interception intercepted;
    test::LogCapture log;
    std::unique_ptr<ProbeEncoder> encoder;
    std::vector<std::vector<int64_t>> script;
};

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

// Times

TEST_F(PacketEncoderTest, AFramesTimeIsTruncatedTowardZeroToAMultipleOfTheTimeBase) {
    open(Rational(1, 1000));
    const auto ticksOf = [this](Rational time) {
        encoder->setFrameTime(time);
        return encoder->frame->pts;
    };
    EXPECT_EQ(ticksOf(Rational(1, 3)), 333);
    EXPECT_EQ(ticksOf(Rational(-1, 3)), -333);
    EXPECT_EQ(ticksOf(Rational(2, 3)), 666);
    EXPECT_EQ(ticksOf(Rational(7, 1)), 7000);
    EXPECT_EQ(ticksOf(Rational(-1, 1001)), 0);
}

// At each of these times a product leaves 64 bits before it is reduced.
TEST_F(PacketEncoderTest, TimesOfAWallClockAreExact) {
    open(Rational(1, 1000000));
    for (int64_t n = 0; n < 100; ++n) {
        const int64_t sinceEpoch = 1700000000123456 + 33333 * n;
        encoder->setFrameTime(Rational(sinceEpoch, 1000000));
        EXPECT_EQ(encoder->frame->pts, sinceEpoch) << n;
        EXPECT_EQ(encoder->getFrameTime(), Rational(sinceEpoch, 1000000)) << n;
        const int64_t uptime = 10000000000000 + 33333 * n;
        encoder->setFrameTime(Rational(uptime, 1000000));
        EXPECT_EQ(encoder->frame->pts, uptime) << n;
    }
}

TEST_F(PacketEncoderTest, AFramesTimeIsReadBackInSeconds) {
    open(Rational(1001, 30000));
    encoder->frame->pts = 30;
    EXPECT_THAT(encoder->getFrameTime(), IsFraction(1001, 1000));
    encoder->frame->pts = -1;
    EXPECT_THAT(encoder->getFrameTime(), IsFraction(-1001, 30000));
}

TEST_F(PacketEncoderTest, TheUnitTimeIsTheTimeBase) {
    open(Rational(2, 50));
    EXPECT_THAT(encoder->getUnitTime(), IsFraction(1, 25));
}

TEST_F(PacketEncoderTest, PacketsCountInTheTimeBaseAlsoWhereTheEncoderChoseAnother) {
    open(Rational(1, 1000));
    encoder->codecContext->time_base = {1, 250};
    scriptCodec({{}, {5, 10}});
    const auto packets = encoder->encodeFrame();
    EXPECT_THAT(ptsOf(packets), ElementsAre(20, 40));
    for (const OutputPacket& packet : packets)
        EXPECT_THAT(packet.getUnitTime(), IsFraction(1, 1000));
}

TEST_F(PacketEncoderTest, AVideoPacketLastsTheShorterOfTheTwoDistancesBeforeItTheFirstOneTick) {
    open(Rational(1, 90000));
    scriptCodec({{}, {3600}, {}, {7200, 7300}, {}, {90000}, {}, {93600}});
    EXPECT_THAT(durationsOf(encoder->encodeFrame()), ElementsAre(1));
    EXPECT_THAT(durationsOf(encoder->encodeFrame()), ElementsAre(3600, 100));
    EXPECT_THAT(durationsOf(encoder->encodeFrame()), ElementsAre(100)) << "and not the pause";
    EXPECT_THAT(durationsOf(encoder->encodeFrame()), ElementsAre(3600));
}

TEST_F(PacketEncoderTest, AVideoPacketLastsNoLongerThanToTheNextPictureThatTheEncoderHas) {
    open(Rational(1, 90000));
    // A second picture after a pause: were it the last one, the pause is all that is known.
    const auto packets = encodeAll({0, 5400000, 5403000, 5406000});
    EXPECT_THAT(durationsOf(packets), ElementsAre(1, 3000, 3000, 3000));
}

TEST_F(PacketEncoderTest, AnAudioPacketKeepsItsDuration) {
    open(Rational(1, 1000));
    encoder->codecContext->codec_type = AVMEDIA_TYPE_AUDIO;
    scriptCodec({{}, {0, 1024}});
    EXPECT_THAT(durationsOf(encoder->encodeFrame()), ElementsAre(0, 0));
}

// Encoding

TEST_F(PacketEncoderTest, ReturnsWhatWasReadyBeforeTheFrameThenWhatCameAfterIt) {
    open(Rational(1, 25));
    scriptCodec({{1, 2}, {3}});
    EXPECT_THAT(ptsOf(encoder->encodeFrame()), ElementsAre(1, 2, 3));
    EXPECT_EQ(intercepted->avcodec_send_frame.count, 1);
    EXPECT_THAT(encoder->encodeFrame(), IsEmpty());
}

TEST_F(PacketEncoderTest, EncodesAFrameAtATime) {
    open(Rational(1, 25));
    std::vector<int64_t> sent;
    intercepted->avcodec_send_frame.instead = [&](AVCodecContext*, const AVFrame* frame) {
        sent.push_back(frame->pts);
        return 0;
    };
    encoder->encodeFrameAt(Rational(3, 1));
    encoder->encodeFrameAt(Rational(1, 10));
    EXPECT_THAT(sent, ElementsAre(75, 2));
}

TEST_F(PacketEncoderTest, TheFirstFramesYieldNothingAndFlushingGivesTheRest) {
    open(Rational(1, 30));
    for (int64_t i = 0; i < 3; ++i)
        EXPECT_THAT(encoder->encodeFrameAt(Rational(i, 30)), IsEmpty());
    const auto packets = encoder->flush();
    EXPECT_THAT(ptsOf(packets), ElementsAre(0, 1, 2));
    for (const OutputPacket& packet : packets) {
        EXPECT_THAT(packet.getUnitTime(), IsFraction(1, 30));
        EXPECT_EQ(packet.getPacket().dts, packet.getPacket().pts) << "no B-frames";
        EXPECT_EQ(packet.getEncodingCodec(), Codec::H264);
    }
}

TEST_F(PacketEncoderTest, ThrowsWhenTheEncoderRefusesAFrame) {
    open(Rational(1, 25));
    intercepted->avcodec_send_frame.instead = [](AVCodecContext*, const AVFrame*) {
        return AVERROR(EINVAL);
    };
    expectFailure(AVERROR(EINVAL), 140, [this] { encoder->encodeFrame(); });
}

TEST_F(PacketEncoderTest, ThrowsWhenAPacketCannotBeReceived) {
    open(Rational(1, 25));
    scriptCodec({{1}}, AVERROR_EXTERNAL);
    expectFailure(AVERROR_EXTERNAL, 191, [this] { encoder->encodeFrame(); });
}

TEST_F(PacketEncoderTest, ThrowsWithoutMemoryForAPacket) {
    open(Rational(1, 25));
    intercepted->av_packet_alloc.instead = []() -> AVPacket* { return nullptr; };
    EXPECT_THROW(encoder->encodeFrame(), std::bad_alloc);
}

TEST_F(PacketEncoderTest, PacketsBeforeAFailureAreDiscardedAndTheirDataReleased) {
    open(Rational(1, 25));
    const test::Counted data;
    int answers = 0;
    intercepted->avcodec_receive_packet.instead = [&](AVCodecContext*, AVPacket* packet) {
        if (++answers > 2)
            return AVERROR_EXTERNAL;
        packet->buf = data.share();
        packet->data = packet->buf->data;
        packet->size = 1;
        return 0;
    };
    EXPECT_THROW(encoder->encodeFrame(), Exception);
    EXPECT_EQ(data.holders(), 1);
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
