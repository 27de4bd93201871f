#include "PacketEncoderFixture.h"
#include "support/Expectations.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/PacketEncoder.h>

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::IsFraction;
using test::PacketEncoderTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

} // namespace
} // namespace tio::ffmpeg
