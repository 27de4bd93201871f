#include "H264HelperResults.h"
#include "support/Interception.h"

#include <TARN/videoio/H264Helpers.h>

#include <cstddef>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <utility>

namespace tio::videolib {
namespace {

using test::Sets;
using test::setsOf;
using test::Unit;
using test::unitsOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

// Splitting

TEST(ExtractAllNals, DataWithoutStartCodeHaveNoUnits) {
    EXPECT_THAT(unitsOf({}), IsEmpty());
    EXPECT_THAT(unitsOf({0x65, 0xAA, 0, 0, 2, 0x65}), IsEmpty());
}

TEST(ExtractAllNals, GivesTheOneUnitBehindAShortStartCode) {
    EXPECT_THAT(unitsOf({0, 0, 1, 0x65, 0xAA}), ElementsAre(Pair(3, Unit{0x65, 0xAA})));
}

TEST(ExtractAllNals, TellsTheLengthOfEachStartCode) {
    EXPECT_THAT(unitsOf({0, 0, 0, 1, 0x67, 1, 0, 0, 1, 0x68, 2, 0, 0, 0, 1, 0x65}),
                ElementsAre(Pair(4, Unit{0x67, 1}), Pair(3, Unit{0x68, 2}), Pair(4, Unit{0x65})));
}

TEST(ExtractAllNals, IgnoresWhatPrecedesTheFirstStartCode) {
    EXPECT_THAT(unitsOf({7, 0, 9, 0, 0, 1, 0x65}), ElementsAre(Pair(3, Unit{0x65})));
}

TEST(ExtractAllNals, AdjacentStartCodesHaveAnEmptyUnitBetweenThem) {
    EXPECT_THAT(unitsOf({0, 0, 1, 0, 0, 1, 0x65}),
                ElementsAre(Pair(3, Unit{}), Pair(3, Unit{0x65})));
}

TEST(ExtractAllNals, MoreZerosThanAStartCodeHasBelongToTheUnitBefore) {
    EXPECT_THAT(unitsOf({0, 0, 1, 0x65, 0, 0, 0, 0, 1, 0x41}),
                ElementsAre(Pair(3, Unit{0x65, 0}), Pair(4, Unit{0x41})));
}

// The last byte of a start code has to be followed by one more.
TEST(ExtractAllNals, AStartCodeAtTheVeryEndBelongsToTheUnitBefore) {
    EXPECT_THAT(unitsOf({0, 0, 1}), IsEmpty());
    EXPECT_THAT(unitsOf({0, 0, 0, 1}), IsEmpty());
    EXPECT_THAT(unitsOf({0, 0, 1, 0x65, 0, 0, 1}), ElementsAre(Pair(3, Unit{0x65, 0, 0, 1})));
}

TEST(ExtractAllNals, OneByteBehindAStartCodeIsEnough) {
    EXPECT_THAT(unitsOf({0, 0, 1, 0x65}), ElementsAre(Pair(3, Unit{0x65})));
    EXPECT_THAT(unitsOf({0, 0, 0, 1, 0x65}), ElementsAre(Pair(4, Unit{0x65})));
}

TEST(ExtractAllNals, WithoutCallbackItFailsAtTheFirstUnit) {
    const Unit none = {1, 2, 3, 4, 5};
    EXPECT_EQ(helper::extract_all_nals(none.data(), none.size(), nullptr), 0);
    const Unit one = {0, 0, 1, 0x65};
    EXPECT_THROW(helper::extract_all_nals(one.data(), one.size(), nullptr), std::bad_function_call);
}

TEST(ExtractAllNals, ReleasesTheCallbackBeforeItReturns) {
    const auto held = std::make_shared<int>();
    const Unit stream = {0, 0, 1, 0x65};
    std::function<void(size_t, Unit&)> callback = [held](size_t, Unit&) {};
    long holders = 0;
    // One statement: until its end the compiler keeps the argument.
    static_cast<void>(helper::extract_all_nals(stream.data(), stream.size(), std::move(callback))),
        holders = held.use_count();
    EXPECT_EQ(holders, 1);
}

TEST(ExtractAllNals, TheCallbackMayKeepTheBytes) {
    Unit kept;
    const Unit stream = {0, 0, 1, 0x65, 0xAA};
    helper::extract_all_nals(stream.data(), stream.size(),
                             [&](size_t, Unit& unit) { kept = std::move(unit); });
    EXPECT_THAT(kept, ElementsAre(0x65, 0xAA));
}

// Parameter sets

TEST(ExtradataToSpsPps, TakesBothSetsWithTheirStartCodes) {
    const Sets sets = setsOf({0, 0, 0, 1, 0x67, 10, 11, 0, 0, 0, 1, 0x68, 20});
    EXPECT_EQ(sets.result, 0);
    EXPECT_THAT(sets.sps, ElementsAre(0, 0, 0, 1, 0x67, 10, 11));
    EXPECT_THAT(sets.pps, ElementsAre(0, 0, 0, 1, 0x68, 20));
}

TEST(ExtradataToSpsPps, KeepsShortStartCodesAndTakesTheSetsInAnyOrder) {
    const Sets sets = setsOf({0, 0, 1, 0x68, 20, 0, 0, 1, 0x27, 10});
    EXPECT_THAT(sets.sps, ElementsAre(0, 0, 1, 0x27, 10));
    EXPECT_THAT(sets.pps, ElementsAre(0, 0, 1, 0x68, 20));
}

TEST(ExtradataToSpsPps, TakesTheFirstOfSeveralSets) {
    const Sets sets = setsOf({0,    0, 1, 0x09, 0xF0, 0,    0, 1, 0x67, 1, 0,    0, 1,
                              0x67, 2, 0, 0,    1,    0x68, 3, 0, 0,    1, 0x68, 4});
    EXPECT_THAT(sets.sps, ElementsAre(0, 0, 1, 0x67, 1));
    EXPECT_THAT(sets.pps, ElementsAre(0, 0, 1, 0x68, 3));
}

class FirstSliceType : public ::testing::TestWithParam<unsigned char> {};

TEST_P(FirstSliceType, EndsTheSearch) {
    const Sets sets = setsOf({0, 0, 1, GetParam(), 9, 0, 0, 1, 0x67, 1, 0, 0, 1, 0x68, 3});
    EXPECT_EQ(sets.result, 0);
    EXPECT_THAT(sets.sps, IsEmpty());
    EXPECT_THAT(sets.pps, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Slices, FirstSliceType, ::testing::Values(0x65, 0x41, 0x01, 0x25));

TEST(ExtradataToSpsPps, ASetThatIsAbsentIsNoFailure) {
    const Sets sets = setsOf({0, 0, 1, 0x67, 1});
    EXPECT_EQ(sets.result, 0);
    EXPECT_THAT(sets.sps, ElementsAre(0, 0, 1, 0x67, 1));
    EXPECT_THAT(sets.pps, IsEmpty());
}

TEST(ExtradataToSpsPps, ARecordOfNoBytesIsMalformed) {
    for (const int size : {0, -1, 1, 10}) {
        const auto exact = std::make_unique<unsigned char[]>(10);
        exact[0] = 1;
        unsigned char* sps = nullptr;
        unsigned char* pps = nullptr;
        size_t spsSize = 0;
        size_t ppsSize = 0;
        EXPECT_EQ(extradata_to_spspps(exact.get(), size, &sps, &spsSize, &pps, &ppsSize), -1)
            << size;
        EXPECT_EQ(sps, nullptr);
        EXPECT_EQ(pps, nullptr);
    }
}

TEST(ExtradataToSpsPps, NoExtradataHaveNoSets) {
    EXPECT_EQ(setsOf({}).result, 0);
    EXPECT_EQ(setsOf({0}).result, 0);
}

/// A decoder configuration record with one set of each kind.
Unit record(const Unit& sps, const Unit& pps) {
    const auto push = [](Unit& to, const Unit& set) {
        to.push_back(static_cast<unsigned char>(set.size() >> 8));
        to.push_back(static_cast<unsigned char>(set.size()));
        to.insert(to.end(), set.begin(), set.end());
    };
    Unit bytes = {1, 0x64, 0, 0x1F, 0xFF, 0xE1};
    push(bytes, sps);
    bytes.push_back(1);
    push(bytes, pps);
    return bytes;
}

TEST(ExtradataToSpsPps, TakesTheSetsOfARecordWithStartCodesOfFourBytes) {
    const Sets sets = setsOf(record({0x67, 10, 11}, {0x68, 20}));
    EXPECT_EQ(sets.result, 0);
    EXPECT_THAT(sets.sps, ElementsAre(0, 0, 0, 1, 0x67, 10, 11));
    EXPECT_THAT(sets.pps, ElementsAre(0, 0, 0, 1, 0x68, 20));
}

TEST(ExtradataToSpsPps, LengthsInARecordHaveTwoBytes) {
    Unit sps(300, 0x55);
    sps[0] = 0x67;
    EXPECT_EQ(setsOf(record(sps, {0x68})).sps.size(), 4u + 300);
}

TEST(ExtradataToSpsPps, TheCountsInARecordAreNotLookedAt) {
    Unit bytes = record({0x67, 10}, {0x68, 20});
    bytes[5] = 0xE0;  // no SPS
    bytes[8 + 2] = 0; // no PPS
    EXPECT_EQ(setsOf(bytes).sps.size(), 6u);
    EXPECT_EQ(setsOf(bytes).pps.size(), 6u);
}

TEST(ExtradataToSpsPps, WhatFollowsTheFirstSetsOfARecordIsIgnored) {
    Unit bytes = record({0x67, 10}, {0x68, 20});
    bytes.insert(bytes.end(), {0xFD, 0xF8, 0xF8, 0});
    EXPECT_THAT(setsOf(bytes).pps, ElementsAre(0, 0, 0, 1, 0x68, 20));
}

TEST(ExtradataToSpsPps, EmptySetsOfARecordAreAbsent) {
    const Sets sets = setsOf(record({}, {}));
    EXPECT_EQ(sets.result, 0);
    EXPECT_THAT(sets.sps, IsEmpty());
    EXPECT_THAT(sets.pps, IsEmpty());
}

TEST(ExtradataToSpsPps, ARecordOfTenBytesIsMalformed) {
    Unit bytes = record({}, {});
    ASSERT_EQ(bytes.size(), 11u);
    bytes.pop_back();
    EXPECT_EQ(setsOf(bytes).result, -1);
}

TEST(ExtradataToSpsPps, ASetThatRunsPastTheEndOfARecordIsMalformed) {
    const Unit whole = record({0x67, 10, 11}, {0x68, 20});
    for (size_t size = 1; size < whole.size(); ++size)
        EXPECT_EQ(setsOf({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)}).result,
                  -1)
            << size;
    Unit longer = whole;
    longer[6] = 0xFF;
    EXPECT_EQ(setsOf(longer).result, -1);
}

class FailedAllocation : public ::testing::TestWithParam<int> {};

TEST_P(FailedAllocation, OfOneSetGivesNeither) {
    const test::Interception intercepted;
    intercepted->malloc.instead = [&](size_t size) {
        return intercepted->malloc.count == GetParam() ? nullptr : test::real::allocate(size);
    };
    EXPECT_EQ(setsOf({0, 0, 1, 0x67, 10, 0, 0, 1, 0x68, 20}).result, -1);
}

INSTANTIATE_TEST_SUITE_P(Sets, FailedAllocation, ::testing::Values(1, 2));

} // namespace
} // namespace tio::videolib
