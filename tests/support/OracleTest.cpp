#include "support/Oracle.h"

#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

namespace tio::test {
namespace {

class OracleTest : public testing::Test {
protected:
    std::string make(const ClipPlan& plan) {
        std::string path = folder.file("clip." + plan.format);
        makeClip(path, plan);
        return path;
    }

    static OracleFrame firstFrame(const std::string& path, const OracleOptions& chosen) {
        OracleOptions options = chosen;
        options.keepPixels = true;
        return oracleFrames(path, options).front();
    }

    TemporaryFolder folder;
};

/// The pixels turned clockwise by hand, a quarter at a time.
std::vector<uint8_t> turnedByHand(const OracleFrame& frame, int quarterTurns) {
    std::vector<uint8_t> pixels = frame.pixels;
    auto width = static_cast<std::size_t>(frame.width);
    auto height = static_cast<std::size_t>(frame.height);
    for (int turn = 0; turn < quarterTurns; ++turn) {
        std::vector<uint8_t> turned(pixels.size());
        for (std::size_t y = 0; y < height; ++y) {
            for (std::size_t x = 0; x < width; ++x) {
                for (std::size_t c = 0; c < 3; ++c)
                    turned[3 * (x * height + height - 1 - y) + c] = pixels[3 * (y * width + x) + c];
            }
        }
        pixels = std::move(turned);
        std::swap(width, height);
    }
    return pixels;
}

TEST_F(OracleTest, TellsEveryFrameApart) {
    std::set<uint64_t> hashes;
    for (const OracleFrame& frame : oracleFrames(make({})))
        hashes.insert(frame.hash);
    EXPECT_EQ(hashes.size(), 25u);
}

TEST_F(OracleTest, GivesTheSamePicturesWithOneThreadAndWithFour) {
    const std::string path = make({});
    OracleOptions one;
    one.threads = 1;
    OracleOptions four;
    four.threads = 4;
    const std::vector<OracleFrame> expected = oracleFrames(path, one);
    const std::vector<OracleFrame> found = oracleFrames(path, four);
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t n = 0; n < found.size(); ++n)
        EXPECT_EQ(found[n].hash, expected[n].hash) << "frame " << n;
}

// Only 4:4:4 keeps every pixel's own chroma, so that turning before and after conversion is the
// same to the bit.
TEST_F(OracleTest, TurnsPicturesAsTurningTheirPixelsByHandDoes) {
    for (const int degrees : {90, 180, 270}) {
        ClipPlan plan;
        plan.pixelFormat = "yuv444p";
        plan.frameCount = 1;
        plan.rotation = degrees;
        const std::string path = make(plan);
        OracleOptions asStored;
        asStored.rotate = false;
        EXPECT_EQ(firstFrame(path, {}).pixels,
                  turnedByHand(firstFrame(path, asStored), degrees / 90))
            << degrees << " degrees";
    }
}

TEST_F(OracleTest, FillsTheLastColumnsOfEveryWidth) {
    for (int width = 64; width < 80; width += 2) {
        ClipPlan plan;
        plan.width = width;
        plan.frameCount = 1;
        const OracleFrame frame = firstFrame(make(plan), {});
        for (int y = frame.height / 2; y < frame.height; ++y) {
            const auto end = 3 * static_cast<std::size_t>((y + 1) * width);
            EXPECT_NE(frame.pixels[end - 1] + frame.pixels[end - 2] + frame.pixels[end - 3], 0)
                << "width " << width << ", row " << y;
        }
    }
}

TEST_F(OracleTest, RoundsNv12ChromaUpForOddSizes) {
    ClipPlan plan;
    plan.format = "matroska";
    plan.encoder = "ffv1";
    plan.width = 33;
    plan.height = 31;
    plan.frameCount = 1;
    OracleOptions options;
    options.format = OracleFormat::Nv12;
    EXPECT_EQ(firstFrame(make(plan), options).pixels.size(), 33u * 31u + 34u * 16u);
}

TEST_F(OracleTest, CopiesNv12SourcesUnchanged) {
    ClipPlan plan;
    plan.format = "nut";
    plan.encoder = "rawvideo";
    plan.pixelFormat = "nv12";
    plan.frameCount = 1;
    OracleOptions options;
    options.format = OracleFormat::Nv12;
    EXPECT_EQ(firstFrame(make(plan), options).pixels, encodeVideo(plan).packets.front().data);
}

TEST_F(OracleTest, GivesTimesAsReducedFractions) {
    const std::vector<OracleFrame> frames = oracleFrames(make({}));
    EXPECT_EQ(frames[0].time().numerator, 0);
    EXPECT_EQ(frames[0].time().denominator, 1);
    EXPECT_EQ(frames[10].time().numerator, 2);
    EXPECT_EQ(frames[10].time().denominator, 5);
}

TEST_F(OracleTest, HashesBothFormatsInOneGo) {
    const std::string path = make({});
    OracleOptions options;
    options.nv12Too = true;
    const auto both = oracleFrames(path, options);
    const auto rgb = oracleFrames(path);
    options = {};
    options.format = OracleFormat::Nv12;
    const auto nv12 = oracleFrames(path, options);
    ASSERT_EQ(both.size(), rgb.size());
    ASSERT_EQ(both.size(), nv12.size());
    for (std::size_t n = 0; n < both.size(); ++n) {
        EXPECT_EQ(both[n].hash, rgb[n].hash) << n;
        EXPECT_EQ(both[n].nv12Hash, nv12[n].hash) << n;
    }
}

TEST_F(OracleTest, TellsWhichTimesDoNotRise) {
    ClipPlan plan;
    plan.format = "h264"; // without times
    OracleOptions options;
    options.everyPicture = true;
    const auto frames = oracleFrames(make(plan), options);
    ASSERT_FALSE(frames.empty());
    for (const OracleFrame& frame : frames)
        EXPECT_FALSE(frame.rises);
    for (const OracleFrame& frame : oracleFrames(make({})))
        EXPECT_TRUE(frame.rises);
}

TEST_F(OracleTest, YieldsNoFrameOfAStreamWithoutTimes) {
    ClipPlan plan;
    plan.format = "h264";
    EXPECT_TRUE(oracleFrames(make(plan)).empty());
}

// Of MurmurHash3's 128 bits for 64-bit machines the first 64, worked out by hand from its
// definition: no bytes leave the seed's lanes to the last mixing alone.
TEST(HashOf, IsThatOfMurmur) {
    const uint8_t none = 0;
    EXPECT_EQ(hashOf(&none, 0), 0u);
    const auto mixed = [](uint64_t k) {
        k = (k ^ (k >> 33)) * 0xff51afd7ed558ccdu;
        k = (k ^ (k >> 33)) * 0xc4ceb9fe1a85ec53u;
        return k ^ (k >> 33);
    };
    const uint64_t seed = 1;
    const uint64_t both =
        mixed(2 * seed) + mixed(3 * seed); // of the lanes, each added to the other
    EXPECT_EQ(hashOf(&none, 0, seed), both);
}

TEST(HashOf, DependsOnEveryByteAndOnTheSeed) {
    std::vector<uint8_t> bytes(100, 7);
    std::set<uint64_t> hashes = {hashOf(bytes.data(), 100), hashOf(bytes.data(), 99),
                                 hashOf(bytes.data(), 100, 5)};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = 8;
        hashes.insert(hashOf(bytes.data(), 100));
        bytes[i] = 7;
    }
    EXPECT_EQ(hashes.size(), 103u);
}

TEST(HashRows, PassesOverWhatLiesBetweenRowsAndNotOverTheirOrder) {
    const uint8_t wide[] = {1, 2, 9, 3, 4, 9};
    const uint8_t narrow[] = {1, 2, 3, 4};
    const uint8_t turned[] = {3, 4, 1, 2};
    EXPECT_EQ(hashRows(wide, 3, 2, 2), hashRows(narrow, 2, 2, 2));
    EXPECT_NE(hashRows(turned, 2, 2, 2), hashRows(narrow, 2, 2, 2));
    EXPECT_EQ(hashRows(narrow + 2, 2, 1, 2, hashRows(narrow, 2, 1, 2)), hashRows(narrow, 2, 2, 2));
}

} // namespace
} // namespace tio::test
