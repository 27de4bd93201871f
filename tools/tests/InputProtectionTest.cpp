#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace tio::test;
using testing::HasSubstr;

namespace fs = std::filesystem;

namespace {

/// The file that a command reads is never what it writes.
class InputProtectionTest : public testing::TestWithParam<std::vector<std::string>> {
protected:
    void SetUp() override {
        makeClip(clip, {});
        fs::create_symlink(clip, link);
        before = readBytes(clip);
    }

    /// Runs the command with CLIP and OUT put in.
    ProgramResult runWith(const std::string& output) {
        std::vector<std::string> words = GetParam();
        for (std::string& word : words)
            word = word == "CLIP" ? clip : word == "OUT" ? output : word;
        return runProgram(words);
    }

    TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
    std::string link = folder.file("link.mp4");
    std::vector<uint8_t> before;
};

TEST_P(InputProtectionTest, IsRefusedByItsNameAndByAnother) {
    for (const std::string& output : {clip, link}) {
        const auto result = runWith(output);
        EXPECT_EQ(result.exitCode, 4) << output;
        EXPECT_THAT(result.err, HasSubstr(output));
        EXPECT_EQ(readBytes(clip), before);
        EXPECT_TRUE(fs::is_symlink(link));
    }
}

using Words = std::vector<std::string>;

INSTANTIATE_TEST_SUITE_P(Commands, InputProtectionTest,
                         testing::Values(Words{"transcode", "CLIP", "OUT"},
                                         Words{"remux", "CLIP", "OUT"},
                                         Words{"index", "CLIP", "-o", "OUT"},
                                         Words{"index", "CLIP", "--frames", "-o", "OUT"},
                                         Words{"frames", "CLIP", "--frame", "3", "-o", "OUT"}));

/// An index of one clip given with another.
TEST(ForeignIndexTest, IsToldAsThatOfAnotherClip) {
    TemporaryFolder folder;
    ClipPlan other;
    other.width = 128;
    makeClip(folder.file("a.mp4"), {});
    makeClip(folder.file("b.mp4"), other);
    const std::string index = folder.file("b.index");
    ASSERT_EQ(runProgram({"index", folder.file("b.mp4"), "--frames", "-o", index}).exitCode, 0);
    for (const Words& words : {Words{"verify", "--reader"}, Words{"info", "--count"}}) {
        Words all = {words[0], folder.file("a.mp4"), words[1], "--index", index};
        const auto result = runProgram(all);
        EXPECT_EQ(result.exitCode, 3) << words[0];
        EXPECT_THAT(result.err, HasSubstr("index of another clip"));
    }
}

} // namespace
