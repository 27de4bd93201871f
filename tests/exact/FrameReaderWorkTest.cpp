#include "FrameReaderFixture.h"
#include "support/ClipMaker.h"
#include "support/ReaderPictures.h"

#include <gtest/gtest.h>
#include <numeric>

namespace tio::ffmpeg {
namespace {

using test::ClipPlan;
using test::FrameReaderTest;
using test::numberIn;

class FrameReaderWork : public FrameReaderTest {
protected:
    /// What the reader does while `action` runs.
    template <typename Action>
    FrameReader::Counters workOf(Action&& action) {
        const FrameReader::Counters before = reader->counters();
        action();
        FrameReader::Counters after = reader->counters();
        after.sourceOpenings -= before.sourceOpenings;
        after.seeks -= before.seeks;
        after.packetsDecoded -= before.packetsDecoded;
        after.picturesDecoded -= before.picturesDecoded;
        after.picturesConverted -= before.picturesConverted;
        return after;
    }
};

TEST_F(FrameReaderWork, DecodesOnWhereTheFrameLiesAhead) {
    FrameReader& frames = open(longGroups());
    static_cast<void>(frames.readFrame(10));
    const auto work = workOf([&] { static_cast<void>(frames.readFrame(30)); });
    EXPECT_EQ(work.seeks, 0);
    EXPECT_LE(work.picturesDecoded, 20);
}

TEST_F(FrameReaderWork, StartsAtAKeyFrameThatLiesBetween) {
    FrameReader& frames = open(longGroups());
    static_cast<void>(frames.readFrame(10));
    const auto work = workOf([&] { static_cast<void>(frames.readFrame(52)); });
    EXPECT_EQ(work.seeks, 1);
    EXPECT_LE(work.picturesDecoded, 3);
}

TEST_F(FrameReaderWork, ConvertsNothingOnTheWay) {
    FrameReader& frames = open(longGroups());
    EXPECT_EQ(workOf([&] { static_cast<void>(frames.readFrame(45)); }).picturesConverted, 1);
}

// Two of three pictures are B-pictures here that nothing refers to.
TEST_F(FrameReaderWork, LeavesOutPicturesThatNoOtherNeeds) {
    ClipPlan plan = longGroups();
    plan.encoderOptions = {{"b-pyramid", "none"}, {"b_strategy", "0"}};
    FrameReader& frames = open(plan);
    const auto work = workOf([&] { static_cast<void>(frames.readFrame(90)); });
    EXPECT_LE(work.packetsDecoded, 40 / 3 + 8);
    EXPECT_EQ(numberIn(frames.readFrame(90)), 90);
}

TEST_F(FrameReaderWork, GivesTheSameFrameAgainForNothing) {
    FrameReader& frames = open(longGroups());
    const auto first = frames.readFrame(45);
    const auto work = workOf([&] { EXPECT_EQ(frames.readFrame(45).frame, first.frame); });
    EXPECT_EQ(work.packetsDecoded + work.seeks + work.picturesConverted, 0);
}

TEST_F(FrameReaderWork, DecodesEachGroupOnceForAReversedList) {
    FrameReader& frames = open(longGroups());
    std::vector<int64_t> order(100);
    std::iota(order.rbegin(), order.rend(), int64_t{0});
    std::vector<int> numbers;
    const auto work = workOf([&] { numbers = numbersOf(order); });
    EXPECT_EQ(numbers, std::vector<int>(order.begin(), order.end()));
    EXPECT_EQ(work.picturesDecoded, 100);
    EXPECT_EQ(frames.counters().sourceOpenings, 1);
}

// Room for 55 pictures of 96 x 64 pixels: the cut goes to where a group ends.
TEST_F(FrameReaderWork, CutsAListThatExceedsTheBudgetBetweenGroups) {
    FrameReaderOptions options;
    options.byteBudget = int64_t{55} * 96 * 64 * 3;
    open(longGroups(), options);
    std::vector<int64_t> order(100);
    std::iota(order.rbegin(), order.rend(), int64_t{0});
    const auto work = workOf([&] { static_cast<void>(numbersOf(order)); });
    EXPECT_LE(work.packetsDecoded, 100 + 2 * 8); // what the decoder reads ahead, twice
}

TEST_F(FrameReaderWork, OpensTheSourceOnceUnderAGivenIndex) {
    FrameReaderOptions options;
    options.index = open(longGroups()).index();
    EXPECT_EQ(openAgain(options).counters().sourceOpenings, 1);
    EXPECT_EQ(numberIn(reader->readFrame(77)), 77);
}

} // namespace
} // namespace tio::ffmpeg
