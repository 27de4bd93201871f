#include "PpmFile.h"
#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Oracle.h"
#include "support/StillImages.h"
#include "support/TemporaryFolder.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace tio::test;

namespace {

bool haveFfmpegProgram() {
    return std::system("ffmpeg -version > /dev/null 2>&1") == 0;
}

class PictureOptionsTest : public testing::Test {
protected:
    /// A clip of one colour, Y = 81, Cb = 90, Cr = 240, with the tags given.
    void makeRed(const std::string& tags) {
        clip = folder.file("red.mkv");
        const std::string raw = folder.file("red.yuv");
        std::vector<uint8_t> bytes(64 * 64, 81);
        bytes.insert(bytes.end(), 32 * 32, 90);
        bytes.insert(bytes.end(), 32 * 32, 240);
        writeBytes(raw, bytes);
        const std::string command = "ffmpeg -v error -y -f rawvideo -pix_fmt yuv420p -s 64x64 -i " +
                                    raw + " -c:v ffv1 " + tags + " " + clip;
        ASSERT_EQ(std::system(command.c_str()), 0);
    }

    ProgramResult take(const std::string& name, const std::vector<std::string>& more = {}) {
        out = folder.file(name);
        std::vector<std::string> arguments = {"frames", clip, "--frame", "0", "-o", out};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runProgram(arguments);
    }

    void expectColour(const std::vector<uint8_t>& pixels, const std::array<int, 3>& colour) {
        for (size_t i = 0; i < pixels.size(); ++i)
            ASSERT_NEAR(pixels[i], colour[i % 3], 1) << i;
    }

    TemporaryFolder folder;
    std::string clip;
    std::string out;
};

// Some releases take the tags of a clip from its pictures alone.
constexpr const char* taggedAs709 =
    "-vf setparams=colorspace=bt709:range=tv -colorspace bt709 -color_range tv";

// By the matrices of H.273: R = 1.164 * 65 + k * 112 with k = 1.596 (BT.601) and 1.793 (BT.709),
// and so on; what lies outside 0 to 255 is cut off.
constexpr std::array<int, 3> redOf601 = {254, 0, 0};
constexpr std::array<int, 3> redOf709 = {255, 24, 0};

TEST_F(PictureOptionsTest, ColoursAreThoseOfTheTagsUnlessAskedOtherwise) {
    if (!haveFfmpegProgram())
        GTEST_SKIP() << "the ffmpeg program is not installed";
    makeRed(taggedAs709);
    ASSERT_EQ(take("a.ppm").exitCode, 0);
    expectColour(readPpmFile(out).pixels, redOf709);
    ASSERT_EQ(take("b.ppm", {"--colours", "bt601"}).exitCode, 0);
    expectColour(readPpmFile(out).pixels, redOf601);
    makeRed("");
    ASSERT_EQ(take("c.ppm").exitCode, 0);
    expectColour(readPpmFile(out).pixels, redOf601);
}

TEST_F(PictureOptionsTest, TheSheetShowsTheColoursOfTheTags) {
    if (!haveFfmpegProgram())
        GTEST_SKIP() << "the ffmpeg program is not installed";
    makeRed(taggedAs709);
    const std::string sheet = folder.file("sheet.png");
    ASSERT_EQ(runProgram({"sheet", clip, "-o", sheet, "--columns", "1", "--width", "80"}).exitCode,
              0);
    const OracleImage image = oracleImage(sheet);
    const size_t middle = static_cast<size_t>(3 * (image.height / 3 * image.width + 40));
    for (size_t channel = 0; channel < 3; ++channel)
        EXPECT_NEAR(image.pixels.at(middle + channel), redOf709.at(channel), 1);
}

TEST_F(PictureOptionsTest, SixteenBitsKeepWhatTenBitsTell) {
    ClipPlan plan;
    plan.encoder = "ffv1";
    plan.format = "matroska";
    plan.pixelFormat = "yuv444p10le";
    plan.maxBFrames = 0;
    clip = folder.file("deep.mkv");
    makeClip(clip, plan);
    ASSERT_EQ(take("a.ppm", {"--format", "ppm16"}).exitCode, 0);
    const auto bytes = readBytes(out);
    const std::string header = "P6\n96 64\n65535\n";
    ASSERT_EQ(std::string(bytes.begin(), bytes.begin() + 15), header);
    EXPECT_EQ(bytes.size(), header.size() + size_t{6} * 96 * 64);
    ASSERT_EQ(take("a.png", {"--format", "png16"}).exitCode, 0);
    EXPECT_EQ(readBytes(out).at(24), 16); // bits
    EXPECT_EQ(readBytes(out).at(25), 2);  // RGB
    ASSERT_EQ(take("b.png", {"--format", "gray16"}).exitCode, 0);
    EXPECT_EQ(readBytes(out).at(24), 16);
    EXPECT_EQ(readBytes(out).at(25), 0); // grey
}

TEST_F(PictureOptionsTest, ASizeIsReachedAndOneSideKeepsTheShape) {
    clip = folder.file("clip.mp4");
    makeClip(clip, {}); // 96 x 64
    const std::vector<std::pair<std::string, std::array<int, 2>>> sizes = {
        {"30x50", {30, 50}}, {"48x", {48, 32}}, {"x32", {48, 32}}, {"192X128", {192, 128}}};
    for (const auto& [text, size] : sizes) {
        ASSERT_EQ(take("a.ppm", {"--size", text}).exitCode, 0);
        EXPECT_EQ(readPpmFile(out).width, size[0]) << text;
        EXPECT_EQ(readPpmFile(out).height, size[1]) << text;
    }
    for (const char* wrong : {"x", "30", "0x5", "5x99999", "-3x4", "3 x 4"})
        EXPECT_EQ(take("b.ppm", {"--size", wrong}).exitCode, 2) << wrong;
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(PictureOptionsTest, AStreamIsTakenByItsNumber) {
    ClipPlan plan;
    const Track first = encodeVideo(plan);
    plan.width = 48;
    plan.height = 32;
    clip = folder.file("two.mkv");
    writePackets(clip, "matroska", {first, encodeVideo(plan)});
    ASSERT_EQ(take("a.ppm", {"--stream", "1"}).exitCode, 0);
    EXPECT_EQ(readPpmFile(out).width, 48);
    const ProgramResult result = take("b.ppm", {"--stream", "2"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, "tarn-videoio: " + clip + ": Stream 2 does not exist\n");
}

TEST_F(PictureOptionsTest, ANameThatIsNotThatOfAPictureIsRefusedBeforeTheClipIsRead) {
    clip = folder.file("absent.mp4");
    const ProgramResult result = take("x.bmp");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "tarn-videoio: " + out +
                              ": a picture is called .png, .jpg, .jpeg or .ppm at the end; see "
                              "tarn-videoio frames --help\n");
    EXPECT_EQ(take("x.png", {"--format", "jpg"}).exitCode, 2);
    EXPECT_EQ(take("x", {"--format", "bmp"}).exitCode, 2);
    EXPECT_EQ(take("x.png", {"--crf", "20"}).exitCode, 2);
}

/// Presentation times of a clip's pictures in milliseconds.
std::vector<int64_t> millisecondsOf(const std::string& path) {
    std::vector<int64_t> times;
    for (const OracleFrame& frame : oracleFrames(path)) {
        EXPECT_EQ(frame.time().numerator * 1000 % frame.time().denominator, 0);
        times.push_back(frame.time().numerator * 1000 / frame.time().denominator);
    }
    return times;
}

TEST_F(PictureOptionsTest, FramesBecomeAClipAtTheirTimesOrAtARate) {
    clip = folder.file("clip.mp4");
    makeClip(clip, {});
    const std::string output = folder.file("picked.mp4");
    ASSERT_EQ(runProgram({"frames", clip, "-o", output, "--times", "0.2,0.4,0.9"}).exitCode, 0);
    EXPECT_THAT(millisecondsOf(output), testing::ElementsAre(0, 200, 680)); // frame 22 is at 0.88
    ASSERT_EQ(
        runProgram({"frames", clip, "-o", output, "--from", "3", "--every", "7", "--rate", "10"})
            .exitCode,
        0);
    EXPECT_THAT(millisecondsOf(output), testing::ElementsAre(0, 100, 200, 300));
}

TEST_F(PictureOptionsTest, FramesOfALosslessClipAreThoseThatWereTaken) {
    clip = folder.file("clip.mp4");
    makeClip(clip, {});
    const std::string output = folder.file("picked.mkv");
    ASSERT_EQ(
        runProgram({"frames", clip, "-o", output, "--every", "5", "--codec", "ffv1"}).exitCode, 0);
    const auto original = oracleFrames(clip);
    const auto written = oracleFrames(output);
    ASSERT_EQ(written.size(), 5U);
    for (size_t i = 0; i < written.size(); ++i)
        EXPECT_EQ(written[i].hash, original.at(5 * i).hash) << i;
}

} // namespace
