#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tio::test;
using testing::HasSubstr;

namespace {

class OutputStreamsTest : public testing::Test {
protected:
    void SetUp() override { makeClip(clip, {}); }

    TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
    std::string frames = folder.file("frames");
};

TEST_F(OutputStreamsTest, StandardErrorStaysEmptyWhenAllGoesWell) {
    EXPECT_EQ(runProgram({"info", clip, "--count"}).err, "");
    EXPECT_EQ(runProgram({"frames", clip, "-o", frames}).err, "");
    EXPECT_EQ(runProgram({"index", clip, "-o", folder.file("clip.index")}).err, "");
    EXPECT_EQ(runProgram({"verify", clip}).err, "");
}

TEST_F(OutputStreamsTest, QuietCommandsPrintNothing) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"frames", clip, "-o", frames, "-q"},
          std::vector<std::string>{"index", clip, "-o", folder.file("clip.index"), "-q"},
          std::vector<std::string>{"verify", clip, "-q"}}) {
        const ProgramResult result = runProgram(arguments);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_EQ(result.out + result.err, "") << arguments[0];
    }
}

TEST_F(OutputStreamsTest, QuietStillPrintsWhatWasAskedFor) {
    EXPECT_EQ(runProgram({"info", clip, "--quiet"}).out, runProgram({"info", clip}).out);
}

TEST_F(OutputStreamsTest, ShowsProgressOnATerminal) {
    const std::string drawn = runOnTerminal({"frames", clip, "-o", frames, "--to", "24"});
    EXPECT_THAT(drawn, HasSubstr("frames  [........................]   0%"));
}

TEST_F(OutputStreamsTest, ClearsTheProgressLineAtTheEnd) {
    const std::string drawn = runOnTerminal({"frames", clip, "-o", frames});
    const std::string clearLine = "\r\033[K";
    ASSERT_GE(drawn.size(), clearLine.size());
    EXPECT_EQ(drawn.substr(drawn.size() - clearLine.size()), clearLine);
}

TEST_F(OutputStreamsTest, QuietShowsNoProgressOnATerminal) {
    EXPECT_EQ(runOnTerminal({"frames", clip, "-o", frames, "--quiet"}), "");
}

TEST_F(OutputStreamsTest, ReadsPastADamagedPacketInSilence) {
    damagePacket(clip, 10);
    EXPECT_EQ(runProgram({"frames", clip, "-o", frames}).err, "");
}

TEST_F(OutputStreamsTest, VerboseLetsTheLogThrough) {
    damagePacket(clip, 10);
    const ProgramResult result = runProgram({"frames", clip, "-o", frames, "--verbose"});
    EXPECT_THAT(result.err, HasSubstr("ffmpeg 3: [h264 @"));
}

TEST_F(OutputStreamsTest, EndsSilentlyWhenNobodyReads) {
    ProgramSetup setup;
    setup.closedPipe = true;
    const ProgramResult result = runProgram({"info", clip}, setup);
    EXPECT_EQ(result.exitCode, 128 + SIGPIPE);
    EXPECT_EQ(result.err, "");
}

TEST_F(OutputStreamsTest, SummaryFollowsAPictureOnStandardOutput) {
    ProgramSetup setup;
    writeBytes(folder.file("redirected"), {});
    setup.standardOutput = folder.file("redirected");
    const std::string picture = folder.file("picture.ppm");
    ASSERT_EQ(runProgram({"frames", clip, "--frame", "0", "-o", picture}).exitCode, 0);
    ASSERT_EQ(
        runProgram({"frames", clip, "--frame", "0", "--format", "ppm", "-o", "/dev/stdout"}, setup)
            .exitCode,
        0);
    std::vector<uint8_t> expected = readBytes(picture);
    const std::string summary = "/dev/stdout: frame 0 at 0/1 s\n";
    expected.insert(expected.end(), summary.begin(), summary.end());
    EXPECT_EQ(readBytes(*setup.standardOutput), expected);
}

TEST_F(OutputStreamsTest, PrintsVersion) {
    const ProgramResult result = runProgram({"--version"});
    EXPECT_EQ(result.exitCode, 0);
    const std::string number = "[0-9]+\\.[0-9]+\\.[0-9]+";
    const std::string library = ": compiled against " + number + ", loaded " + number + "\n";
    EXPECT_THAT(result.out,
                testing::MatchesRegex("tarn-videoio " + number + "\nFFmpeg [^\n]+\n  libavformat" +
                                      library + "  libavcodec" + library + "  libavutil" + library +
                                      "  libswscale" + library + "  libavfilter" + library));
}

TEST_F(OutputStreamsTest, HelpShowsExamplesAndExitCodes) {
    const ProgramResult result = runProgram({"--help"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.out, HasSubstr("Examples:\n  tarn-videoio info clip.mp4\n"));
    EXPECT_THAT(result.out, HasSubstr("\n  4    output cannot be written\n"));
}

} // namespace
