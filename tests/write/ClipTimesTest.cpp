#include "exact/write/ClipTimes.h"

#include <gtest/gtest.h>
#include <vector>

namespace tio::ffmpeg::detail {
namespace {

ClipTimes taking(const std::vector<Fraction>& times, TimeRules rules = {}) {
    ClipTimes taken(std::move(rules));
    for (const Fraction& time : times) {
        const auto candidate = taken.check(time, std::nullopt, "clip");
        taken.makeRoom();
        taken.accept(candidate);
    }
    return taken;
}

Fraction refusedFor(const ClipTimes& times, const Fraction& time) {
    try {
        static_cast<void>(times.check(time, std::nullopt, "clip"));
    } catch (const TimeRefusal& refusal) {
        return refusal.nearest();
    }
    ADD_FAILURE() << "not refused";
    return -1;
}

void expectHeld(const std::vector<Fraction>& times, TimeRules rules = {}) {
    const ClipTimes taken = taking(times, std::move(rules));
    const int64_t scale = taken.scale();
    EXPECT_LE(scale, 2147483647);
    for (std::size_t i = 0; i < times.size(); ++i)
        EXPECT_EQ(Fraction(taken.ticks(i, scale), scale), times[i]) << i;
}

TEST(NearestFraction, IsTheBestOneWithinTheLimit) {
    const Fraction pi(314159265358979, 100000000000000);
    EXPECT_EQ(nearestFraction(pi, 1), Fraction(3));
    EXPECT_EQ(nearestFraction(pi, 7), Fraction(22, 7));
    EXPECT_EQ(nearestFraction(pi, 100), Fraction(311, 99)); // 22/7 is further off
    EXPECT_EQ(nearestFraction(pi, 113), Fraction(355, 113));
    EXPECT_EQ(nearestFraction(Fraction(-1, 3), 2), Fraction(-1, 2));
    EXPECT_EQ(nearestFraction(Fraction(5, 7), 7), Fraction(5, 7));
}

TEST(NearestFraction, AgreesWithASearchOfAll) {
    for (int64_t top = 1; top < 60; ++top) {
        const Fraction value(top, 61);
        for (int64_t limit = 1; limit < 61; limit += 7) {
            Fraction best = 5;
            const auto off = [&](const Fraction& one) {
                const Fraction far = one - value;
                return far < 0 ? -far : far;
            };
            for (int64_t bottom = 1; bottom <= limit; ++bottom) {
                for (int64_t above = 0; above <= bottom; ++above) {
                    if (off({above, bottom}) < off(best))
                        best = {above, bottom};
                }
            }
            EXPECT_EQ(off(nearestFraction(value, limit)), off(best)) << value << " " << limit;
        }
    }
}

TEST(RoundedProduct, RoundsHalvesUpward) {
    EXPECT_TRUE(roundedProduct(Fraction(1, 2), 1) == 1);
    EXPECT_TRUE(roundedProduct(Fraction(-1, 2), 1) == 0);
    EXPECT_TRUE(roundedProduct(Fraction(-3, 4), 1) == -1);
    EXPECT_TRUE(roundedProduct(Fraction(7, 3), 3) == 7);
}

TEST(ClipTimes, HoldsFractionsOfEveryKind) {
    expectHeld({0, Fraction(1001, 30000), Fraction(2002, 30000)});
    expectHeld({0, Fraction(1, 7), Fraction(1, 3), Fraction(1, 2)});
    expectHeld({Fraction(1, 1000000), Fraction(1, 2)});
    expectHeld({Fraction(1732023912123457, 1000000), Fraction(1732023912223457, 1000000)});
    expectHeld({0, Fraction(1, 25), 3 * 86400});
    expectHeld({0, Fraction(1, 2147483647)});
}

TEST(ClipTimes, RefusesWhatNoTickHoldsAndTellsTheNearest) {
    const ClipTimes times = taking({0, Fraction(1, 1000003)});
    const Fraction nearest = refusedFor(times, Fraction(1, 1009) + Fraction(1, 999983));
    EXPECT_NO_THROW(static_cast<void>(times.check(nearest, std::nullopt, "clip")));
    const Fraction off = nearest - (Fraction(1, 1009) + Fraction(1, 999983));
    EXPECT_LT(off < 0 ? -off : off, Fraction(1, 1000003)); // closer than the tick before
}

TEST(ClipTimes, RefusesAPauseThatIsLongerThanATrackCanSay) {
    const ClipTimes times = taking({0, Fraction(1, 1000000)});
    EXPECT_EQ(refusedFor(times, 3000), Fraction(2147483647, 1000000)); // from 1/1000000 on
    EXPECT_NO_THROW(static_cast<void>(times.check(2147, std::nullopt, "clip")));
}

TEST(ClipTimes, RefusesATickTooFineForAPauseBefore) {
    const ClipTimes times = taking({0, 86400});
    const Fraction nearest = refusedFor(times, 86400 + Fraction(1, 1000000));
    EXPECT_NO_THROW(static_cast<void>(times.check(nearest, std::nullopt, "clip")));
}

TEST(ClipTimes, RefusesWhatDoesNotRise) {
    const ClipTimes times = taking({0, Fraction(1, 2)});
    EXPECT_EQ(refusedFor(times, Fraction(1, 2)), Fraction(1));
    EXPECT_EQ(refusedFor(times, Fraction(1, 3)), Fraction(1));
    EXPECT_EQ(refusedFor(taking({}), Fraction(-1, 3)), Fraction(0));
}

TEST(ClipTimes, KeepsToTheGrid) {
    TimeRules rules;
    rules.grid = Fraction(1001, 30000);
    const ClipTimes times = taking({0}, rules);
    EXPECT_EQ(refusedFor(times, Fraction(1, 29)), Fraction(1001, 30000));
    EXPECT_EQ(refusedFor(times, Fraction(1000, 3)), Fraction(1001) * 9990 / 30000);
    expectHeld({0, Fraction(1001, 30000), Fraction(1001, 3)}, rules);
}

TEST(ClipTimes, UsesTheTicksOfTheTimeBaseWhileAPauseLetsIt) {
    TimeRules rules;
    rules.grid = Fraction(1, 1000000);
    rules.preferredScale = 1000000;
    EXPECT_EQ(taking({0, Fraction(1, 2)}, rules).scale(), 1000000);
    expectHeld({0, Fraction(1, 2), 3 * 86400}, rules); // in coarser ones
}

TEST(ClipTimes, CountsFromTheFirstPicture) {
    TimeRules rules;
    rules.origin = ClipOrigin::First;
    const ClipTimes times = taking({-5, Fraction(-9, 2)}, rules);
    EXPECT_EQ(times.ticks(0, 1000), 0);
    EXPECT_EQ(times.ticks(1, 1000), 500);
    EXPECT_EQ(refusedFor(times, -6), Fraction(-4)); // as the caller counts
}

TEST(ClipTimes, MillisecondsAreRoundedTo) {
    TimeRules rules;
    rules.fixedScale = 1000;
    const ClipTimes times = taking({0, Fraction(1001, 30000), Fraction(2002, 30000)}, rules);
    EXPECT_EQ(times.ticks(1, 1000), 33);
    EXPECT_EQ(times.ticks(2, 1000), 67);
    EXPECT_EQ(refusedFor(times, Fraction(2003, 30000)), Fraction(68, 1000));
}

TEST(ClipTimes, LastsAsLongAsIsAskedForOrAsTheOneBefore) {
    ClipTimes times = taking({0, Fraction(1, 7)});
    EXPECT_EQ(times.end(), Fraction(2, 7));
    const auto last = times.check(Fraction(3, 7), Fraction(5), "clip");
    times.makeRoom();
    times.accept(last);
    EXPECT_EQ(times.end(), Fraction(38, 7));
    EXPECT_THROW(static_cast<void>(times.check(6, Fraction(0), "clip")), ClipRefusal);
    EXPECT_THROW(static_cast<void>(times.check(6, Fraction(-1), "clip")), ClipRefusal);
}

TEST(ClipTimes, NumbersThatAreNoneAreRefused) {
    const ClipTimes times = taking({0});
    for (const Fraction& none : {Fraction(1, 0), Fraction(0, 0), Fraction(INT64_MIN, 1),
                                 Fraction(INT64_MAX, 1), Fraction(1, INT64_MAX)})
        EXPECT_THROW(static_cast<void>(times.check(none, std::nullopt, "clip")), TimeRefusal)
            << none;
}

// 2^28 - 1 ticks lie between the decoding and the showing of a picture at most.
TEST(ClipTimes, ExchangedPicturesLieNoFurtherApartThanTheirTickAllows) {
    TimeRules rules;
    rules.reorders = true;
    rules.startsAfresh = false;
    rules.exactScale = 90000;
    const std::vector<Fraction> start = {0, {1, 25}, {2, 25}, {3, 25}};
    const ClipTimes times = taking(start, rules);
    const Fraction latest((1 << 28) - 1, 90000);
    EXPECT_EQ(refusedFor(times, latest + Fraction(1, 90000)), latest);
    EXPECT_EQ(refusedFor(times, 86400), latest);
    expectHeld({0, {1, 25}, {2, 25}, {3, 25}, latest}, rules);
    rules.startsAfresh = true;
    expectHeld({0, {1, 25}, {2, 25}, {3, 25}, 20000}, rules);
    rules.reorders = false;
    rules.startsAfresh = false;
    expectHeld({0, {1, 25}, {2, 25}, {3, 25}, 20000}, rules);
}

TEST(ClipTimes, TheTickStaysCoarseEnoughForExchangedPicturesOfLongPauses) {
    TimeRules rules;
    rules.reorders = true;
    rules.startsAfresh = false;
    rules.preferredScale = 90000;
    const ClipTimes times = taking({0, {1, 30}, {2, 30}, 86400}, rules);
    EXPECT_LE(86400 * times.scale(), (1 << 28) - 1);
    EXPECT_EQ(times.scale() % 30, 0);
}

} // namespace
} // namespace tio::ffmpeg::detail
