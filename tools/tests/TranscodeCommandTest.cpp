#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/MediaFolder.h"
#include "support/Oracle.h"
#include "support/SoundMaker.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

using namespace tio::test;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

double psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    double squares = 0;
    for (size_t i = 0; i < a.size(); ++i)
        squares += (a[i] - b[i]) * (a[i] - b[i]);
    return 10 * std::log10(255.0 * 255.0 * static_cast<double>(a.size()) / std::max(squares, 1.0));
}

bool haveFfmpegProgram() {
    return std::system("ffmpeg -version > /dev/null 2>&1") == 0;
}

void run(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

class TranscodeCommandTest : public testing::Test {
protected:
    void make(const ClipPlan& plan, const std::string& name = "clip.mp4") {
        clip = folder.file(name);
        makeClip(clip, plan);
    }

    ProgramResult transcode(std::vector<std::string> more = {}) {
        std::vector<std::string> arguments = {"transcode", clip, out};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runProgram(arguments);
    }

    TemporaryFolder folder;
    std::string clip;
    std::string out = folder.file("out.mp4");
};

TEST_F(TranscodeCommandTest, WritesEveryPictureAtItsTimeAndCloseToTheOriginal) {
    ClipPlan plan;
    plan.width = 320;
    plan.height = 240;
    make(plan);
    ASSERT_EQ(transcode({"--crf", "10"}).exitCode, 0);
    OracleOptions keep;
    keep.keepPixels = true;
    const auto original = oracleFrames(clip, keep);
    const auto written = oracleFrames(out, keep);
    ASSERT_EQ(written.size(), original.size());
    for (size_t i = 0; i < original.size(); ++i) {
        EXPECT_EQ(av_cmp_q({static_cast<int>(written[i].time().numerator),
                            static_cast<int>(written[i].time().denominator)},
                           {static_cast<int>(original[i].time().numerator),
                            static_cast<int>(original[i].time().denominator)}),
                  0)
            << i;
        EXPECT_GE(psnr(written[i].pixels, original[i].pixels), 35.0) << i;
    }
    EXPECT_EQ(runProgram({"verify", out}).exitCode, 0);
}

TEST_F(TranscodeCommandTest, KeepsIrregularTimes) {
    ClipPlan plan;
    plan.timeBase = {1, 1000};
    plan.pts = {0, 40, 90, 100, 250, 251, 400};
    make(plan);
    ASSERT_EQ(transcode().exitCode, 0);
    const auto written = oracleFrames(out);
    ASSERT_EQ(written.size(), plan.pts.size());
    for (size_t i = 0; i < plan.pts.size(); ++i)
        EXPECT_EQ(written[i].time().numerator * 1000, plan.pts[i] * written[i].time().denominator);
}

TEST_F(TranscodeCommandTest, WritesTurnedClipsUpright) {
    ClipPlan plan;
    plan.rotation = 90;
    make(plan);
    ASSERT_EQ(transcode().exitCode, 0);
    const auto written = oracleFrames(out);
    EXPECT_EQ(written[0].width, plan.height);
    EXPECT_EQ(written[0].height, plan.width);
    EXPECT_THAT(runProgram({"info", out}).out, HasSubstr("rotation      0 degrees"));
}

TEST_F(TranscodeCommandTest, WritesTheRangeOfFramesAskedFor) {
    make({});
    ASSERT_EQ(transcode({"--from", "5", "--to", "14"}).exitCode, 0);
    OracleOptions keep;
    keep.keepPixels = true;
    const auto original = oracleFrames(clip, keep);
    const auto written = oracleFrames(out, keep);
    ASSERT_EQ(written.size(), 10u);
    EXPECT_GT(psnr(written[0].pixels, original[5].pixels),
              psnr(written[0].pixels, original[4].pixels));
    EXPECT_EQ(written[0].pts, 0);
}

/// The README's own line: the range begins far from the start of the clip.
class FarRangeTest : public TranscodeCommandTest, public testing::WithParamInterface<bool> {};

TEST_P(FarRangeTest, IsWritten) {
    ClipPlan plan;
    plan.frameCount = 250;
    make(plan);
    std::vector<std::string> arguments = {"--from", "100", "--to", "199"};
    if (GetParam()) {
        const std::string index = folder.file("clip.index");
        ASSERT_EQ(runProgram({"index", clip, "-o", index, "--frames"}).exitCode, 0);
        arguments.insert(arguments.end(), {"--index", index});
    }
    const ProgramResult result = transcode(arguments);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto written = oracleFrames(out);
    ASSERT_EQ(written.size(), 100U);
    EXPECT_EQ(written[0].pts, 0);
    EXPECT_EQ(written[99].time().numerator * 25, 99 * written[99].time().denominator);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutIndex, FarRangeTest, testing::Bool());

TEST_F(TranscodeCommandTest, CarriesTheSoundUnlessToldNotTo) {
    ClipPlan plan;
    plan.audio = true;
    make(plan);
    ASSERT_EQ(transcode().exitCode, 0);
    EXPECT_THAT(runProgram({"info", out}).out, HasSubstr("audio, aac"));
    ASSERT_EQ(transcode({"--no-audio"}).exitCode, 0);
    EXPECT_THAT(runProgram({"info", out}).out, Not(HasSubstr("audio")));
}

TEST_F(TranscodeCommandTest, HandsItsOptionsToTheEncoder) {
    make({});
    ASSERT_EQ(transcode({"--crf", "0"}).exitCode, 0);
    const auto fine = std::filesystem::file_size(out);
    ASSERT_EQ(transcode({"--crf", "51", "--preset", "ultrafast"}).exitCode, 0);
    EXPECT_LT(std::filesystem::file_size(out), fine);
}

TEST_F(TranscodeCommandTest, RefusesSettingsThatTheEncoderDoesNotHave) {
    make({});
    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{"--preset", "quickest"}, {"--crf", "52"}, {"--bitrate", "much"}})
        EXPECT_EQ(transcode(wrong).exitCode, 2) << wrong[0];
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(TranscodeCommandTest, SoundAndPictureStayTogether) {
    if (!haveFfmpegProgram())
        GTEST_SKIP() << "the ffmpeg program is not installed";
    // A flash in the 51st picture, and a beep at the same moment, two seconds into the clip.
    clip = folder.file("flash.mkv");
    run("ffmpeg -v error -f lavfi -i \"color=black:s=64x64:r=25:d=4,drawbox=color=white:t=fill:"
        "enable='between(t,2,2.03)'\" -f lavfi -i \"aevalsrc=if(between(t\\,2\\,2.04)\\,"
        "sin(2*PI*1000*t)\\,0):s=48000:d=4\" -c:v ffv1 -c:a pcm_s16le -y " +
        clip);
    for (const std::string from : {"0", "25"}) {
        ASSERT_EQ(transcode({"--from", from}).exitCode, 0);
        const std::string pictures = folder.file("pictures");
        const std::string sound = folder.file("sound");
        run("ffmpeg -v error -y -i " + out + " -f rawvideo -pix_fmt gray " + pictures);
        run("ffmpeg -v error -y -i " + out + " -f f32le -ac 1 " + sound);

        const auto pixels = readBytes(pictures);
        size_t flash = 0;
        while (flash * 64 * 64 < pixels.size() && pixels[flash * 64 * 64] < 128)
            ++flash;
        const auto bytes = readBytes(sound);
        std::vector<float> samples(bytes.size() / sizeof(float));
        std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
        const auto beep = std::find_if(samples.begin(), samples.end(),
                                       [](float value) { return std::abs(value) > 0.3F; });
        ASSERT_NE(beep, samples.end());
        const double flashTime = static_cast<double>(flash) / 25;
        const double beepTime = static_cast<double>(beep - samples.begin()) / 48000;
        EXPECT_NEAR(flashTime, 2.0 - std::stod(from) / 25, 0.001) << "from frame " << from;
        EXPECT_NEAR(beepTime, flashTime, 0.04) << "from frame " << from;
    }
}

TEST_F(TranscodeCommandTest, TheNameDecidesTheContainer) {
    make({});
    const std::vector<std::pair<std::string, std::string>> containers = {
        {"a.mp4", "mov,mp4,m4a"}, {"a.mkv", "matroska"}, {"a.webm", "matroska"}};
    for (const auto& [name, container] : containers) {
        out = folder.file(name);
        const ProgramResult result = transcode();
        ASSERT_EQ(result.exitCode, 0) << result.err;
        EXPECT_THAT(runProgram({"info", out}).out, HasSubstr("container     " + container)) << name;
        EXPECT_EQ(oracleFrames(out).size(), 25U);
    }
    EXPECT_THAT(runProgram({"info", out}).out, HasSubstr("video, vp9"));
}

TEST_F(TranscodeCommandTest, RefusesANameThatIsNotThatOfAClipBeforeItReads) {
    clip = folder.file("absent.mp4");
    out = folder.file("out.xyz");
    const ProgramResult result = transcode();
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "tarn-videoio: " + out +
                              ": a clip is called .mp4, .m4v, .mov, .mkv or .webm at the end; see "
                              "tarn-videoio transcode --help\n");
}

TEST_F(TranscodeCommandTest, ALosslessCodecGivesEveryPictureBack) {
    for (const char* format : {"yuv420p", "yuv422p", "yuv444p10le"}) {
        ClipPlan plan;
        plan.encoder = "ffv1";
        plan.format = "matroska";
        plan.maxBFrames = 0;
        plan.pixelFormat = format;
        make(plan, "clip.mkv");
        out = folder.file("out.mkv");
        ASSERT_EQ(transcode({"--codec", "ffv1"}).exitCode, 0);
        EXPECT_THAT(runProgram({"info", out}).out,
                    HasSubstr("pixel format  " + std::string(format) + "\n"));
        const auto original = oracleFrames(clip);
        const auto written = oracleFrames(out);
        ASSERT_EQ(written.size(), original.size());
        for (size_t i = 0; i < original.size(); ++i)
            EXPECT_EQ(written[i].hash, original[i].hash) << format << i;
    }
}

TEST_F(TranscodeCommandTest, ARateRepeatsAndLeavesOutPictures) {
    make({}); // 25 pictures in a second
    out = folder.file("out.mkv");
    const auto original = oracleFrames(clip);
    for (const int rate : {50, 10}) {
        ASSERT_EQ(transcode({"--rate", std::to_string(rate), "--codec", "ffv1"}).exitCode, 0);
        const auto written = oracleFrames(out);
        ASSERT_EQ(written.size(), static_cast<size_t>(rate));
        for (size_t i = 0; i < written.size(); ++i) {
            EXPECT_EQ(written[i].time().numerator * rate,
                      static_cast<int64_t>(i) * written[i].time().denominator);
            EXPECT_EQ(written[i].hash, original.at(i * 25 / static_cast<size_t>(rate)).hash) << i;
        }
    }
}

TEST_F(TranscodeCommandTest, PicturesAreScaledAndStoredAsAskedFor) {
    make({});
    ASSERT_EQ(transcode({"--size", "48x", "--format", "yuv444p"}).exitCode, 0);
    const std::string info = runProgram({"info", out}).out;
    EXPECT_THAT(info, HasSubstr("coded size    48 x 32"));
    EXPECT_THAT(info, HasSubstr("pixel format  yuv444p"));
}

TEST_F(TranscodeCommandTest, ACutBeginsAndEndsAtTheVerySample) {
    if (!haveFfmpegProgram())
        GTEST_SKIP() << "the ffmpeg program is not installed";
    clip = folder.file("clip.mkv");
    run("ffmpeg -v error -f lavfi -i testsrc2=s=64x64:r=25:d=4 -f lavfi -i "
        "\"aevalsrc=sin(n*n/7e4):s=48000:d=4\" -c:v ffv1 -c:a pcm_s16le -y " +
        clip);
    out = folder.file("out.mkv");
    ASSERT_EQ(transcode({"--from", "25", "--to", "49", "--audio-codec", "flac"}).exitCode, 0);
    const OracleSound whole = oracleSound(clip);
    const OracleSound cut = oracleSound(out);
    EXPECT_EQ(cut.samples,
              std::vector<float>(whole.samples.begin() + 48000, whole.samples.begin() + 96000));
}

TEST_F(TranscodeCommandTest, LosesNothingOfARealClipWhoseSoundHasNoTimes) {
    const auto file = mediaFile("video/bear_mpeg4asp_mp3.avi");
    if (!file)
        GTEST_SKIP() << mediaMissingMessage();
    clip = *file;
    out = folder.file("out.mkv");
    ASSERT_EQ(transcode({"--audio-codec", "pcm_f32le"}).exitCode, 0);
    EXPECT_EQ(oracleSound(out).samples, oracleSound(clip).samples);
}

TEST_F(TranscodeCommandTest, RefusesARangeTheWrongWayRoundAndAFrameThatIsNotThere) {
    make({});
    EXPECT_EQ(transcode({"--from", "5", "--to", "4"}).exitCode, 2);
    const ProgramResult result = transcode({"--from", "25"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err,
              "tarn-videoio: " + clip + ": there is no frame 25: frames run from 0 to 24\n");
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(TranscodeCommandTest, LeavesNothingBehindOnAFullDisk) {
    ClipPlan plan;
    plan.audio = true;
    make(plan);
    ProgramSetup setup;
    setup.fileSizeLimit = 1024;
    const ProgramResult result = runProgram({"transcode", clip, out}, setup);
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.err, StartsWith("tarn-videoio: " + out + ": "));
    EXPECT_FALSE(std::filesystem::exists(out));
}

} // namespace
