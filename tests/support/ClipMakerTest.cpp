#include "support/ClipMaker.h"

#include "support/ByteEdits.h"
#include "support/Ffmpeg.h"
#include "support/Mp4Edits.h"
#include "support/Oracle.h"
#include "support/Picture.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace tio::test {
namespace {

/// A folder for the clips of one test, and the questions that tests ask about them.
class ClipMakerTest : public testing::Test {
protected:
    std::string make(const ClipPlan& plan) {
        std::string path = folder.file("clip." + plan.format);
        makeClip(path, plan);
        return path;
    }

    static std::vector<int64_t> framePts(const std::string& path) {
        std::vector<int64_t> pts;
        for (const OracleFrame& frame : oracleFrames(path))
            pts.push_back(frame.pts);
        return pts;
    }

    static std::vector<int> pictureNumbers(const std::string& path, int quarterTurns = 0) {
        OracleOptions options;
        options.keepPixels = true;
        std::vector<int> numbers;
        for (const OracleFrame& frame : oracleFrames(path, options))
            numbers.push_back(
                readPictureNumber(frame.pixels.data(), frame.width, frame.height, quarterTurns));
        return numbers;
    }

    static std::vector<int> countingFrom(int first, int count) {
        std::vector<int> numbers(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i)
            numbers[static_cast<std::size_t>(i)] = first + i;
        return numbers;
    }

    static std::size_t discardedPackets(const std::string& path) {
        const std::vector<OraclePacket> packets = oraclePackets(path);
        return static_cast<std::size_t>(
            std::count_if(packets.begin(), packets.end(), [](const OraclePacket& packet) {
                return (packet.flags & AV_PKT_FLAG_DISCARD) != 0;
            }));
    }

    TemporaryFolder folder;
};

TEST_F(ClipMakerTest, ShowsThePlannedPicturesInOrder) {
    EXPECT_EQ(pictureNumbers(make({})), countingFrom(0, 25));
}

TEST_F(ClipMakerTest, StoresPicturesOutOfOrderWhenItUsesBFrames) {
    const std::vector<OraclePacket> packets = oraclePackets(make({}));
    EXPECT_FALSE(std::is_sorted(packets.begin(), packets.end(),
                                [](const auto& a, const auto& b) { return a.pts < b.pts; }));
}

TEST_F(ClipMakerTest, StartsAGroupOfPicturesAtThePlannedDistance) {
    ClipPlan plan;
    plan.gopSize = 5;
    plan.maxBFrames = 0;
    const std::vector<OraclePacket> packets = oraclePackets(make(plan));
    ASSERT_EQ(packets.size(), 25u);
    for (std::size_t n = 0; n < packets.size(); ++n)
        EXPECT_EQ((packets[n].flags & AV_PKT_FLAG_KEY) != 0, n % 5 == 0) << "packet " << n;
}

TEST_F(ClipMakerTest, KeepsTheTimesOfAVariableFrameRate) {
    ClipPlan plan;
    plan.timeBase = {1, 12800}; // what the muxer keeps as it is
    plan.pts = {0, 512, 700, 5000, 5001, 90000};
    EXPECT_EQ(framePts(make(plan)), plan.pts);
}

TEST_F(ClipMakerTest, WritesTheMatrixOfATurnedPhone) {
    for (const int degrees : {90, 180, 270}) {
        ClipPlan plan;
        plan.frameCount = 3;
        plan.rotation = degrees;
        const std::string path = make(plan);
        EXPECT_EQ(pictureNumbers(path, degrees / 90), countingFrom(0, 3)) << degrees << " degrees";
        const OracleFrame frame = oracleFrames(path).front();
        EXPECT_EQ(frame.width, degrees == 180 ? 96 : 64) << degrees << " degrees";
    }
}

TEST_F(ClipMakerTest, FlagsPacketsOutsideTheEditListAsDiscarded) {
    const std::string path = make({});
    cutByEditList(path, 5 / 25.0, 10 / 25.0);
    EXPECT_EQ(pictureNumbers(path), countingFrom(5, 10));
    EXPECT_GE(discardedPackets(path), 5u);
}

TEST_F(ClipMakerTest, DiscardsEveryPacketWhenTheEditStartsBehindTheLastOne) {
    const std::string path = make({});
    cutByEditList(path, 10, 1);
    EXPECT_GT(oraclePackets(path).size(), 0u);
    EXPECT_EQ(discardedPackets(path), oraclePackets(path).size());
}

TEST_F(ClipMakerTest, AddsAToneAsLongAsTheVideo) {
    ClipPlan plan;
    plan.audio = true;
    const std::string path = make(plan);
    AVFormatContext* opened = nullptr;
    ASSERT_GE(avformat_open_input(&opened, path.c_str(), nullptr, nullptr), 0);
    const InputPointer input(opened);
    ASSERT_EQ(input->nb_streams, 2u);
    EXPECT_EQ(input->streams[1]->codecpar->codec_id, AV_CODEC_ID_AAC);
    const AVStream& tone = *input->streams[1];
    EXPECT_NEAR(static_cast<double>(tone.duration) * av_q2d(tone.time_base), 1.0, 0.05);
}

TEST_F(ClipMakerTest, RefusesAMisspeltOption) {
    ClipPlan plan;
    plan.encoderOptions = {{"presett", "fast"}};
    EXPECT_THROW(make(plan), std::runtime_error);
}

TEST_F(ClipMakerTest, DrawsEveryPixelFormatThatTestsUse) {
    for (const char* format :
         {"yuv420p", "yuv422p", "yuv444p", "nv12", "rgb24", "gbrp", "yuv420p10le", "gray"}) {
        ClipPlan plan;
        plan.format = "nut";
        plan.encoder = "rawvideo";
        plan.pixelFormat = format;
        plan.frameCount = 4;
        EXPECT_EQ(pictureNumbers(make(plan)), countingFrom(0, 4)) << format;
    }
}

TEST_F(ClipMakerTest, WritesPacketsWithTheTimesOfTheTest) {
    Track track = bareVideoTrack(AV_CODEC_ID_MPEG4, 64, 48, {1, 1000});
    const std::vector<int64_t> pts = {10, 10, 20, 10};
    for (std::size_t n = 0; n < pts.size(); ++n)
        track.packets.push_back({{0, 0, 1, 0xb6, 0}, pts[n], static_cast<int64_t>(n), n == 0, 1});
    const std::string path = folder.file("times.mp4");
    writePackets(path, "mp4", {track}, {{"use_editlist", "0"}, {"video_track_timescale", "1000"}});
    std::vector<int64_t> found;
    for (const OraclePacket& packet : oraclePackets(path))
        found.push_back(packet.pts);
    EXPECT_EQ(found, pts);
}

TEST_F(ClipMakerTest, WritesAnEmptyPacketIntoNut) {
    Track track = encodeVideo({});
    track.packets[5].data.clear();
    writePackets(folder.file("empty.nut"), "nut", {track});
    const std::vector<OraclePacket> packets = oraclePackets(folder.file("empty.nut"));
    ASSERT_EQ(packets.size(), 25u);
    EXPECT_EQ(packets[5].size, 0);
}

TEST_F(ClipMakerTest, WritesAStreamWithoutPacketsIntoAvi) {
    const Track track = bareVideoTrack(AV_CODEC_ID_MPEG4, 64, 48, {1, 25});
    writePackets(folder.file("none.avi"), "avi", {track});
    EXPECT_TRUE(oraclePackets(folder.file("none.avi")).empty());
}

TEST_F(ClipMakerTest, DamagesOnePacketAndNoOther) {
    for (const char* format : {"mp4", "matroska"}) {
        ClipPlan plan;
        plan.format = format;
        plan.maxBFrames = 0;
        plan.gopSize = 1;
        const std::string path = make(plan);
        damagePacket(path, 5);
        EXPECT_THROW(static_cast<void>(oracleFrames(path)), std::runtime_error) << format;
        OracleOptions options;
        options.skipDamaged = true;
        EXPECT_EQ(oracleFrames(path, options).size(), 24u) << format;
    }
}

TEST_F(ClipMakerTest, TruncatesAFileToTheBytesAskedFor) {
    const std::string path = make({});
    truncateFile(path, 1000);
    EXPECT_EQ(std::filesystem::file_size(path), 1000u);
}

TEST(TemporaryFolder, IsGoneWithItsFilesAtTheEnd) {
    std::filesystem::path path;
    {
        TemporaryFolder folder;
        path = folder.path();
        writeBytes(folder.file("a"), {1, 2, 3});
        EXPECT_TRUE(std::filesystem::exists(path / "a"));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

} // namespace
} // namespace tio::test
