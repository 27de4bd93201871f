#include "PpmFile.h"
#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Oracle.h"
#include "support/StillImages.h"
#include "support/TemporaryFolder.h"

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>

using namespace tio::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

namespace fs = std::filesystem;

namespace {

class FramesCommandTest : public testing::Test {
protected:
    std::string make(const std::string& name, const ClipPlan& plan) {
        makeClip(folder.file(name), plan);
        return folder.file(name);
    }

    /// Runs the command with `more` arguments into the folder `frames`, for pictures that are easy
    /// to read back.
    ProgramResult take(const std::string& clip, std::vector<std::string> more = {}) {
        std::vector<std::string> arguments = {"frames", clip, "-o", frames, "--format", "ppm"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runProgram(arguments);
    }

    /// Every file of the folder `frames`, and the number that its picture shows.
    std::map<std::string, int> numbersInFiles() {
        std::map<std::string, int> numbers;
        for (const auto& entry : fs::directory_iterator(frames))
            numbers[entry.path().filename()] = pictureNumberIn(entry.path());
        return numbers;
    }

    TemporaryFolder folder;
    std::string frames = folder.file("frames");
};

/// FFmpeg's converter rounds otherwise, and takes the nearest chroma where the library weighs.
void expectCloseTo(const std::vector<uint8_t>& expected, const std::vector<uint8_t>& pixels) {
    ASSERT_EQ(pixels.size(), expected.size());
    double sum = 0;
    for (size_t i = 0; i < pixels.size(); ++i)
        sum += std::abs(pixels[i] - expected[i]);
    EXPECT_LE(sum / static_cast<double>(pixels.size()), 1.0);
}

ClipPlan longClip(const std::string& format) {
    ClipPlan plan;
    plan.format = format;
    plan.frameCount = 400;
    return plan;
}

TEST_F(FramesCommandTest, WritesEveryFrameUnderItsNumber) {
    ClipPlan plan;
    plan.frameCount = 3;
    ASSERT_EQ(take(make("clip.mp4", plan)).exitCode, 0);
    EXPECT_THAT(numbersInFiles(),
                ElementsAre(Pair("frame-000000.ppm", 0), Pair("frame-000001.ppm", 1),
                            Pair("frame-000002.ppm", 2)));
}

TEST_F(FramesCommandTest, WritesTheDecodedPicture) {
    const std::string clip = make("clip.mp4", {});
    OracleOptions options;
    options.keepPixels = true;
    const std::vector<OracleFrame> expected = oracleFrames(clip, options);
    ASSERT_EQ(take(clip).exitCode, 0);
    for (size_t number : {size_t{0}, size_t{13}, size_t{24}}) {
        char name[32];
        std::snprintf(name, sizeof name, "/frame-%06zu.ppm", number);
        expectCloseTo(expected.at(number).pixels, readPpmFile(frames + name).pixels);
    }
}

TEST_F(FramesCommandTest, TakesEveryKthFrameUpToTheLastOneIncluded) {
    ASSERT_EQ(take(make("clip.mp4", {}), {"--from", "3", "--to", "15", "--every", "4"}).exitCode,
              0);
    EXPECT_THAT(numbersInFiles(),
                ElementsAre(Pair("frame-000003.ppm", 3), Pair("frame-000007.ppm", 7),
                            Pair("frame-000011.ppm", 11), Pair("frame-000015.ppm", 15)));
}

TEST_F(FramesCommandTest, StopsBeforeAStepThatPassesTheLastOne) {
    ASSERT_EQ(take(make("clip.mp4", {}), {"--from", "20", "--to", "23", "--every", "2"}).exitCode,
              0);
    EXPECT_THAT(numbersInFiles(),
                ElementsAre(Pair("frame-000020.ppm", 20), Pair("frame-000022.ppm", 22)));
}

struct Format {
    const char* muxer;
    const char* encoder;
    int maxBFrames;

    friend void PrintTo(const Format& format, std::ostream* out) { *out << format.muxer; }
};

class FarFramesTest : public FramesCommandTest, public testing::WithParamInterface<Format> {};

TEST_P(FarFramesTest, KeepsNumbersRightAcrossSeeks) {
    ClipPlan plan = longClip(GetParam().muxer);
    plan.encoder = GetParam().encoder;
    plan.maxBFrames = GetParam().maxBFrames;
    const std::string clip = make("clip", plan);
    ASSERT_EQ(take(clip, {"--from", "100", "--every", "113"}).exitCode, 0);
    EXPECT_THAT(numbersInFiles(),
                ElementsAre(Pair("frame-000100.ppm", 100), Pair("frame-000213.ppm", 213),
                            Pair("frame-000326.ppm", 326)));
}

// AVI has no presentation times, so B-frames in it have no order, and it cannot be sought in.
INSTANTIATE_TEST_SUITE_P(Containers, FarFramesTest,
                         testing::Values(Format{"mp4", "libx264", 2},
                                         Format{"matroska", "libx264", 2},
                                         Format{"mpegts", "libx264", 2},
                                         Format{"flv", "libx264", 2}, Format{"avi", "mpeg4", 0}));

// In a transport stream a seek ends at any packet, and this decoder gives pictures from there on
// that have the right times but lack what they build on.
TEST_F(FramesCommandTest, DoesNotStartBetweenKeyFrames) {
    ClipPlan plan = longClip("mpegts");
    plan.encoder = "mpeg4";
    plan.maxBFrames = 0;
    plan.gopSize = 100;
    const std::string clip = make("clip.ts", plan);
    const std::string picture = folder.file("picture.ppm");
    OracleOptions options;
    options.keepPixels = true;
    ASSERT_EQ(runProgram({"frames", clip, "--frame", "290", "-o", picture}).exitCode, 0);
    expectCloseTo(oracleFrames(clip, options).at(290).pixels, readPpmFile(picture).pixels);
}

TEST_F(FramesCommandTest, TurnsPicturesUpright) {
    ClipPlan plan;
    plan.rotation = 90;
    const std::string picture = folder.file("picture.ppm");
    ASSERT_EQ(
        runProgram({"frames", make("clip.mp4", plan), "--frame", "17", "-o", picture}).exitCode, 0);
    EXPECT_EQ(readPpmFile(picture).width, 64);
    EXPECT_EQ(readPpmFile(picture).height, 96);
    EXPECT_EQ(pictureNumberIn(picture, 1), 17);
}

TEST_F(FramesCommandTest, SaysWhereASingleFrameIsAndWhenItIsShown) {
    const std::string picture = folder.file("picture.ppm");
    const ProgramResult result =
        runProgram({"frames", make("clip.mp4", {}), "--frame", "5", "-o", picture});
    EXPECT_EQ(result.out, picture + ": frame 5 at 1/5 s\n");
}

// No picture of such a stream has a time, and it cannot be rewound.
TEST_F(FramesCommandTest, TakesFramesOutOfARawStream) {
    const std::string clip = make("clip.h264", longClip("h264"));
    ASSERT_EQ(take(clip, {"--from", "2", "--every", "190"}).exitCode, 0);
    EXPECT_THAT(numbersInFiles(),
                ElementsAre(Pair("frame-000002.ppm", 2), Pair("frame-000192.ppm", 192),
                            Pair("frame-000382.ppm", 382)));
}

TEST_F(FramesCommandTest, TakesTheFramesOnScreenAtGivenTimes) {
    const std::string clip = make("clip.mp4", longClip("mp4"));
    ASSERT_EQ(take(clip, {"--times", "1.5,1/3,00:00:10.04,0:02,0"}).exitCode, 0);
    EXPECT_THAT(numbersInFiles(),
                ElementsAre(Pair("frame-000000.ppm", 0), Pair("frame-000008.ppm", 8),
                            Pair("frame-000037.ppm", 37), Pair("frame-000050.ppm", 50),
                            Pair("frame-000251.ppm", 251)));
}

TEST_F(FramesCommandTest, RefusesATimeAtWhichNothingIsShown) {
    const ProgramResult result = take(make("clip.mp4", {}), {"--times", "0.5,1"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.err, HasSubstr("is shown at 1/1 s"));
    EXPECT_FALSE(fs::exists(frames));
}

class NoTimeTest : public FramesCommandTest, public testing::WithParamInterface<const char*> {};

TEST_P(NoTimeTest, IsRefused) {
    const ProgramResult result = take(make("clip.mp4", {}), {"--times", GetParam()});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.err, HasSubstr("is no time"));
}

INSTANTIATE_TEST_SUITE_P(Texts, NoTimeTest,
                         testing::Values("1,,2", "x", "1/0", "1:2:3:4", "1e3", "12345678901"));

TEST_F(FramesCommandTest, ReadsByAnIndexThatKnowsItsClip) {
    const std::string clip = make("clip.mp4", longClip("mp4"));
    const std::string index = folder.file("clip.index");
    ASSERT_EQ(runProgram({"index", clip, "-o", index, "--frames"}).exitCode, 0);
    ASSERT_EQ(take(clip, {"--from", "1", "--every", "200", "--index", index}).exitCode, 0);
    EXPECT_THAT(numbersInFiles(),
                ElementsAre(Pair("frame-000001.ppm", 1), Pair("frame-000201.ppm", 201)));
}

TEST_F(FramesCommandTest, RefusesAnIndexWhoseClipHasChanged) {
    const std::string clip = make("clip.mp4", longClip("mp4"));
    const std::string index = folder.file("clip.index");
    ASSERT_EQ(runProgram({"index", clip, "-o", index, "--frames"}).exitCode, 0);
    auto bytes = readBytes(clip);
    bytes.push_back(0);
    writeBytes(clip, bytes);
    const ProgramResult result = take(clip, {"--index", index});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err,
              "tarn-videoio: " + index + ": " + clip + " has changed since it was made\n");
}

TEST_F(FramesCommandTest, SeeksWithAStoredIndex) {
    const std::string clip = make("clip.mp4", longClip("mp4"));
    const std::string index = folder.file("clip.index");
    ASSERT_EQ(runProgram({"index", clip, "-o", index}).exitCode, 0);
    const ProgramResult result = take(clip, {"--from", "398", "--index", index});
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(numbersInFiles(),
                ElementsAre(Pair("frame-000398.ppm", 398), Pair("frame-000399.ppm", 399)));
}

TEST_F(FramesCommandTest, KeepsNumbersRightUnderTheIndexOfAnotherClip) {
    ClipPlan slower = longClip("mp4");
    slower.distance = 3;
    const std::string index = folder.file("other.index");
    ASSERT_EQ(runProgram({"index", make("other.mp4", slower), "-o", index}).exitCode, 0);
    const std::string clip = make("clip.mp4", longClip("mp4"));
    const ProgramResult result = take(clip, {"--from", "300", "--to", "300", "--index", index});
    EXPECT_EQ(result.err,
              "tarn-videoio: " + index + ": not used: its frames are not those of " + clip + '\n');
    EXPECT_THAT(numbersInFiles(), ElementsAre(Pair("frame-000300.ppm", 300)));
}

TEST_F(FramesCommandTest, MakesTheFolderWithItsParents) {
    frames = folder.file("some/where/deep");
    EXPECT_EQ(take(make("clip.mp4", {}), {"--to", "0"}).exitCode, 0);
    EXPECT_EQ(numbersInFiles().size(), 1);
}

TEST_F(FramesCommandTest, ReplacesAFileOfTheSameName) {
    fs::create_directory(frames);
    writeBytes(frames + "/frame-000000.ppm", {1, 2, 3});
    ASSERT_EQ(take(make("clip.mp4", {}), {"--to", "0"}).exitCode, 0);
    EXPECT_THAT(numbersInFiles(), ElementsAre(Pair("frame-000000.ppm", 0)));
}

class MissingFrameTest : public FramesCommandTest,
                         public testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(MissingFrameTest, NamesTheClipAndTheFramesThatThereAre) {
    const std::string clip = make("clip.mp4", longClip("mp4"));
    const ProgramResult result = take(clip, GetParam());
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err,
              "tarn-videoio: " + clip + ": there is no frame 400: frames run from 0 to 399\n");
    EXPECT_FALSE(fs::exists(frames));
}

INSTANTIATE_TEST_SUITE_P(Arguments, MissingFrameTest,
                         testing::Values(std::vector<std::string>{"--from", "400"},
                                         std::vector<std::string>{"--frame", "400"},
                                         std::vector<std::string>{"--from", "390", "--to", "400"}));

TEST_F(FramesCommandTest, WritesPngWhereNothingElseIsAskedFor) {
    const std::string clip = make("clip.mp4", {});
    OracleOptions options;
    options.keepPixels = true;
    ASSERT_EQ(runProgram({"frames", clip, "-o", frames, "--from", "13", "--to", "13"}).exitCode, 0);
    expectCloseTo(oracleFrames(clip, options).at(13).pixels,
                  oracleImage(frames + "/frame-000013.png").pixels);
}

TEST_F(FramesCommandTest, WritesJpegWhereThatIsAskedFor) {
    ASSERT_EQ(
        runProgram({"frames", make("clip.mp4", {}), "-o", frames, "--to", "0", "--format", "jpg"})
            .exitCode,
        0);
    EXPECT_EQ(readBytes(frames + "/frame-000000.jpg").at(1), 0xD8);
}

TEST_F(FramesCommandTest, TheNameOfASingleFrameDecidesItsFormat) {
    const std::string clip = make("clip.mp4", {});
    const std::map<std::string, uint8_t> secondBytes = {
        {"a.PNG", 'P'}, {"b.jpeg", 0xD8}, {"c.ppm", '6'}, {"d", 'P'}};
    for (const auto& [name, byte] : secondBytes) {
        const std::string picture = folder.file(name);
        ASSERT_EQ(runProgram({"frames", clip, "--frame", "0", "-o", picture}).exitCode, 0);
        EXPECT_EQ(readBytes(picture).at(1), byte) << name;
    }
}

} // namespace
