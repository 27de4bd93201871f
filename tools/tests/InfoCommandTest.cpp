#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace tio::test;
using nlohmann::json;
using testing::HasSubstr;

namespace {

class InfoCommandTest : public testing::Test {
protected:
    std::string make(const std::string& name, const ClipPlan& plan) {
        makeClip(folder.file(name), plan);
        return folder.file(name);
    }

    static json infoOf(const std::string& clip, std::vector<std::string> more = {}) {
        std::vector<std::string> arguments = {"info", clip, "--json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const ProgramResult result = runProgram(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return json::parse(result.out);
    }

    TemporaryFolder folder;
};

TEST_F(InfoCommandTest, NamesContainerAndStreams) {
    ClipPlan plan;
    plan.audio = true;
    const json clip = infoOf(make("clip.mp4", plan));
    EXPECT_EQ(clip["file"], folder.file("clip.mp4"));
    EXPECT_EQ(clip["container"], "mov,mp4,m4a,3gp,3g2,mj2");
    EXPECT_EQ(clip["bestVideoStream"], 0);
    EXPECT_EQ(clip["bestAudioStream"], 1);
    ASSERT_EQ(clip["streams"].size(), 2);
    EXPECT_EQ(clip["streams"][0]["type"], "video");
    EXPECT_EQ(clip["streams"][0]["codec"], "h264");
    EXPECT_EQ(clip["streams"][1]["type"], "audio");
    EXPECT_EQ(clip["streams"][1]["codec"], "aac");
}

TEST_F(InfoCommandTest, GivesNullForAMissingKindOfStream) {
    const json clip = infoOf(make("clip.mp4", {}));
    EXPECT_EQ(clip["bestAudioStream"], nullptr);
}

TEST_F(InfoCommandTest, TellsPtsSeekableContainersFromOthers) {
    ClipPlan transportStream;
    transportStream.format = "mpegts";
    EXPECT_EQ(infoOf(make("clip.mp4", {}))["ptsSeekable"], true);
    EXPECT_EQ(infoOf(make("clip.ts", transportStream))["ptsSeekable"], false);
}

struct Turn {
    int degrees;
    int uprightWidth;
    int uprightHeight;
};

class InfoOfTurnedClipTest : public InfoCommandTest, public testing::WithParamInterface<Turn> {};

TEST_P(InfoOfTurnedClipTest, GivesBothSizesAndTheRotation) {
    ClipPlan plan;
    plan.width = 96;
    plan.height = 64;
    plan.rotation = GetParam().degrees;
    const json stream = infoOf(make("clip.mp4", plan))["streams"][0];
    EXPECT_EQ(stream["codedSize"], (json{{"width", 96}, {"height", 64}}));
    EXPECT_EQ(stream["uprightSize"],
              (json{{"width", GetParam().uprightWidth}, {"height", GetParam().uprightHeight}}));
    EXPECT_EQ(stream["rotation"], GetParam().degrees);
}

INSTANTIATE_TEST_SUITE_P(QuarterTurns, InfoOfTurnedClipTest,
                         testing::Values(Turn{0, 96, 64}, Turn{90, 64, 96}, Turn{180, 96, 64},
                                         Turn{270, 64, 96}));

// The size query does not turn the size for this tag, although the pictures come out turned.
TEST_F(InfoCommandTest, GivesTheCodedSizeUnderANegativeRotationTag) {
    ClipPlan plan;
    plan.format = "matroska";
    plan.metadata = {{"rotate", "-90"}};
    const json stream = infoOf(make("clip.mkv", plan))["streams"][0];
    EXPECT_EQ(stream["codedSize"], (json{{"width", 96}, {"height", 64}}));
}

TEST_F(InfoCommandTest, GivesExactDurationAndTimeBase) {
    ClipPlan plan;
    plan.timeBase = {1001, 30000};
    plan.frameCount = 30;
    plan.muxerOptions = {{"video_track_timescale", "30000"}};
    const json stream = infoOf(make("clip.mp4", plan))["streams"][0];
    EXPECT_EQ(stream["duration"]["numerator"], 1001);
    EXPECT_EQ(stream["duration"]["denominator"], 1000);
    EXPECT_DOUBLE_EQ(stream["duration"]["seconds"], 1.001);
    EXPECT_EQ(stream["timeBase"]["denominator"], 30000);
}

TEST_F(InfoCommandTest, SaysThatADurationIsUnknown) {
    ClipPlan plan;
    plan.format = "h264";
    const std::string clip = make("clip.h264", plan);
    EXPECT_EQ(infoOf(clip)["streams"][0]["duration"], nullptr);
    EXPECT_THAT(runProgram({"info", clip}).out, HasSubstr("duration      unknown"));
}

TEST_F(InfoCommandTest, CountsFramesOnlyWhenAsked) {
    ClipPlan plan;
    plan.frameCount = 31;
    const std::string clip = make("clip.mp4", plan);
    EXPECT_EQ(infoOf(clip)["streams"][0]["frameCount"], nullptr);
    EXPECT_EQ(infoOf(clip, {"--count"})["streams"][0]["frameCount"], 31);
}

TEST_F(InfoCommandTest, TakesTheFrameCountFromAnIndex) {
    const std::string clip = make("clip.mp4", {});
    const std::string index = folder.file("clip.index");
    ASSERT_EQ(runProgram({"index", clip, "-o", index}).exitCode, 0);
    truncateFile(index, 8 + 8 * 7); // only a count taken from the file can be 7
    EXPECT_EQ(infoOf(clip, {"--index", index})["streams"][0]["frameCount"], 7);
}

TEST_F(InfoCommandTest, PrintsTheSameFactsAsText) {
    ClipPlan plan;
    plan.rotation = 90;
    const std::string text = runProgram({"info", make("clip.mp4", plan), "--count"}).out;
    EXPECT_THAT(text, HasSubstr("stream 0: video, h264\n"));
    EXPECT_THAT(text, HasSubstr("duration      1/1 s = 1.000000 s\n"));
    EXPECT_THAT(text, HasSubstr("coded size    96 x 64\n"));
    EXPECT_THAT(text, HasSubstr("upright size  64 x 96\n"));
    EXPECT_THAT(text, HasSubstr("rotation      90 degrees clockwise\n"));
    EXPECT_THAT(text, HasSubstr("frames        25\n"));
}

TEST_F(InfoCommandTest, TellsRateFormatAndColours) {
    ClipPlan plan;
    plan.encoderOptions = {{"colorspace", "bt709"},
                           {"color_range", "tv"},
                           {"color_primaries", "bt709"},
                           {"color_trc", "bt709"}};
    const std::string clip = make("clip.mp4", plan);
    const json stream = infoOf(clip)["streams"][0];
    EXPECT_EQ(stream["frameRate"]["numerator"], 25);
    EXPECT_EQ(stream["frameRate"]["denominator"], 1);
    EXPECT_EQ(stream["frameRateVaries"], false);
    EXPECT_EQ(stream["pixelFormat"], "yuv420p");
    EXPECT_EQ(stream["bits"], 8);
    EXPECT_EQ(stream["colourSpace"], "bt709");
    EXPECT_EQ(stream["colourRange"], "tv");
    EXPECT_EQ(stream["colourPrimaries"], "bt709");
    EXPECT_EQ(stream["colourTransfer"], "bt709");
    EXPECT_GT(stream["bitRate"], 0);
    const std::string text = runProgram({"info", clip}).out;
    EXPECT_THAT(text, HasSubstr("frame rate    25/1 = 25.000 per second\n"));
    EXPECT_THAT(text, HasSubstr("pixel format  yuv420p\n"));
    EXPECT_THAT(text, HasSubstr("colours       matrix bt709, range tv, primaries bt709, "
                                "transfer bt709\n"));
}

TEST_F(InfoCommandTest, SaysThatTheRateVaries) {
    ClipPlan plan;
    plan.timeBase = {1, 1000};
    plan.pts = {0, 40, 90, 100, 250, 251, 400};
    const std::string clip = make("clip.mp4", plan);
    EXPECT_EQ(infoOf(clip)["streams"][0]["frameRateVaries"], true);
    EXPECT_THAT(runProgram({"info", clip}).out, HasSubstr("per second on average, varies\n"));
}

TEST_F(InfoCommandTest, SaysWhatAClipDoesNotTell) {
    ClipPlan plan;
    plan.format = "h264";
    const std::string clip = make("clip.h264", plan);
    const json stream = infoOf(clip)["streams"][0];
    EXPECT_EQ(stream["bitRate"], nullptr);
    EXPECT_EQ(stream["colourSpace"], nullptr);
    EXPECT_THAT(runProgram({"info", clip}).out, HasSubstr("bit rate      unknown\n"));
}

TEST_F(InfoCommandTest, TellsTheSound) {
    ClipPlan plan;
    plan.audio = true;
    const std::string clip = make("clip.mp4", plan);
    const json stream = infoOf(clip)["streams"][1];
    EXPECT_EQ(stream["sampleRate"], 48000);
    EXPECT_EQ(stream["channels"], 1);
    EXPECT_EQ(stream["layout"], "mono");
    EXPECT_EQ(stream["sampleFormat"], "fltp");
    EXPECT_GT(stream["bitRate"], 0);
    const std::string text = runProgram({"info", clip}).out;
    EXPECT_THAT(text, HasSubstr("sample rate   48000 per second\n"));
    EXPECT_THAT(text, HasSubstr("channels      1, mono\n"));
}

} // namespace
