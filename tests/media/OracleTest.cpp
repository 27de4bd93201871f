#include "media/Oracle.h"

#include "media/ClipMaker.h"
#include "media/TemporaryFolder.h"

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

TEST_F(OracleTest, YieldsNoFrameOfAStreamWithoutTimes) {
    ClipPlan plan;
    plan.format = "h264";
    EXPECT_TRUE(oracleFrames(make(plan)).empty());
}

TEST(HashOf, GoesOnFromAnEarlierHash) {
    const uint8_t bytes[] = {'f', 'o', 'o', 'b', 'a', 'r'};
    EXPECT_EQ(hashOf(bytes, 6), 0x85944171f73967e8u); // published test vector of FNV-1a
    EXPECT_EQ(hashOf(bytes + 2, 4, hashOf(bytes, 2)), hashOf(bytes, 6));
}

} // namespace
} // namespace tio::test
