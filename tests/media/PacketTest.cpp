#include "support/BareObjects.h"
#include "support/Expectations.h"
#include "support/Interception.h"
#include "support/KeptPacket.h"
#include "support/LogCapture.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/Exception.h>
#include <TARN/videoio/Packet.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::IsFraction;
using test::IsLogLine;
using test::makePacket;
using test::PacketPointer;
using test::thrownText;
using ::testing::ElementsAre;

static_assert(std::has_virtual_destructor_v<Packet>);
static_assert(std::is_nothrow_move_constructible_v<Packet> &&
              std::is_nothrow_move_assignable_v<Packet>);
static_assert(std::is_convertible_v<const InputPacket&, OutputPacket>,
              "a packet that was read may be written as it is");

constexpr int64_t noTime = AV_NOPTS_VALUE;

Packet timedPacket(Rational timeBase, int64_t pts, int64_t dts = 0, int64_t duration = 0) {
    return Packet(makePacket({1, 2, 3}, pts, dts, duration).get(), timeBase);
}

int holdersOfData(const Packet& packet) {
    return av_buffer_get_ref_count(packet.getPacket().buf);
}

int sizeOf(const Packet& packet) {
    int size = -1;
    (void)packet.getData(size);
    return size;
}

TEST(PacketTest, MemoryThatRunsOutIsAnExceptionOfFfmpegs) {
    const PacketPointer source = makePacket({1, 2, 3});
    const Packet packet(source.get(), Rational(1, 25));
    const test::Interception intercepted;
    intercepted->av_packet_alloc.instead = []() -> AVPacket* { return nullptr; };
    EXPECT_THROW(Packet(source.get(), Rational(1, 25)), Exception);
    EXPECT_THROW(Packet copy(packet), Exception);
    try {
        const Packet copy(packet);
    } catch (const Exception& failure) {
        EXPECT_EQ(failure.code(), AVERROR(ENOMEM));
    }
}

TEST(PacketTest, SharesTheDataOfItsSourceWhichTheCallerKeeps) {
    const PacketPointer source = makePacket({1, 2, 3}, 7, 5, 2);
    {
        const Packet packet(source.get(), Rational(1, 25));
        EXPECT_EQ(packet.getPacket().data, source->data);
        EXPECT_EQ(holdersOfData(packet), 2);
    }
    EXPECT_EQ(av_buffer_get_ref_count(source->buf), 1);
    EXPECT_EQ(source->size, 3);
}

TEST(PacketTest, TakesOverTimesAndFlags) {
    const PacketPointer source = makePacket({1}, 7, 5, 2);
    source->flags = AV_PKT_FLAG_KEY;
    source->stream_index = 3;
    const Packet packet(source.get(), Rational(1, 25));
    EXPECT_EQ(packet.getPacket().pts, 7);
    EXPECT_EQ(packet.getPacket().dts, 5);
    EXPECT_EQ(packet.getPacket().duration, 2);
    EXPECT_EQ(packet.getPacket().flags, AV_PKT_FLAG_KEY);
    EXPECT_EQ(packet.getPacket().stream_index, 3);
}

TEST(PacketTest, GivesItsBytesAndTheirCount) {
    const Packet packet(makePacket({10, 20, 30}).get(), Rational(1, 25));
    int size = 0;
    const unsigned char* data = packet.getData(size);
    EXPECT_THAT(std::vector<uint8_t>(data, data + size), ElementsAre(10, 20, 30));
}

TEST(PacketTest, HandsOutThePacketForChanges) {
    Packet packet = timedPacket(Rational(1, 1000), 100);
    packet.getPacket().pts = 200;
    EXPECT_THAT(packet.getPts(), IsFraction(1, 5));
}

TEST(PacketTest, ReportsTimesAsReducedSeconds) {
    const Packet packet = timedPacket(Rational(1, 90000), 3003, 0, 1500);
    EXPECT_THAT(packet.getPts(), IsFraction(1001, 30000));
    EXPECT_THAT(packet.getDuration(), IsFraction(1, 60));
    EXPECT_THAT(packet.getUnitTime(), IsFraction(1, 90000));
}

TEST(PacketTest, ReportsNegativeTimes) {
    EXPECT_THAT(timedPacket(Rational(1, 1000), -500).getPts(), IsFraction(-1, 2));
}

TEST(PacketTest, AnUnknownDurationIsZero) {
    EXPECT_THAT(timedPacket(Rational(1, 90000), 3003).getDuration(), IsFraction(0, 1));
}

TEST(PacketTest, MultipliesAnUnknownTimeLikeAnyOther) {
    // -2^63 / 90000, divided by the common factor 16.
    EXPECT_THAT(timedPacket(Rational(1, 90000), noTime).getPts(),
                IsFraction(-576460752303423488, 5625));
}

TEST(PacketTest, SetPtsKeepsTheDistanceFromDecodingToPresentation) {
    Packet packet = timedPacket(Rational(1, 1000), 100, 80);
    packet.setPts(Rational(1, 2));
    EXPECT_EQ(packet.getPacket().pts, 500);
    EXPECT_EQ(packet.getPacket().dts, 480);
}

TEST(PacketTest, SetPtsTruncatesTowardZero) {
    Packet packet = timedPacket(Rational(1, 1000), 100, 80);
    packet.setPts(Rational(1, 3));
    EXPECT_EQ(packet.getPacket().pts, 333);
    packet.setPts(Rational(-2, 3));
    EXPECT_EQ(packet.getPacket().pts, -666);
    EXPECT_EQ(packet.getPacket().dts, -686);
}

TEST(PacketTest, SetPtsCountsInTimeBasesWhoseNumeratorIsNotOne) {
    Packet packet = timedPacket(Rational(1001, 30000), 0, -1);
    packet.setPts(Rational(1001, 10000));
    EXPECT_EQ(packet.getPacket().pts, 3);
    EXPECT_EQ(packet.getPacket().dts, 2);
}

TEST(PacketTest, SetPtsGivesAPacketWithoutTimesBoth) {
    Packet packet = timedPacket(Rational(1, 1000), noTime, noTime);
    packet.setPts(Rational(1, 2));
    EXPECT_EQ(packet.getPacket().pts, 500);
    EXPECT_EQ(packet.getPacket().dts, 500);
}

TEST(PacketTest, SetPtsWrapsAroundWhereOnlyOneTimeIsUnknown) {
    Packet packet = timedPacket(Rational(1, 1000), 100, noTime);
    packet.setPts(Rational(1, 10)); // where it is already
    EXPECT_EQ(packet.getPacket().dts, noTime);
    packet.setPts(Rational(99, 1000)); // one tick below the smallest integer
    EXPECT_EQ(packet.getPacket().dts, std::numeric_limits<int64_t>::max());
}

// Microseconds since 1970: 1.7e15 of them, in a fraction of 10^6, leave 64 bits on the way.
TEST(PacketTest, TimesOfAWallClockAreExact) {
    Packet packet = timedPacket(Rational(1, 1000000), 1700000000123457, 1700000000083457);
    EXPECT_THAT(packet.getPts(), IsFraction(1700000000123457, 1000000));
    packet.setPts(packet.getPts());
    EXPECT_EQ(packet.getPacket().pts, 1700000000123457);
    EXPECT_EQ(packet.getPacket().dts, 1700000000083457);
    packet.setDts(Rational(1700000000123457, 1000000));
    EXPECT_EQ(packet.getPacket().dts, 1700000000123457);
}

// The quotient 1700000000123456789 * 90000 / 10^9 has no reduced form in 64 bits, but a whole part.
TEST(PacketTest, SetPtsTruncatesAlsoWhereTheFractionLeavesSixtyFourBits) {
    Packet packet = timedPacket(Rational(1, 90000), 0, 0);
    packet.setPts(Rational(1700000000123456789, 1000000000));
    EXPECT_EQ(packet.getPacket().pts, 153000000011111);
    packet.setPts(Rational(-1700000000123456789, 1000000000));
    EXPECT_EQ(packet.getPacket().pts, -153000000011111);
}

TEST(PacketTest, AnUnknownTimeIsSetAsItIsRead) {
    Packet packet = timedPacket(Rational(1, 90000), noTime, 0);
    packet.setDts(packet.getPts());
    EXPECT_EQ(packet.getPacket().dts, noTime);
}

TEST(PacketTest, SetPtsRefusesATimeBaseOfZero) {
    Packet packet = timedPacket(Rational(0, 1), 100, 80);
    EXPECT_THROW(packet.setPts(Rational(1, 2)), tio::Exception);
    EXPECT_THROW(packet.setPts(Rational(0, 1)), tio::Exception);
    EXPECT_EQ(packet.getPacket().pts, 100);
    EXPECT_EQ(packet.getPacket().dts, 80);
}

TEST(PacketTest, ReportsTheTimeOfDecoding) {
    EXPECT_THAT(timedPacket(Rational(1, 90000), 0, 3003).getDts(), IsFraction(1001, 30000));
}

TEST(PacketTest, KnowsWhichTimesItHas) {
    const Packet both = timedPacket(Rational(1, 1000), 0, -1);
    EXPECT_TRUE(both.hasPts());
    EXPECT_TRUE(both.hasDts());
    EXPECT_FALSE(timedPacket(Rational(1, 1000), noTime, 0).hasPts());
    EXPECT_FALSE(timedPacket(Rational(1, 1000), 0, noTime).hasDts());
}

TEST(PacketTest, SetDtsTruncatesTowardZeroAndLeavesThePresentation) {
    Packet packet = timedPacket(Rational(1, 1000), 100, 80);
    packet.setDts(Rational(-2, 3));
    EXPECT_EQ(packet.getPacket().dts, -666);
    EXPECT_EQ(packet.getPacket().pts, 100);
}

TEST(PacketTest, SetDtsRefusesATimeBaseOfZero) {
    Packet packet = timedPacket(Rational(0, 1), 100, 80);
    EXPECT_THROW(packet.setDts(Rational(1, 2)), tio::Exception);
    EXPECT_EQ(packet.getPacket().dts, 80);
}

TEST(PacketTest, ACopySharesTheDataAndHasTimesOfItsOwn) {
    Packet original = timedPacket(Rational(1, 1000), 100, 80);
    Packet copy = original;
    EXPECT_EQ(copy.getPacket().data, original.getPacket().data);
    EXPECT_EQ(holdersOfData(original), 2);
    EXPECT_THAT(copy.getUnitTime(), IsFraction(1, 1000));
    copy.setPts(Rational(1, 2));
    EXPECT_EQ(original.getPacket().pts, 100);
}

TEST(PacketTest, CopyAssignmentKeepsTheTargetsTimeBase) {
    const Packet source = timedPacket(Rational(1, 1000), 900);
    Packet target = timedPacket(Rational(1, 90000), 0);
    target = source;
    EXPECT_THAT(target.getUnitTime(), IsFraction(1, 90000));
    EXPECT_EQ(target.getPacket().pts, 900);
    EXPECT_THAT(target.getPts(), IsFraction(1, 100)) << "the same ticks mean another time";
}

TEST(PacketTest, CopyAssignmentReleasesWhatTheTargetHeld) {
    const PacketPointer former = makePacket({1});
    const Packet source = timedPacket(Rational(1, 1000), 0);
    Packet target(former.get(), Rational(1, 1000));
    target = source;
    EXPECT_EQ(av_buffer_get_ref_count(former->buf), 1);
    EXPECT_EQ(target.getPacket().data, source.getPacket().data);
}

TEST(PacketTest, AssignmentToItselfEmptiesAPacket) {
    Packet packet = timedPacket(Rational(1, 1000), 100);
    const Packet& same = packet;
    packet = same;
    EXPECT_EQ(sizeOf(packet), 0);
    EXPECT_EQ(packet.getPacket().pts, noTime);
    EXPECT_THAT(packet.getUnitTime(), IsFraction(1, 1000));
}

TEST(PacketTest, AMovedIntoPacketCountsInTheTimeBaseZero) {
    Packet source = timedPacket(Rational(1, 1000), 100);
    const unsigned char* data = source.getPacket().data;
    const Packet target(std::move(source));
    EXPECT_EQ(target.getPacket().data, data);
    EXPECT_EQ(target.getPacket().pts, 100);
    EXPECT_THAT(target.getUnitTime(), IsFraction(0, 1));
    EXPECT_THAT(target.getPts(), IsFraction(0, 1));
}

TEST(PacketTest, MovingTakesNoReference) {
    const test::Interception intercepted;
    Packet source = timedPacket(Rational(1, 1000), 100);
    const int references = intercepted->av_packet_ref.count;
    Packet constructed(std::move(source));
    Packet assigned = timedPacket(Rational(1, 25), 0);
    const int withAssigned = intercepted->av_packet_ref.count;
    assigned = std::move(constructed);
    EXPECT_EQ(intercepted->av_packet_ref.count, withAssigned);
    EXPECT_EQ(withAssigned, references + 1) << "the one that makes the packet assigned to";
    EXPECT_EQ(holdersOfData(assigned), 1);
}

TEST(PacketTest, MoveAssignmentTakesOverTheTimeBaseToo) {
    Packet source = timedPacket(Rational(1, 1000), 100);
    Packet target = timedPacket(Rational(1, 90000), 0);
    target = std::move(source);
    EXPECT_THAT(target.getPts(), IsFraction(1, 10));
}

TEST(PacketTest, AMovedFromPacketTakesNewContents) {
    const Packet next = timedPacket(Rational(1, 1000), 100);
    Packet copiedInto = timedPacket(Rational(1, 25), 0);
    const Packet elsewhere(std::move(copiedInto));
    copiedInto = next;
    EXPECT_EQ(copiedInto.getPacket().pts, 100);

    Packet movedInto = timedPacket(Rational(1, 25), 0);
    const Packet elsewhereToo(std::move(movedInto));
    movedInto = timedPacket(Rational(1, 1000), 200);
    EXPECT_THAT(movedInto.getPts(), IsFraction(1, 5));
}

TEST(PacketTest, CopyingAMovedFromPacketGivesAnEmptyOne) {
    Packet source = timedPacket(Rational(1, 1000), 100);
    const Packet elsewhere(std::move(source));
    EXPECT_EQ(sizeOf(Packet(source)), 0); // NOLINT(bugprone-use-after-move)
    Packet target = timedPacket(Rational(1, 25), 0);
    target = source;
    EXPECT_EQ(sizeOf(target), 0);
}

// Every reference fails as if no memory were left.
class FailingReferenceTest : public ::testing::Test {
protected:
    void failNow() {
        intercepted->av_packet_ref.instead = [](AVPacket*, const AVPacket*) {
            return AVERROR(ENOMEM);
        };
    }

    template <typename Call>
    void expectFailureAt(int number, Call&& call) {
        failNow();
        const std::string text =
            R"(Cannot allocate memory @ ..\src\TARN\videoio\Packet:)" + std::to_string(number);
        EXPECT_EQ(thrownText<tio::ffmpeg::Exception>(call), text);
        EXPECT_THAT(log.lines(), ElementsAre(IsLogLine("root", 5, text)));
    }

    test::Interception intercepted;
    test::LogCapture log;
    test::BareContext context;
    PacketPointer source = makePacket({1, 2, 3}, 100);
    InputPacket original{source.get(), &context.stream()};
};

TEST_F(FailingReferenceTest, ConstructionSaysSo) {
    expectFailureAt(46, [&] { Packet(source.get(), Rational(1, 25)); });
}

TEST_F(FailingReferenceTest, ConstructionOfAnInputPacketSaysSo) {
    expectFailureAt(46, [&] { InputPacket(source.get(), &context.stream()); });
}

TEST_F(FailingReferenceTest, PassingAPacketThroughSaysSo) {
    expectFailureAt(46, [&] { OutputPacket{original}; });
}

TEST_F(FailingReferenceTest, CopyingSaysSo) {
    expectFailureAt(59, [&] { InputPacket{original}; });
}

TEST_F(FailingReferenceTest, CopyAssignmentSaysSoAndLeavesTheTargetEmpty) {
    Packet target = timedPacket(Rational(1, 25), 7);
    expectFailureAt(78, [&] { target = original; } /* NOLINT(cppcoreguidelines-slicing) */);
    EXPECT_EQ(sizeOf(target), 0);
    EXPECT_THAT(target.getUnitTime(), IsFraction(1, 25));
}

TEST_F(FailingReferenceTest, AFailedAssignmentLeavesTheStreamOfTheTarget) {
    const test::BareContext other;
    InputPacket target(source.get(), &other.stream());
    expectFailureAt(78, [&] { target = original; });
    EXPECT_EQ(&target.getStream(), &other.stream());
}

TEST(PacketThreadsTest, CopiesMayBeUsedAndReleasedOnDifferentThreads) {
    const Packet original = timedPacket(Rational(1, 1000), 100);
    std::vector<Packet> copies(4, original);
    std::vector<std::thread> threads;
    for (Packet& copy : copies)
        threads.emplace_back([&copy] {
            for (int n = 0; n < 100; ++n) {
                Packet another(copy);
                another.setPts(Rational(n, 1));
                copy = another;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(copies.back().getPacket().pts, 99000);
    copies.clear();
    EXPECT_EQ(holdersOfData(original), 1);
    EXPECT_EQ(original.getPacket().pts, 100);
}

} // namespace
} // namespace tio::ffmpeg
