#include "exact/index/IndexData.h"

#include "exact/PacketScan.h"

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tio::ffmpeg::detail {
namespace {

/// Two groups in the order of the file, I P B B I P B B, where the last two are shown before the
/// second I: their group is open.
IndexData openGroups() {
    IndexData index;
    index.timeBase = {1, 25};
    index.frameTicks = 10;
    index.lastTicks = 7;
    index.pts = {0, 30, 10, 20, 60, 70, 40, 50};
    index.flags = {IndexData::key, 0, 0, 0, IndexData::key, 0, 0, 0};
    index.positions.assign(8, -1);
    index.hashes.assign(8, 0);
    index.keys = {0, 4};
    index.keyDts = {-20, 20};
    index.packets = {0, 2, 3, 1, 6, 7, 4, 5};
    index.finish();
    return index;
}

TEST(IndexDataTest, FindsTheLastFrameThatIsNotLater) {
    const IndexData index = openGroups();
    EXPECT_EQ(index.frameAt(-1), -1);
    EXPECT_EQ(index.frameAt(0), 0);
    EXPECT_EQ(index.frameAt(29), 2);
    EXPECT_EQ(index.frameAt(30), 3);
    EXPECT_EQ(index.frameAt(1000), 7);
}

// Frame 2 goes back to time 5, but the one before it is on screen from 10 on.
TEST(IndexDataTest, ShowsAFrameNoEarlierThanTheOneBefore) {
    IndexData index = openGroups();
    index.ownTimes = {0, 10, 5, 30, 40, 50, 60, 70};
    index.finish();
    EXPECT_EQ(index.frameAt(7), 0);
    EXPECT_EQ(index.frameAt(10), 2);
    EXPECT_EQ(index.durationOf(1), 10); // the usual one
    EXPECT_EQ(index.durationOf(7), 7);
}

TEST(IndexDataTest, EntersBeforeAKeyPictureForThoseThatLeadIt) {
    const IndexData index = openGroups();
    EXPECT_EQ(index.entryFor(3, 8, {}), 0u);
    EXPECT_EQ(index.entryFor(4, 8, {}), 0u); // packet 6, after key packet 4
    EXPECT_EQ(index.entryFor(6, 8, {}), 4u);
    EXPECT_EQ(index.entryFor(7, 8, {}), 4u);
    EXPECT_EQ(index.entryFor(7, 4, {}), 0u);
}

TEST(IndexDataTest, AvoidsAnEntryUpToTheFrameThatCameOutRight) {
    const IndexData index = openGroups();
    EntryNotes notes;
    notes.cleanFrom[4] = 7;
    EXPECT_EQ(index.entryFor(6, 8, notes), 0u);
    EXPECT_EQ(index.entryFor(7, 8, notes), 4u);
}

TEST(IndexDataTest, TellsPicturesOfOnePacketApartByTheirOrder) {
    IndexData index = openGroups();
    index.packets = {0, 2, 2, 1, 6, 7, 4, 5};
    index.finish();
    EXPECT_EQ(index.frameAfter(-1, 2), 1);
    EXPECT_EQ(index.frameAfter(1, 2), 2);
    EXPECT_EQ(index.frameAfter(2, 2), -1);
    EXPECT_EQ(index.frameAfter(-1, 3), -1); // gives no picture
    EXPECT_EQ(index.frameAfter(-1, 99), -1);
}

TEST(IndexDataTest, KnowsTheDecodingTimesOfKeyPacketsAlone) {
    const IndexData index = openGroups();
    EXPECT_EQ(index.dtsOfKey(4), 20);
    EXPECT_EQ(index.dtsOfKey(5), AV_NOPTS_VALUE);
}

// An index file that was tampered with may hold any distance, and no times.
TEST(IndexDataTest, TimesThatLeaveTheirRangeWrapAround) {
    constexpr int64_t quarter = int64_t{1} << 62; // of all numbers there are
    IndexData index = openGroups();
    index.pts.assign(8, AV_NOPTS_VALUE);
    index.packets.resize(5);
    index.frameTicks = quarter;
    fillTimes(index);
    EXPECT_THAT(index.ownTimes, testing::ElementsAre(0, quarter, INT64_MIN, -quarter, 0));
}

} // namespace
} // namespace tio::ffmpeg::detail
