#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Demuxing.h"
#include "support/Interception.h"
#include "support/MediaFolder.h"
#include "support/TemporaryFolder.h"

extern "C" {
#include <libavcodec/bsf.h>
}

#include <TARN/videoio/H264Helpers.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tio::videolib {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

using Unit = std::vector<unsigned char>;

std::vector<std::pair<size_t, Unit>> unitsOf(const Unit& stream) {
    std::vector<std::pair<size_t, Unit>> units;
    const int count =
        helper::extract_all_nals(stream.data(), stream.size(), [&](size_t codeLength, Unit& unit) {
            units.emplace_back(codeLength, unit);
        });
    EXPECT_EQ(count, static_cast<int>(units.size()));
    return units;
}

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

struct Sets {
    int result;
    Unit sps;
    Unit pps;
};

/// The sets of some extradata, which lie in a block of exactly their size so that a sanitizer sees
/// a read beyond it. The first byte is looked at in any case.
Sets setsOf(const Unit& extradata) {
    const auto exact = std::make_unique<unsigned char[]>(std::max(extradata.size(), size_t{1}));
    std::copy(extradata.begin(), extradata.end(), exact.get());
    unsigned char untouched = 0;
    unsigned char* sps = &untouched;
    unsigned char* pps = &untouched;
    size_t spsSize = 0;
    size_t ppsSize = 0;
    const int result = extradata_to_spspps(exact.get(), static_cast<int>(extradata.size()), &sps,
                                           &spsSize, &pps, &ppsSize);
    Sets sets{result, {sps, sps + spsSize}, {pps, pps + ppsSize}};
    EXPECT_TRUE(result == 0 || (sps == nullptr && pps == nullptr));
    EXPECT_NE(sps, &untouched);
    EXPECT_NE(pps, &untouched);
    std::free(sps);
    std::free(pps);
    return sets;
}

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

// Streams of an encoder

/// Video packets of a clip as FFmpeg's own filter turns them from MP4 to Annex-B.
class AnnexBPackets {
public:
    explicit AnnexBPackets(const std::string& path)
        : demuxer(path), turned(test::checkFound(av_packet_alloc(), "packet")) {
        const AVBitStreamFilter* kind = av_bsf_get_by_name("h264_mp4toannexb");
        test::check(av_bsf_alloc(test::checkFound(kind, "filter"), &filter), "filter");
        test::check(avcodec_parameters_copy(filter->par_in, demuxer.stream().codecpar), "filter");
        test::check(av_bsf_init(filter), "filter");
    }
    ~AnnexBPackets() { av_bsf_free(&filter); }
    AnnexBPackets(const AnnexBPackets&) = delete;
    AnnexBPackets& operator=(const AnnexBPackets&) = delete;

    bool next() {
        if (!demuxer.readPacket())
            return false;
        const test::PacketPointer copy(av_packet_clone(&demuxer.packet()));
        test::check(av_bsf_send_packet(filter, copy.get()), "filter");
        av_packet_unref(turned.get());
        test::check(av_bsf_receive_packet(filter, turned.get()), "filter");
        return true;
    }

    [[nodiscard]] Unit annexB() const { return {turned->data, turned->data + turned->size}; }
    [[nodiscard]] const AVPacket& stored() const { return demuxer.packet(); }
    [[nodiscard]] const AVCodecParameters& before() const { return *filter->par_in; }
    [[nodiscard]] const AVCodecParameters& after() const { return *filter->par_out; }

private:
    test::VideoDemuxer demuxer;
    test::PacketPointer turned;
    AVBSFContext* filter = nullptr;
};

/// The units of a packet of an MP4 file, each behind its length in four bytes.
std::vector<Unit> unitsByLength(const AVPacket& packet) {
    std::vector<Unit> units;
    for (int at = 0; at + 4 <= packet.size;) {
        const uint8_t* const bytes = packet.data + at;
        const int length = bytes[0] << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
        units.emplace_back(bytes + 4, bytes + 4 + length);
        at += 4 + length;
    }
    return units;
}

class EncodedStream : public ::testing::Test {
protected:
    EncodedStream() {
        test::ClipPlan plan;
        plan.encoderOptions = {{"slices", "3"}};
        test::makeClip(path, plan);
    }

    test::TemporaryFolder folder;
    std::string path = folder.file("clip.mp4");
};

/// Compares the units of every packet of a clip with those that its container counts by length.
/// @returns how many there are
std::size_t compareUnits(const std::string& path) {
    std::size_t count = 0;
    AnnexBPackets packets(path);
    while (packets.next()) {
        std::vector<Unit> found;
        for (auto& [codeLength, unit] : unitsOf(packets.annexB()))
            found.push_back(unit);
        const std::vector<Unit> stored = unitsByLength(packets.stored());
        // FFmpeg's filter puts parameter sets before key frames.
        std::size_t matched = 0;
        for (const Unit& unit : found)
            matched += matched < stored.size() && unit == stored[matched] ? 1 : 0;
        EXPECT_EQ(matched, stored.size()) << "in order";
        EXPECT_LE(found.size(), stored.size() + 2);
        count += stored.size();
    }
    return count;
}

TEST_F(EncodedStream, UnitsAreThoseThatTheContainerCountsByLength) {
    EXPECT_GE(compareUnits(path), 25u * 3) << "slices";
}

TEST_F(EncodedStream, SetsOfTheRecordAreThoseThatFfmpegsFilterPutsInFront) {
    const AnnexBPackets packets(path);
    const auto extradataOf = [](const AVCodecParameters& parameters) {
        return Unit(parameters.extradata, parameters.extradata + parameters.extradata_size);
    };
    const Unit stored = extradataOf(packets.before());
    ASSERT_EQ(stored.at(0), 1) << "a record";
    const Sets sets = setsOf(stored);
    Unit both = sets.sps;
    both.insert(both.end(), sets.pps.begin(), sets.pps.end());
    EXPECT_EQ(both, extradataOf(packets.after()));
    EXPECT_EQ(setsOf(extradataOf(packets.after())).sps, sets.sps) << "from Annex-B too";
    EXPECT_EQ(setsOf(extradataOf(packets.after())).pps, sets.pps);
}

TEST_F(EncodedStream, ARawFileBeginsWithItsSets) {
    test::ClipPlan plan;
    plan.format = "h264";
    test::makeClip(folder.file("clip.h264"), plan);
    const Unit raw = test::readBytes(folder.file("clip.h264"));
    const Sets sets = setsOf(raw);
    EXPECT_EQ(sets.sps.at(4) & 0x1F, 7);
    EXPECT_EQ(sets.pps.at(4) & 0x1F, 8);
    EXPECT_EQ(Unit(raw.begin(), raw.begin() + static_cast<std::ptrdiff_t>(sets.sps.size())),
              sets.sps);
}

class RealStream : public ::testing::TestWithParam<const char*> {};

TEST_P(RealStream, HasTheUnitsThatTheContainerCountsByLength) {
    const auto file = test::mediaFile(std::string("video/") + GetParam());
    if (!file)
        GTEST_SKIP() << test::mediaMissingMessage();
    EXPECT_GT(compareUnits(file->string()), 0u);
}

INSTANTIATE_TEST_SUITE_P(Clips, RealStream,
                         ::testing::Values("A4.mp4", "bbb_800x640_768kbps_30fps_avc_pyramid_3b.mp4",
                                           "bbb_prog_10s.mp4", "carphone_pristine.mp4",
                                           "h264_10bits.mp4", "in.mp4", "rabbit320.mp4",
                                           "scene_cuts.mp4", "smpte-2997.mp4", "sample_640x360.mov",
                                           "sowt-with-video.mov", "video_90.mov", "white.mp4"));

} // namespace
} // namespace tio::videolib
