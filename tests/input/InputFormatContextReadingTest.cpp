#include "InputFormatContextFixture.h"
#include "support/BareObjects.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/Oracle.h"
#include "support/PacketScript.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputFormatContext.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/PacketReader.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ClipPlan;
using test::InputFormatContextTest;
using test::IsFraction;
using test::IsLogLine;
using test::placeOf;
using test::thrownText;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;

constexpr int64_t noTime = AV_NOPTS_VALUE;
constexpr int key = AV_PKT_FLAG_KEY;

class ReadingTest : public InputFormatContextTest {
protected:
    ReadingTest() {
        input.getStream(0)->time_base = {1, 1000};
        input.getStream(1)->time_base = {1, 90000};
    }

    // The pts of every packet of the stream, in the order of the input.
    std::vector<int64_t> readAll(int stream) {
        std::vector<int64_t> times;
        const test::PacketPointer packet(av_packet_alloc());
        while (input.getNextPacketForStream(packet.get(), stream)) {
            EXPECT_EQ(packet->stream_index, stream);
            times.push_back(packet->pts);
            av_packet_unref(packet.get());
        }
        return times;
    }

    InputFormatContext input{clipWithSound()};
};

TEST_F(ReadingTest, DeliversEveryPacketOfAFilesStream) {
    const auto expected = test::oraclePackets(folder.file("sound.mp4"));
    std::vector<int64_t> times;
    for (const test::OraclePacket& packet : expected)
        times.push_back(packet.pts);
    EXPECT_EQ(readAll(0), times);
}

TEST_F(ReadingTest, DropsPacketsOfOtherStreams) {
    test::PacketScript script({{1, 1, key, 4, 0}, {2, 2, key, 4, 1}, {3, 3, key, 4, 0}});
    EXPECT_THAT(readAll(0), ElementsAre(1, 3));
    EXPECT_THAT(readAll(1), IsEmpty()) << "they are not kept for later";
}

TEST_F(ReadingTest, PassesOverEmptyPackets) {
    test::PacketScript script({{1, 1, key, 0, 0}, {2, 2, key, 4, 0}, {3, 3, key, 0, 0}});
    EXPECT_THAT(readAll(0), ElementsAre(2));
}

TEST_F(ReadingTest, ReleasesWhatItPassesOver) {
    const test::PacketPointer foreign = test::makePacket({1});
    foreign->stream_index = 1;
    int reads = 0;
    intercepted->av_read_frame.instead = [&](AVFormatContext*, AVPacket* packet) {
        return ++reads == 1 ? av_packet_ref(packet, foreign.get()) : AVERROR_EOF;
    };
    const test::PacketPointer packet(av_packet_alloc());
    EXPECT_FALSE(input.getNextPacketForStream(packet.get(), 0));
    EXPECT_EQ(av_buffer_get_ref_count(foreign->buf), 1);
    EXPECT_EQ(packet->data, nullptr);
}

TEST_F(ReadingTest, ReadsNothingBeyondThePacketAskedFor) {
    test::PacketScript script({{1, 1, key, 4, 0}, {2, 2, key, 4, 0}});
    const test::PacketPointer packet(av_packet_alloc());
    EXPECT_TRUE(input.getNextPacketForStream(packet.get(), 0));
    EXPECT_EQ(script.packetsRead, 1);
}

TEST_F(ReadingTest, AFailureEndsTheInputQuietly) {
    intercepted->av_read_frame.instead = [](AVFormatContext*, AVPacket*) { return AVERROR(EIO); };
    EXPECT_THAT(readAll(0), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

using EarliestTimestampTest = ReadingTest;

TEST_F(EarliestTimestampTest, IsLaterThanAnyTimeBeforeTheFirstPacket) {
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(2147483647, 1));
    test::PacketScript nothing({});
    readAll(0);
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(2147483647, 1));
}

TEST_F(EarliestTimestampTest, IsTheSmallestTimeOfAnyStreamAndNeverGrows) {
    test::PacketScript script({{500, 0}, {400, 1}, {45000, 0, key, 4, 1}, {3003, 1, key, 4, 1}});
    const test::PacketPointer packet(av_packet_alloc());
    input.getNextPacketForStream(packet.get(), 0);
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(1, 2));
    av_packet_unref(packet.get());
    input.getNextPacketForStream(packet.get(), 0);
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(2, 5));
    av_packet_unref(packet.get());
    input.getNextPacketForStream(packet.get(), 1); // 1/2 s, later than the earliest
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(2, 5));
    av_packet_unref(packet.get());
    EXPECT_FALSE(input.getNextPacketForStream(packet.get(), 0)); // only drops one of stream 1
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(1001, 30000));
}

TEST_F(EarliestTimestampTest, CountsEmptyPacketsAndNegativeTimes) {
    test::PacketScript script({{-250, 0, key, 0, 0}});
    readAll(0);
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(-1, 4));
}

TEST_F(EarliestTimestampTest, ReplacesZeroByANegativeTimeAndNotByZero) {
    test::PacketScript script({{0, 0}, {0, 0, key, 4, 1}, {-1, 1}});
    readAll(0);
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(-1, 1000));
}

TEST_F(EarliestTimestampTest, TakesAnUnknownTimeAsTheSmallestThereIs) {
    test::PacketScript script({{0, 0}, {noTime, 1}});
    readAll(0);
    // -2^63 / 1000, divided by the common factor 8.
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(-1152921504606846976, 125));
}

TEST_F(EarliestTimestampTest, AnUnknownTimeIsTheSmallestAtEveryTimeBase) {
    for (const AVRational base : {AVRational{1, 25}, {1, 30}, {1, 90000}, {1, 1000000}, {1, 3}}) {
        InputFormatContext fresh(clip("clip.mp4"));
        fresh.getStream(0)->time_base = base;
        test::PacketScript script({{0, 0}, {noTime, 1}, {-100, 2}});
        const test::PacketPointer packet(av_packet_alloc());
        while (fresh.getNextPacketForStream(packet.get(), 0))
            av_packet_unref(packet.get());
        const double expected = -9223372036854775808.0 * base.num / base.den;
        EXPECT_EQ(fresh.getEarliestTimestamp().toDouble(), expected) << base.num << "/" << base.den;
    }
}

TEST_F(EarliestTimestampTest, SurvivesASeek) {
    test::PacketScript script({{100, 0}, {200, 1}});
    readAll(0);
    input.seekStreamToOrBefore(1, 0);
    readAll(0);
    EXPECT_THAT(input.getEarliestTimestamp(), IsFraction(1, 10));
}

struct SeekCall {
    int stream;
    int64_t timestamp;
    int flags;
};

class SeekingTest : public InputFormatContextTest {
protected:
    // Records the seek and answers it with a result of FFmpeg.
    void answerSeeksWith(int result) {
        intercepted->av_seek_frame.instead = [this, result](AVFormatContext*, int stream,
                                                            int64_t timestamp, int flags) {
            seeks.push_back({stream, timestamp, flags});
            return result;
        };
    }

    static std::string seekFailureOf(InputFormatContext& context) {
        return thrownText<tio::ffmpeg::Exception>([&] { context.seekStreamToOrBefore(5, 0); });
    }

    std::vector<SeekCall> seeks;
};

TEST_F(SeekingTest, AsksTheDemuxerToGoToOrBeforeTheTicks) {
    InputFormatContext context(clipIn("mpegts"));
    answerSeeksWith(0);
    context.seekStreamToOrBefore(-9223372036854, 0);
    EXPECT_THAT(seeks, ElementsAre(AllOf(Field(&SeekCall::stream, 0),
                                         Field(&SeekCall::timestamp, -9223372036854),
                                         Field(&SeekCall::flags, AVSEEK_FLAG_BACKWARD))));
}

TEST_F(SeekingTest, PassesTheDemuxersSeekByPtsBitOn) {
    InputFormatContext context(clipWithSound());
    answerSeeksWith(1); // any result that is not negative
    context.seekStreamToOrBefore(48000, 1);
    EXPECT_THAT(seeks,
                ElementsAre(AllOf(Field(&SeekCall::stream, 1), Field(&SeekCall::timestamp, 48000),
                                  Field(&SeekCall::flags, 1 | 0x4000000))));
}

TEST_F(SeekingTest, LandsAtAKeyFrameAtOrBeforeTheTicks) {
    const std::string path = folder.file("groups.mp4");
    ClipPlan plan;
    plan.frameCount = 12;
    plan.gopSize = 4;
    plan.maxBFrames = 0;
    test::makeClip(path, plan);
    const auto packets = test::oraclePackets(path);
    InputFormatContext context(path);
    context.seekStreamToOrBefore(packets[6].pts, 0);
    const test::PacketPointer packet(av_packet_alloc());
    ASSERT_TRUE(context.getNextPacketForStream(packet.get(), 0));
    EXPECT_EQ(packet->pts, packets[4].pts);
}

TEST_F(SeekingTest, AFailureIsToldAndLoggedWithItsPlace) {
    InputFormatContext context(clip("clip.mp4"));
    answerSeeksWith(AVERROR_INVALIDDATA);
    const std::string text = "Invalid data found when processing input: Seeking" + placeOf(140);
    EXPECT_EQ(seekFailureOf(context), text);
    EXPECT_THAT(log.lines(), ElementsAre(IsLogLine("root", 5, text)));
}

TEST_F(SeekingTest, AnInputThatCannotSeekIsToldWithoutAPlace) {
    InputFormatContext context(clipIn("h264"));
    log.clear(); // FFmpeg remarks on raw streams while it opens them
    EXPECT_EQ(seekFailureOf(context), "Operation not permitted: Seeking");
    EXPECT_THAT(log.linesAt(5), IsEmpty());
}

TEST_F(SeekingTest, TellsWhetherTheDemuxerSeeksByPts) {
    EXPECT_TRUE(InputFormatContext(clipIn("mp4")).isPtsSeekable());
    EXPECT_TRUE(InputFormatContext(clipIn("mov")).isPtsSeekable());
    EXPECT_FALSE(InputFormatContext(clipIn("mpegts")).isPtsSeekable());
    EXPECT_FALSE(InputFormatContext(clipIn("matroska")).isPtsSeekable());
}

} // namespace
} // namespace tio::ffmpeg
