#include "support/ClipMaker.h"
#include "support/Interception.h"
#include "support/LogCapture.h"
#include "support/Mp4Edits.h"
#include "support/Oracle.h"
#include "support/PacketScript.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/InputStream.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>

namespace tio::ffmpeg {
namespace {

using test::ClipPlan;
using test::ScriptedPacket;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int64_t noPts = AV_NOPTS_VALUE;
constexpr int64_t rewindTarget = -9223372036854;

class InputStreamTest : public ::testing::Test {
protected:
    std::string clip(const std::string& name = "clip.mp4", const ClipPlan& plan = {}) {
        const std::string path = folder.file(name);
        test::makeClip(path, plan);
        return path;
    }

    static std::unique_ptr<InputStream> open(const std::string& path) {
        auto context = std::make_shared<InputFormatContext>(path);
        const int index = context->findBestVideoStreamIndex();
        return std::make_unique<InputStream>(std::move(context), index);
    }

    // MPEG-TS seeks by dts, MP4 by pts; which one matters to what a scan records.
    std::unique_ptr<InputStream> openDtsSeekable() {
        ClipPlan plan;
        plan.format = "mpegts";
        return open(clip("clip.ts", plan));
    }

    static std::vector<int64_t> ticks(InputStream& stream) {
        std::vector<int64_t> values;
        for (const Rational& time : stream.getFrameMsMap())
            values.push_back((time / stream.getUnitTime()).toInteger());
        return values;
    }

    test::TemporaryFolder folder;
    test::Interception intercepted;
    test::LogCapture log;
};

TEST_F(InputStreamTest, ReadsAndSeeksNothingWhenConstructed) {
    const std::string path = clip();
    auto context = std::make_shared<InputFormatContext>(path);
    const int reads = intercepted->av_read_frame.count;
    const InputStream stream(context, 0);
    EXPECT_EQ(intercepted->av_read_frame.count, reads);
    EXPECT_EQ(intercepted->av_seek_frame.count, 0);
}

TEST_F(InputStreamTest, DeliversEveryPacketInFileOrderAndThenNone) {
    const std::string path = clip();
    const auto expected = test::oraclePackets(path);
    auto stream = open(path);
    for (const auto& packet : expected) {
        const auto next = stream->getNextPacket();
        ASSERT_NE(next, nullptr);
        EXPECT_EQ(next->getPacket().pts, packet.pts);
        EXPECT_EQ(next->getPacket().dts, packet.dts);
        EXPECT_EQ(next->getPacket().size, packet.size);
    }
    EXPECT_EQ(stream->getNextPacket(), nullptr);
    EXPECT_EQ(stream->getNextPacket(), nullptr);
}

TEST_F(InputStreamTest, DeliversDiscardedAndRepeatedPacketsToo) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{5, 0}, {5, 1, AV_PKT_FLAG_DISCARD}, {6, 2, 0}});
    EXPECT_EQ(stream->getNextPacket()->getPacket().pts, 5);
    EXPECT_EQ(stream->getNextPacket()->getPacket().pts, 5);
    EXPECT_EQ(stream->getNextPacket()->getPacket().pts, 6);
}

TEST_F(InputStreamTest, IndexesPicturesInOrderOfPresentation) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{0, -2}, {3, -1}, {1, 0}, {2, 1}});
    EXPECT_THAT(ticks(*stream), ElementsAre(0, 1, 2, 3));
}

TEST_F(InputStreamTest, SeeksAheadOfAFrameByTheLargestDistanceFromDecodingToPresentation) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{0, -2}, {3, -1}, {1, 0}, {2, 1}});
    stream->getFrameCount();
    stream->seekToOrBefore(2);
    EXPECT_EQ(script.seekTargets.back(), 2 - 4); // the second packet: pts 3, dts -1
}

TEST_F(InputStreamTest, SeeksStraightToAPtsWhereTheInputSeeksByPts) {
    auto stream = open(clip());
    test::PacketScript script({{0, -2}, {3, -1}, {1, 0}, {2, 1}});
    stream->getFrameCount();
    stream->seekToOrBefore(2);
    EXPECT_EQ(script.seekTargets.back(), 2);
    EXPECT_TRUE(log.contains("root", 1, "pts seek supported: yes"));
    EXPECT_TRUE(log.contains("root", 1, "max pts dts diff is 0"));
}

TEST_F(InputStreamTest, SeeksOnceMoreWhenAnMp4LandsBehindTheWantedPicture) {
    auto stream = open(clip());
    // The script seeks by dts, as the MP4 demuxer does without an edit list: 10 leads too far.
    test::PacketScript script({{6, 4}, {8, 5, 0}, {7, 6, 0}, {12, 10}, {10, 11, 0}});
    EXPECT_EQ(stream->seekToOrBefore(3), 1);
    EXPECT_EQ(script.seekTargets[script.seekTargets.size() - 2], 10);
    EXPECT_EQ(script.seekTargets.back(), 10 - (12 - 10));
    EXPECT_EQ(stream->getNextPacket()->getPacket().pts, 7);
}

TEST_F(InputStreamTest, PassesTheDemuxersSeekByPtsBitOnInTheSeekFlags) {
    auto byPts = open(clip());
    auto byDts = openDtsSeekable();
    test::PacketScript script({{0, 0}});
    byPts->getFrameCount();
    EXPECT_EQ(script.lastSeekFlags, 1 | 0x4000000);
    byDts->getFrameCount();
    EXPECT_EQ(script.lastSeekFlags, 1);
}

TEST_F(InputStreamTest, DropsOnlyConsecutiveRepeatsOfAPts) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{10, 0}, {10, 1}, {20, 2}, {10, 3}});
    EXPECT_EQ(stream->getFrameCount(), 3);
    EXPECT_THAT(ticks(*stream), ElementsAre(10, 10, 20));
}

TEST_F(InputStreamTest, RewindsBeforeAScanAndGoesToFrameZeroAfterIt) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{7, 3}, {9, 5}});
    stream->getFrameCount();
    EXPECT_THAT(script.seekTargets, ElementsAre(rewindTarget, 7 - 4));
    EXPECT_EQ(stream->getNextPacket()->getPacket().pts, 7);
}

TEST_F(InputStreamTest, ScansOnlyOnce) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{0, 0}, {1, 1}});
    stream->getFrameCount();
    const int read = script.packetsRead;
    EXPECT_EQ(stream->getFrameCount(), 2);
    EXPECT_EQ(stream->getFrameMsMap().size(), 2u);
    EXPECT_EQ(script.packetsRead, read);
}

TEST_F(InputStreamTest, LeavesDiscardedPacketsOutOfTheIndexAndSaysSo) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{-2, -2, AV_PKT_FLAG_KEY | AV_PKT_FLAG_DISCARD}, {0, 0}, {1, 1}});
    EXPECT_EQ(stream->getFrameCount(), 2);
    EXPECT_TRUE(log.contains("root", 1, "discarded packet (pts=-2)"));
}

TEST_F(InputStreamTest, LeavesOutWhatAnEditListCutsOff) {
    const std::string path = clip();
    test::cutByEditList(path, 0.2, 0.4);
    const auto packets = test::oraclePackets(path);
    const auto kept = std::count_if(packets.begin(), packets.end(), [](const auto& packet) {
        return (packet.flags & AV_PKT_FLAG_DISCARD) == 0;
    });
    ASSERT_LT(kept, static_cast<long>(packets.size())) << "the clip has nothing to cut off";
    EXPECT_EQ(open(path)->getFrameCount(), kept);
}

TEST_F(InputStreamTest, FailsWhenEveryPacketIsDiscarded) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{0, 0, AV_PKT_FLAG_DISCARD}, {1, 1, AV_PKT_FLAG_DISCARD}});
    try {
        stream->getFrameCount();
        FAIL() << "expected an exception";
    } catch (const tio::Exception& failure) {
        EXPECT_STREQ(failure.what(), "Ffmpeg stream has no usable frames.");
    }
    EXPECT_THAT(log.linesAt(4),
                ElementsAre(R"(Ffmpeg stream has no usable frames. @ ..\src\TARN\videoio\)"
                            "InputStream:181",
                            "Assertion failed: !frameNumToTimestamp.empty()"));
}

TEST_F(InputStreamTest, ScansAgainAfterAScanThatFoundNothing) {
    auto stream = openDtsSeekable();
    {
        test::PacketScript empty({});
        EXPECT_THROW(stream->getFrameCount(), tio::Exception);
    }
    test::PacketScript script({{0, 0}});
    EXPECT_EQ(stream->getFrameCount(), 1);
}

TEST_F(InputStreamTest, DropsPacketsWithoutPtsAtTheStartOnly) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{noPts, 0}, {noPts, 1}, {5, 2}, {noPts, noPts}});
    EXPECT_EQ(stream->getFrameCount(), 2);
    stream->seekToOrBefore(0); // the packet without a pts has become frame 0
    // The smallest integer less the largest distance (5 - 2), wrapped around.
    EXPECT_EQ(script.seekTargets.back(), std::numeric_limits<int64_t>::max() - 2);
}

TEST_F(InputStreamTest, LandsOnTheNumberOfTheNextPacket) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{0, -2}, {3, -1}, {1, 0}, {2, 1}, {8, 6}, {9, 7}});
    // Frame 4 is pts 8; the largest distance is 4, so the seek goes to 4: the packet of pts 2.
    EXPECT_EQ(stream->seekToOrBefore(4), 2);
    EXPECT_EQ(stream->getNextPacket()->getPacket().pts, 2);
}

TEST_F(InputStreamTest, AnswersTheFrameCountWhenThePacketReachedIsNotInTheIndex) {
    auto stream = openDtsSeekable();
    {
        test::PacketScript script({{0, 0}, {10, 10}});
        stream->getFrameCount();
    }
    test::PacketScript changed({{0, 0}, {7, 7}});
    EXPECT_EQ(stream->seekToOrBefore(1), 2);
}

TEST_F(InputStreamTest, AnswersZeroWhenThePacketReachedLiesBeforeTheFirstFrame) {
    auto stream = openDtsSeekable();
    {
        test::PacketScript script({{5, 5}, {10, 10}});
        stream->getFrameCount();
    }
    test::PacketScript changed({{4, 4}});
    EXPECT_EQ(stream->seekToOrBefore(1), 0);
}

TEST_F(InputStreamTest, AnswersZeroWhenTheInputEndsAtTheSeek) {
    auto stream = openDtsSeekable();
    {
        test::PacketScript script({{5, 5}, {10, 10}});
        stream->getFrameCount();
    }
    test::PacketScript nothing({});
    EXPECT_EQ(stream->seekToOrBefore(1), 0);
}

TEST_F(InputStreamTest, ASeekDropsThePendingPacket) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{0, 0}, {1, 1}, {2, 2}});
    stream->seekToOrBefore(2);
    stream->seekToOrBefore(1);
    EXPECT_EQ(stream->getNextPacket()->getPacket().pts, 1);
    EXPECT_EQ(stream->getNextPacket()->getPacket().pts, 2);
}

TEST_F(InputStreamTest, RefusesFrameNumbersOutsideTheStreamAndNamesTheFile) {
    const std::string path = clip();
    auto stream = open(path);
    for (const int64_t frame : {int64_t{-1}, int64_t{25}}) {
        try {
            stream->seekToOrBefore(frame);
            FAIL() << "frame " << frame << " was accepted";
        } catch (const tio::Exception& failure) {
            EXPECT_EQ(std::string(failure.what()), "Frame number " + std::to_string(frame) +
                                                       " is outside 0 to 24 of \"" + path + "\"");
        }
    }
}

TEST_F(InputStreamTest, AFailedSeekComesThroughFromInsideAScan) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{0, 0}});
    script.seekable = false;
    EXPECT_THROW(stream->getFrameCount(), tio::ffmpeg::Exception);
}

TEST_F(InputStreamTest, UnitTimeIsTheStreamsTimeBaseAndNeedsNoScan) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{0, 0}});
    EXPECT_EQ(stream->getUnitTime().numerator, 1);
    EXPECT_EQ(stream->getUnitTime().denominator, 90000);
    EXPECT_EQ(script.packetsRead, 0);
}

TEST_F(InputStreamTest, FrameTimesAreReducedSeconds) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{3000, 0}});
    const auto times = stream->getFrameMsMap();
    ASSERT_EQ(times.size(), 1u);
    EXPECT_EQ(times[0].numerator, 1);
    EXPECT_EQ(times[0].denominator, 30);
}

std::vector<ScriptedPacket> risingPackets(int count) {
    std::vector<ScriptedPacket> packets;
    for (int i = 0; i < count; ++i)
        packets.push_back({i, i, i == 0 ? AV_PKT_FLAG_KEY : 0});
    return packets;
}

TEST_F(InputStreamTest, AStartWithoutAKeyFrameIsNone) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{0, 0, 0}, {1, 1}});
    EXPECT_FALSE(stream->startsWithKeyFrame());
    EXPECT_TRUE(log.contains("root", 1, "found packet before key frame"));
    EXPECT_THAT(script.seekTargets, IsEmpty());
    EXPECT_EQ(stream->getFrameCount(), 2) << "the index stayed empty, so this scans";
}

TEST_F(InputStreamTest, APictureBeforeTheKeyFrameMakesItNoStartAndKeepsWhatWasRecorded) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{10, 0}, {12, 1, 0}, {8, 2, 0}, {14, 3, 0}});
    EXPECT_FALSE(stream->startsWithKeyFrame());
    EXPECT_TRUE(log.contains("root", 1, "unexpected packet after key frame"));
    EXPECT_THAT(ticks(*stream), ElementsAre(10, 12));
}

TEST_F(InputStreamTest, ALookAtALongStreamRecordsAHundredPicturesAndKeepsThe101stPending) {
    auto stream = openDtsSeekable();
    test::PacketScript script(risingPackets(150));
    EXPECT_TRUE(stream->startsWithKeyFrame());
    EXPECT_EQ(script.packetsRead, 101);
    EXPECT_EQ(stream->getFrameCount(), 100);
    EXPECT_EQ(stream->getNextPacket()->getPacket().pts, 100);
}

TEST_F(InputStreamTest, ALookAtAShortStreamIsAWholeScan) {
    auto stream = openDtsSeekable();
    test::PacketScript script({{0, 0}, {2, 1, 0}, {1, 2, 0}});
    EXPECT_TRUE(stream->startsWithKeyFrame());
    EXPECT_THAT(ticks(*stream), ElementsAre(0, 1, 2));
    EXPECT_EQ(stream->getNextPacket()->getPacket().pts, 0) << "it went to frame 0";
}

TEST_F(InputStreamTest, ALookAtAStreamWithoutPicturesFails) {
    auto stream = openDtsSeekable();
    test::PacketScript script({});
    EXPECT_THROW((void)stream->startsWithKeyFrame(), tio::Exception);
}

TEST_F(InputStreamTest, TheDistanceFromDecodingToPresentationOnlyGrows) {
    auto stream = openDtsSeekable();
    {
        test::PacketScript far({{50, 0, 0}, {51, 1, 0}});
        EXPECT_FALSE(stream->startsWithKeyFrame()); // records nothing
    }
    {
        test::PacketScript far({{50, 0}, {40, 1, 0}});
        EXPECT_FALSE(stream->startsWithKeyFrame()); // records the first, distance 50
    }
    test::PacketScript near({{50, 49}});
    EXPECT_EQ(stream->seekToOrBefore(0), 0);
    EXPECT_EQ(near.seekTargets.back(), 50 - 50);
}

} // namespace
} // namespace tio::ffmpeg
