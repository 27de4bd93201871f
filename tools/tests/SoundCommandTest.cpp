#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/MediaFolder.h"
#include "support/SoundMaker.h"
#include "support/TemporaryFolder.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace tio::test;
using testing::HasSubstr;

namespace {

class SoundCommandTest : public testing::Test {
protected:
    void make(const SoundPlan& plan, const std::string& name = "clip.mp4") {
        clip = folder.file(name);
        makeSound(clip, plan);
    }

    ProgramResult take(const std::string& name, const std::vector<std::string>& more = {}) {
        out = folder.file(name);
        std::vector<std::string> arguments = {"sound", clip, "-o", out};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runProgram(arguments);
    }

    /// Samples `first` to `end` of a decoding from start to end.
    [[nodiscard]] std::vector<float> expected(int64_t first, int64_t end) const {
        const OracleSound sound = oracleSound(clip);
        return {sound.samples.begin() + first * sound.channels,
                sound.samples.begin() + end * sound.channels};
    }

    TemporaryFolder folder;
    std::string clip;
    std::string out;
};

TEST_F(SoundCommandTest, WritesEverySampleIntoAWav) {
    make({});
    const ProgramResult result = take("out.wav");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const OracleSound sound = oracleSound(clip);
    EXPECT_EQ(oracleSound(out).samples, sound.samples);
    EXPECT_EQ(result.out, out + ": " + std::to_string(sound.count()) +
                              " samples, 2 channels, 44100 per second\n");
}

TEST_F(SoundCommandTest, TakesAPartByTheNumbersOfItsSamples) {
    make({});
    ASSERT_EQ(take("out.wav", {"--from", "40001samples", "--to", "50003samples"}).exitCode, 0);
    EXPECT_EQ(oracleSound(out).samples, expected(40001, 50003));
}

// Half a second at 44100 per second is sample 22050; a third of one, 14700.
TEST_F(SoundCommandTest, TakesAPartByTimes) {
    SoundPlan plan;
    plan.format = "wav";
    plan.encoder = "pcm_f32le";
    plan.sampleFormat = "flt";
    make(plan, "clip.wav");
    ASSERT_EQ(take("out.wav", {"--from", "1/3", "--to", "0.5"}).exitCode, 0);
    EXPECT_EQ(oracleSound(out).samples, expected(14700, 22050));
}

TEST_F(SoundCommandTest, WritesLosslessSoundAsFlac) {
    SoundPlan plan;
    plan.format = "wav";
    plan.encoder = "pcm_s16le";
    plan.sampleFormat = "s16";
    make(plan, "clip.wav");
    ASSERT_EQ(take("out.flac").exitCode, 0);
    EXPECT_EQ(oracleSound(out).samples, oracleSound(clip).samples);
}

TEST_F(SoundCommandTest, EncodesAac) {
    make({});
    ASSERT_EQ(take("out.m4a").exitCode, 0);
    EXPECT_EQ(oracleSound(out).count(), oracleSound(clip).count());
    EXPECT_THAT(runProgram({"info", out}).out, HasSubstr("audio, aac"));
}

TEST_F(SoundCommandTest, RefusesANameThatIsNotThatOfSoundBeforeItReads) {
    clip = folder.file("absent.mp4");
    const ProgramResult result = take("out.mp3");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "tarn-videoio: " + out +
                              ": sound alone is called .wav, .flac, .m4a or .mka at the end; see "
                              "tarn-videoio sound --help\n");
}

TEST_F(SoundCommandTest, RefusesAPartThatIsNotThere) {
    make({});
    for (const std::vector<std::string>& part : {std::vector<std::string>{"--from", "99"},
                                                 {"--from", "1", "--to", "0.5"},
                                                 {"--to", "1000000samples"}}) {
        EXPECT_EQ(take("out.wav", part).exitCode, 3) << part.back();
        EXPECT_FALSE(std::filesystem::exists(out));
    }
    EXPECT_EQ(take("out.wav", {"--from", "soon"}).exitCode, 2);
}

TEST_F(SoundCommandTest, SaysThatAClipHasNoSound) {
    clip = folder.file("silent.mp4");
    makeClip(clip, {});
    const ProgramResult result = take("out.wav");
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, "tarn-videoio: " + clip + ": there is no sound in this clip\n");
}

TEST_F(SoundCommandTest, WarnsOfASoundWhoseEndIsMissing) {
    SoundPlan plan;
    plan.muxerOptions = {{"movflags", "faststart"}};
    make(plan);
    truncateFile(clip, std::filesystem::file_size(clip) / 2);
    const ProgramResult result = take("out.wav");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.err, HasSubstr(clip + ": only 0:0"));
}

TEST_F(SoundCommandTest, VerifyFindsEveryBlockAgainInAnyOrder) {
    SoundPlan plan;
    plan.seconds = 1;
    make(plan);
    const int64_t blocks = (oracleSound(clip).count() + 4095) / 4096;
    const std::string all = std::to_string(blocks);
    const ProgramResult result = runProgram({"verify", clip, "--sound"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "forward:  " + all +
                              " blocks of 4096 samples read\ncount:    the index has " + all +
                              " blocks of 4096 samples\nreverse:  " + all + " of " + all +
                              " blocks of 4096 samples agree\nshuffled: " + all + " of " + all +
                              " blocks of 4096 samples agree (seed 20240613)\n");
}

// What the stream decoder leaves out because its blocks have no rising times.
TEST_F(SoundCommandTest, LosesNothingOfARealClipWhoseSoundHasNoTimes) {
    const auto file = mediaFile("video/bear_mpeg4asp_mp3.avi");
    if (!file)
        GTEST_SKIP() << mediaMissingMessage();
    clip = *file;
    ASSERT_EQ(take("out.wav").exitCode, 0);
    EXPECT_EQ(oracleSound(out).samples, oracleSound(clip).samples);
}

} // namespace
