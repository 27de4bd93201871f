#include "exact/partitions.h"

#include "support/ClipMaker.h"
#include "support/Demuxing.h"
#include "support/LogCapture.h"
#include "support/Oracle.h"
#include "support/TemporaryFolder.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/Source.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include <libavcodec/packet.h>
}

namespace tio::ffmpeg {
namespace {

using Range = FrameReader::Range;
using testing::ElementsAre;
using Pairs = std::vector<std::pair<int64_t, int64_t>>;

Pairs pairsOf(const std::vector<Range>& ranges) {
    Pairs pairs;
    for (const Range& range : ranges)
        pairs.emplace_back(range.first, range.stop);
    return pairs;
}

/// Thirty packets, all pictures in their order, that begin again with packets 0, 10 and 20.
detail::IndexData threeGroups() {
    detail::IndexData index;
    index.timeBase = {1, 25};
    index.frameTicks = 1;
    for (uint32_t packet = 0; packet < 30; ++packet) {
        index.pts.push_back(packet);
        index.positions.push_back(-1);
        index.hashes.push_back(0);
        index.flags.push_back(packet % 10 == 0 ? detail::IndexData::key : uint8_t{0});
        index.packets.push_back(packet);
    }
    index.keys = {0, 10, 20};
    index.keyDts = {0, 10, 20};
    index.finish();
    return index;
}

TEST(CutIntoRanges, EndsWhereGroupsDo) {
    EXPECT_THAT(pairsOf(detail::cutIntoRanges(threeGroups(), {}, 3)),
                ElementsAre(std::pair(0, 10), std::pair(10, 20), std::pair(20, 30)));
    EXPECT_THAT(pairsOf(detail::cutIntoRanges(threeGroups(), {}, 1)),
                ElementsAre(std::pair(0, 30)));
    EXPECT_EQ(detail::cutIntoRanges(threeGroups(), {}, INT64_MAX).size(), 3u);
}

TEST(CutIntoRanges, DoesNotBeginWhereDecodingWasFoundToGoWrong) {
    detail::EntryNotes learned;
    learned.cleanFrom[10] = detail::IndexData::noFrame;
    EXPECT_THAT(pairsOf(detail::cutIntoRanges(threeGroups(), learned, 3)),
                ElementsAre(std::pair(0, 20), std::pair(20, 30)));
}

TEST(CutIntoRanges, BeginsAtTheFirstFrameThatCameOutRight) {
    detail::EntryNotes learned;
    learned.cleanFrom[10] = 13;
    EXPECT_THAT(pairsOf(detail::cutIntoRanges(threeGroups(), learned, 3)),
                ElementsAre(std::pair(0, 13), std::pair(13, 20), std::pair(20, 30)));
}

TEST(CutIntoRanges, GivesNoneForNoFrames) {
    EXPECT_TRUE(detail::cutIntoRanges(detail::IndexData(), {}, 4).empty());
}

/// What the container says of the frames, in the order in which they are shown.
struct ShownFrame {
    int64_t pts;
    int64_t packet; // its number in the file
    bool key;
};

std::vector<ShownFrame> shownFrames(const std::string& path) {
    std::vector<ShownFrame> frames;
    for (const test::OraclePacket& packet : test::oraclePackets(path))
        frames.push_back({packet.pts, static_cast<int64_t>(frames.size()),
                          (packet.flags & AV_PKT_FLAG_KEY) != 0});
    std::sort(frames.begin(), frames.end(),
              [](const ShownFrame& a, const ShownFrame& b) { return a.pts < b.pts; });
    return frames;
}

/// Packets from the key picture that a range begins with to the last one that it needs.
int64_t costOf(const std::vector<ShownFrame>& frames, size_t first, size_t stop) {
    int64_t last = 0;
    for (size_t frame = first; frame < stop; ++frame)
        last = std::max(last, frames[frame].packet);
    return last - frames[first].packet + 1;
}

/// The least that the dearest of at most `count` ranges can cost, by trying all ways to cut.
int64_t leastCost(const std::vector<ShownFrame>& frames, int count) {
    std::vector<size_t> keys;
    for (size_t frame = 1; frame < frames.size(); ++frame)
        if (frames[frame].key)
            keys.push_back(frame);
    int64_t least = INT64_MAX;
    for (unsigned cuts = 0; cuts < 1u << keys.size(); ++cuts) {
        int64_t dearest = 0;
        int ranges = 1;
        size_t first = 0;
        for (size_t key = 0; key < keys.size(); ++key) {
            if ((cuts >> key & 1u) == 0)
                continue;
            dearest = std::max(dearest, costOf(frames, first, keys[key]));
            first = keys[key];
            ++ranges;
        }
        dearest = std::max(dearest, costOf(frames, first, frames.size()));
        if (ranges <= count)
            least = std::min(least, dearest);
    }
    return least;
}

class Partitions : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        test::ClipPlan plan;
        plan.frameCount = 120;
        plan.gopSize = 13;
        plan.openGop = GetParam();
        test::makeClip(clip, plan);
    }

    test::TemporaryFolder folder;
    test::LogCapture log;
    std::string clip = folder.file("clip.mp4");
};

TEST_P(Partitions, HoldEveryFrameOnceAndBeginWithKeyPictures) {
    const FrameReader reader{Source(clip)};
    const auto frames = shownFrames(clip);
    for (const int64_t count : {1, 2, 3, 5, 8, 9, 10, 1000}) {
        int64_t next = 0;
        for (const Range& range : reader.partitions(count)) {
            EXPECT_EQ(range.first, next);
            EXPECT_LT(range.first, range.stop);
            EXPECT_TRUE(frames[static_cast<size_t>(range.first)].key);
            next = range.stop;
        }
        EXPECT_EQ(next, 120);
        EXPECT_LE(static_cast<int64_t>(reader.partitions(count).size()), count);
    }
}

TEST_P(Partitions, CostNoMoreThanTheyMust) {
    const FrameReader reader{Source(clip)};
    const auto frames = shownFrames(clip);
    for (const int count : {2, 3, 4, 5, 6, 7}) {
        int64_t dearest = 0;
        for (const Range& range : reader.partitions(count))
            dearest = std::max(dearest, costOf(frames, static_cast<size_t>(range.first),
                                               static_cast<size_t>(range.stop)));
        EXPECT_EQ(dearest, leastCost(frames, count)) << count;
    }
}

// With one thread a decoder takes in no more packets than the pictures need but for those that it
// holds back, and pictures that no other needs are all asked for.
TEST_P(Partitions, CostWhatTheySay) {
    FrameReaderOptions options;
    options.threads = 1;
    options.index = FrameIndex::build(Source(clip));
    const auto frames = shownFrames(clip);
    for (const Range& range : FrameReader(Source(clip), options).partitions(4)) {
        FrameReader reader(Source(clip), options);
        static_cast<void>(reader.digest(range.first, range.stop));
        const int64_t cost =
            costOf(frames, static_cast<size_t>(range.first), static_cast<size_t>(range.stop));
        constexpr int64_t heldBack = 4;
        EXPECT_GE(reader.counters().packetsDecoded, cost);
        EXPECT_LE(reader.counters().packetsDecoded, cost + heldBack);
        EXPECT_LE(reader.counters().seeks, 1);
    }
}

TEST_P(Partitions, FewerThanOneAreRefused) {
    const FrameReader reader{Source(clip)};
    for (const int64_t count : {int64_t{0}, int64_t{-1}, INT64_MIN})
        EXPECT_THROW(static_cast<void>(reader.partitions(count)), Exception) << count;
}

INSTANTIATE_TEST_SUITE_P(Groups, Partitions, testing::Bool(),
                         [](const auto& which) { return which.param ? "Open" : "Closed"; });

} // namespace
} // namespace tio::ffmpeg
