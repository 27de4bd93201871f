#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/SoundMaker.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tio::test;
using testing::EndsWith;
using testing::StartsWith;

namespace {

void expectOneLineAbout(const ProgramResult& result, const std::string& file) {
    EXPECT_THAT(result.err, StartsWith("tarn-videoio: " + file + ": "));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
}

class EveryCommandTest : public testing::TestWithParam<const char*> {
protected:
    ProgramResult run(const std::string& clip) {
        std::vector<std::string> arguments = {GetParam(), clip};
        if (arguments[0] != "info" && arguments[0] != "verify" && arguments[0] != "nals") {
            arguments.emplace_back("-o");
            arguments.push_back(output);
        }
        return runProgram(arguments);
    }

    TemporaryFolder folder;
    std::string output = folder.file("output.png");
};

TEST_P(EveryCommandTest, NamesAFileThatDoesNotExist) {
    const std::string clip = folder.file("absent.mp4");
    const ProgramResult result = run(clip);
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, "tarn-videoio: " + clip + ": No such file or directory\n");
}

TEST_P(EveryCommandTest, NamesAFileThatIsNoClip) {
    const std::string clip = folder.file("letter.txt");
    writeBytes(clip, {'D', 'e', 'a', 'r', ' ', 'r', 'e', 'a', 'd', 'e', 'r'});
    const ProgramResult result = run(clip);
    EXPECT_EQ(result.exitCode, 3);
    expectOneLineAbout(result, clip);
}

TEST_P(EveryCommandTest, LeavesNoOutputBehindAFailure) {
    const std::string clip = folder.file("letter.txt");
    writeBytes(clip, {'D', 'e', 'a', 'r', ' ', 'r', 'e', 'a', 'd', 'e', 'r'});
    static_cast<void>(run(clip));
    EXPECT_FALSE(std::filesystem::exists(output));
}

TEST_P(EveryCommandTest, KeepsTheErrorOnOneLineWhateverTheFileIsCalled) {
    const ProgramResult result = run(folder.file("two\nlines.mp4"));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
}

INSTANTIATE_TEST_SUITE_P(Commands, EveryCommandTest,
                         testing::Values("info", "frames", "index", "verify", "sheet", "wave",
                                         "nals"));

class ErrorReportTest : public testing::Test {
protected:
    void SetUp() override { makeClip(clip, {}); }

    TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
};

TEST_F(ErrorReportTest, NamesAFolderThatCannotBeMade) {
    const std::string output = clip + "/frames";
    const ProgramResult result = runProgram({"frames", clip, "-o", output});
    EXPECT_EQ(result.exitCode, 4);
    expectOneLineAbout(result, output);
}

TEST_F(ErrorReportTest, NamesAFileInPlaceOfTheFolder) {
    const std::string output = folder.file("letter");
    writeBytes(output, {'D', 'e', 'a', 'r'});
    const ProgramResult result = runProgram({"frames", clip, "-o", output});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.err, "tarn-videoio: " + output + ": Not a directory\n");
}

TEST_F(ErrorReportTest, NamesAFolderInPlaceOfTheFile) {
    const std::string output = folder.path().string();
    const ProgramResult result = runProgram({"index", clip, "-o", output});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.err, "tarn-videoio: " + output + ": Is a directory\n");
}

TEST_F(ErrorReportTest, NamesAFileWhoseFolderIsMissing) {
    const std::string output = folder.file("absent/clip.index");
    const ProgramResult result = runProgram({"index", clip, "-o", output});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.err, "tarn-videoio: " + output + ": No such file or directory\n");
}

TEST_F(ErrorReportTest, TellsThatTheDiskIsFull) {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"index", clip, "-o", "/dev/full"},
          std::vector<std::string>{"frames", clip, "--frame", "0", "-o", "/dev/full"}}) {
        const ProgramResult result = runProgram(arguments);
        EXPECT_EQ(result.exitCode, 4) << arguments[0];
        EXPECT_EQ(result.err, "tarn-videoio: /dev/full: No space left on device\n");
    }
}

TEST_F(ErrorReportTest, LeavesNoPartOfAFileThatCannotBeCompleted) {
    const std::string frames = folder.file("frames");
    ProgramSetup setup;
    setup.fileSizeLimit = 500; // a picture has more bytes
    const ProgramResult result = runProgram({"frames", clip, "-o", frames}, setup);
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.err, "tarn-videoio: " + frames + "/frame-000000.png: File too large\n");
    EXPECT_TRUE(std::filesystem::is_empty(frames));
}

TEST_F(ErrorReportTest, TellsThatStandardOutputCannotBeWritten) {
    ProgramSetup setup;
    setup.standardOutput = "/dev/full";
    const ProgramResult result = runProgram({"info", clip}, setup);
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.err, "tarn-videoio: standard output: No space left on device\n");
}

TEST_F(ErrorReportTest, WrongUsageNamesTheHelpOfTheCommand) {
    EXPECT_THAT(runProgram({"frames", clip}).err, EndsWith("; see tarn-videoio frames --help\n"));
    EXPECT_THAT(runProgram({"frames", clip, "-o", "x", "--times", "soon"}).err,
                EndsWith("; see tarn-videoio frames --help\n"));
    EXPECT_THAT(runProgram({"play"}).err, EndsWith("; see tarn-videoio --help\n"));
}

TEST_F(ErrorReportTest, NamesTheClipOnce) {
    const ProgramResult result =
        runProgram({"frames", clip, "--times", "99", "-o", folder.file("x")});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, "tarn-videoio: " + clip + ": No frame is shown at 99/1 s\n");
}

TEST_F(ErrorReportTest, SaysThatThereAreNoPictures) {
    const std::string sound = folder.file("sound.m4a");
    makeSound(sound, {});
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"frames", sound, "-o", folder.file("x")},
          {"sheet", sound, "-o", folder.file("x.png")},
          {"verify", sound},
          {"index", sound, "-o", folder.file("x.index")},
          {"transcode", sound, folder.file("x.mp4")}}) {
        const ProgramResult result = runProgram(arguments);
        EXPECT_EQ(result.exitCode, 3) << arguments[0];
        EXPECT_EQ(result.err, "tarn-videoio: " + sound + ": there are no pictures in this clip\n");
    }
}

TEST_F(ErrorReportTest, SaysThatACodecIsUnknown) {
    std::vector<uint8_t> bytes = readBytes(clip);
    const std::string code = "avc1";
    for (auto at = bytes.begin(); at != bytes.end();) {
        at = std::search(bytes.begin(), bytes.end(), code.begin(), code.end());
        if (at != bytes.end())
            *at = 'z';
    }
    writeBytes(clip, bytes);
    const ProgramResult result = runProgram({"frames", clip, "-o", folder.file("x")});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err,
              "tarn-videoio: " + clip +
                  ": the pictures cannot be decoded: FFmpeg does not know their codec\n");
}

TEST_F(ErrorReportTest, WarnsOfAClipWhoseEndIsMissing) {
    ClipPlan plan;
    plan.frameCount = 100;
    plan.muxerOptions = {{"movflags", "faststart"}};
    makeClip(clip, plan);
    truncateFile(clip, std::filesystem::file_size(clip) / 2);
    const std::string frames = folder.file("frames");
    const ProgramResult result = runProgram({"frames", clip, "-o", frames});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.err, StartsWith("tarn-videoio: " + clip + ": only 0:0"));
    EXPECT_THAT(result.err, EndsWith(" can be read of the 0:04.000 that the clip states\n"));
    EXPECT_FALSE(std::filesystem::is_empty(frames));
}

class WrongUsageTest : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(WrongUsageTest, SaysWhatIsWrongInOneLine) {
    const ProgramResult result = runProgram(GetParam());
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("tarn-videoio: "));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
}

INSTANTIATE_TEST_SUITE_P(
    Arguments, WrongUsageTest,
    testing::Values(
        std::vector<std::string>{}, std::vector<std::string>{"play", "clip.mp4"},
        std::vector<std::string>{"info"}, std::vector<std::string>{"info", "clip.mp4", "other.mp4"},
        std::vector<std::string>{"info", "clip.mp4", "--fast"},
        std::vector<std::string>{"index", "clip.mp4"},
        std::vector<std::string>{"frames", "clip.mp4", "-o", "x", "--every", "0"},
        std::vector<std::string>{"frames", "clip.mp4", "-o", "x", "--from", "-1"},
        std::vector<std::string>{"frames", "clip.mp4", "-o", "x", "--from", "one"},
        std::vector<std::string>{"frames", "clip.mp4", "-o", "x", "--format", "gif"},
        std::vector<std::string>{"frames", "clip.mp4", "-o", "x", "--frame", "1", "--to", "2"},
        std::vector<std::string>{"frames", "clip.mp4", "-o", "x", "--from", "2", "--to", "1"},
        std::vector<std::string>{"verify", "clip.mp4", "--samples", "0"},
        std::vector<std::string>{"image", "a.png"}, std::vector<std::string>{"sheet", "clip.mp4"},
        std::vector<std::string>{"sheet", "clip.mp4", "-o", "a.png", "--columns", "0"},
        std::vector<std::string>{"wave", "clip.mp4", "-o", "a.txt"},
        std::vector<std::string>{"nals"}));

} // namespace
