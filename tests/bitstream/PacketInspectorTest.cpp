#include "bitstream/PacketInspector.h"

#include "bitstream/BitReader.h"
#include "bitstream/nalUnits.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Demuxing.h"
#include "support/MediaFolder.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <numeric>

namespace tio::ffmpeg::detail {
namespace {

TEST(BitReaderTest, ReadsNumbersFromTheHighestBitOn) {
    const std::vector<uint8_t> bytes = {0xA5, 0x4C}; // 1010 0101 0100 1100
    BitReader bits(bytes.data(), bytes.size());
    EXPECT_EQ(bits.bits(4), 0xAu);
    EXPECT_EQ(bits.exponential(), 1u); // 010
    EXPECT_EQ(bits.exponential(), 0u); // 1
    EXPECT_EQ(bits.exponential(), 1u); // 010
    EXPECT_EQ(bits.exponential(), 2u); // 011
    EXPECT_FALSE(bits.ranOut());
    EXPECT_EQ(bits.bits(3), 0u);
    EXPECT_TRUE(bits.ranOut());
}

TEST(BitReaderTest, EndsInAnEndlessRowOfZeros) {
    BitReader bits(nullptr, 0);
    EXPECT_EQ(bits.exponential(), UINT32_MAX);
    EXPECT_TRUE(bits.ranOut());
}

std::vector<std::vector<uint8_t>> unitsOf(const std::vector<uint8_t>& data, size_t lengthSize) {
    std::vector<std::vector<uint8_t>> units;
    forEachNalUnit(data.data(), data.size(), lengthSize, [&](const NalUnit& unit) {
        units.emplace_back(unit.data, unit.data + unit.size);
        return true;
    });
    return units;
}

using Units = std::vector<std::vector<uint8_t>>;

TEST(NalUnitsTest, LieBetweenStartCodes) {
    EXPECT_EQ(unitsOf({9, 0, 0, 1, 7, 8, 0, 0, 0, 1, 5, 0, 0, 1}, 0), (Units{{7, 8, 0}, {5}}));
    EXPECT_EQ(unitsOf({0, 0, 1}, 0), Units{});
    EXPECT_EQ(unitsOf({0, 0}, 0), Units{});
}

TEST(NalUnitsTest, LieBehindTheirLengths) {
    EXPECT_EQ(unitsOf({0, 2, 7, 8, 0, 0, 0, 1, 5}, 2), (Units{{7, 8}, {5}}));
    EXPECT_EQ(unitsOf({0, 9, 7, 8}, 2), (Units{{7, 8}})); // cut
    EXPECT_EQ(unitsOf({0}, 2), Units{});
}

TEST(NalUnitsTest, AreFreedOfWhatKeepsStartCodesOut) {
    const std::vector<uint8_t> bytes = {0, 0, 3, 1, 0, 0, 3, 0, 0, 3};
    EXPECT_EQ(unescaped({bytes.data(), bytes.size()}, 100),
              (std::vector<uint8_t>{0, 0, 1, 0, 0, 0, 0}));
    EXPECT_EQ(unescaped({bytes.data(), bytes.size()}, 2).size(), 2u);
}

/// Looks at every packet of a clip.
class PacketInspectorTest : public testing::Test {
protected:
    void inspectClip(const std::string& path) {
        test::VideoDemuxer demuxer(path);
        inspector.emplace(*demuxer.stream().codecpar);
        while (demuxer.readPacket())
            facts.push_back(inspector->inspect(demuxer.packet()));
    }

    void inspectMade(const test::ClipPlan& plan) {
        test::makeClip(folder.file("clip"), plan);
        inspectClip(folder.file("clip"));
    }

    void inspectReal(const std::string& name) {
        const auto file = test::mediaFile("video/" + name);
        if (!file)
            GTEST_SKIP() << test::mediaMissingMessage();
        inspectClip(file->string());
    }

    [[nodiscard]] int64_t disposables() const {
        return std::count_if(facts.begin(), facts.end(),
                             [](const PacketFacts& fact) { return fact.disposable; });
    }

    [[nodiscard]] int64_t hidden() const {
        return std::count_if(facts.begin(), facts.end(),
                             [](const PacketFacts& fact) { return fact.hidden; });
    }

    test::TemporaryFolder folder;
    std::optional<PacketInspector> inspector;
    std::vector<PacketFacts> facts;
};

/// Groups of 12: an I-picture, then twos of B-pictures that each end in a P-picture; the last group
/// is an I-picture alone.
test::ClipPlan plainBPictures(const std::string& format, const std::string& encoder) {
    test::ClipPlan plan;
    plan.format = format;
    plan.encoder = encoder;
    plan.openGop = true;
    if (encoder == "libx264")
        plan.encoderOptions = {{"b-pyramid", "none"}, {"b_strategy", "0"}};
    return plan;
}

class BPictures : public PacketInspectorTest,
                  public testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(BPictures, AreDisposable) {
    inspectMade(plainBPictures(GetParam().first, GetParam().second));
    EXPECT_EQ(disposables(), 16); // two of three, of 25, the first of which is not one
    EXPECT_TRUE(inspector->mayLeaveOut());
    EXPECT_FALSE(inspector->hasFieldsApart());
}

INSTANTIATE_TEST_SUITE_P(Streams, BPictures,
                         testing::Values(std::pair{"mp4", "libx264"},
                                         std::pair{"mpegts", "libx264"},
                                         std::pair{"h264", "libx264"},
                                         std::pair{"mpegts", "mpeg2video"}));

TEST_F(PacketInspectorTest, TakesPicturesThatOthersReferToForNeeded) {
    test::ClipPlan plan;
    plan.maxBFrames = 0;
    inspectMade(plan);
    EXPECT_EQ(disposables(), 0);
}

TEST_F(PacketInspectorTest, FindsAPacketThatCannotBeWhole) {
    inspectMade({});
    EXPECT_FALSE(inspector->hasDamage());
    test::damagePacket(folder.file("clip"), 14);
    inspectClip(folder.file("clip"));
    EXPECT_TRUE(inspector->hasDamage());
}

TEST_F(PacketInspectorTest, FindsPacketsOfOneField) {
    inspectReal("CVFI1_SVA_C.264");
    if (IsSkipped())
        return;
    EXPECT_TRUE(inspector->hasFieldsApart());
}

TEST_F(PacketInspectorTest, FindsNoFieldsInFrames) {
    inspectReal("count.h264");
    if (IsSkipped())
        return;
    EXPECT_FALSE(inspector->hasFieldsApart());
}

TEST_F(PacketInspectorTest, FindsDisposablePicturesOfHevc) {
    inspectReal("h265_bframes.mp4");
    if (IsSkipped())
        return;
    EXPECT_GT(disposables(), 5);
}

PacketFacts factsOf(AVCodecID codec, std::vector<uint8_t> bytes) {
    AVCodecParameters parameters{};
    parameters.codec_id = codec;
    AVPacket packet{};
    packet.data = bytes.data();
    packet.size = static_cast<int>(bytes.size());
    return PacketInspector(parameters).inspect(packet);
}

TEST(HiddenPictures, AreToldByTheFirstByteOfVp8) {
    EXPECT_FALSE(factsOf(AV_CODEC_ID_VP8, {0x10}).hidden);
    EXPECT_TRUE(factsOf(AV_CODEC_ID_VP8, {0x01}).hidden);
}

TEST(HiddenPictures, AreToldByTheFlagsOfVp9) {
    EXPECT_FALSE(factsOf(AV_CODEC_ID_VP9, {0x82, 0}).hidden); // shown
    EXPECT_TRUE(factsOf(AV_CODEC_ID_VP9, {0x80, 0}).hidden);
    EXPECT_FALSE(factsOf(AV_CODEC_ID_VP9, {0x88, 0}).hidden);       // an old one shown again
    EXPECT_FALSE(factsOf(AV_CODEC_ID_VP9, {0x80, 0, 0xC1}).hidden); // several frames
    EXPECT_TRUE(factsOf(AV_CODEC_ID_VP9, {0xB0, 0}).hidden);        // profile 3: one bit later
    EXPECT_FALSE(factsOf(AV_CODEC_ID_VP9, {0xB1, 0}).hidden);
}

TEST(PacketInspectorOnDamage, PassesOverWhateverThePacketHolds) {
    for (const AVCodecID codec : {AV_CODEC_ID_H264, AV_CODEC_ID_HEVC, AV_CODEC_ID_MPEG2VIDEO})
        for (unsigned seed = 0; seed < 256; ++seed) {
            const std::array<uint8_t, 9> head = {0, 0,    1,   static_cast<uint8_t>(seed), 0, 0,
                                                 1, 0x67, 0x64};
            std::vector<uint8_t> bytes(head.size() + seed % 7, static_cast<uint8_t>(seed * 37));
            std::copy(head.begin(), head.end(), bytes.begin());
            EXPECT_LE(factsOf(codec, bytes).layer, 6u);
        }
}

} // namespace
} // namespace tio::ffmpeg::detail
