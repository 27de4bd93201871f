#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tio::test;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr size_t entrySize = 8; // bytes of one number in an index file

class VerifyCommandTest : public testing::Test {
protected:
    void SetUp() override {
        makeClip(clip, {});
        ASSERT_EQ(runProgram({"index", clip, "-o", index}).exitCode, 0);
    }

    ProgramResult verifyWithIndex() { return runProgram({"verify", clip, "--index", index}); }

    /// Removes the entry of one frame: those after it then have the number of the one before.
    void removeFromIndex(size_t frame) {
        std::vector<uint8_t> bytes = readBytes(index);
        const auto entry = bytes.begin() + static_cast<std::ptrdiff_t>((1 + frame) * entrySize);
        bytes.erase(entry, entry + static_cast<std::ptrdiff_t>(entrySize));
        writeBytes(index, bytes);
    }

    TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
    std::string index = folder.file("clip.index");
};

TEST_F(VerifyCommandTest, FindsASoundClipExactInBothOrders) {
    const ProgramResult result = runProgram({"verify", clip});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "forward:  25 frames read\n"
                          "count:    the index has 25 frames\n"
                          "reverse:  25 of 25 frames agree\n"
                          "shuffled: 25 of 25 frames agree (seed 20240613)\n");
}

TEST_F(VerifyCommandTest, ChecksTheFrameReader) {
    const ProgramResult result = runProgram({"verify", clip, "--reader"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out,
              "forward:  25 frames read\n"
              "count:    the index has 25 frames\n"
              "reverse:  25 of 25 frames agree\n"
              "shuffled: 25 of 25 frames agree (seed 20240613)\n"
              "reader:   50 frames from the key frame before, 0 from an earlier one, 0 from the "
              "start\n");
}

// Seeking in this container lands in mid-group, where the reader finds its way.
TEST_F(VerifyCommandTest, FindsTheFrameReaderExactInATransportStream) {
    ClipPlan plan;
    plan.format = "mpegts";
    plan.openGop = true;
    plan.frameCount = 60;
    makeClip(clip, plan);
    const ProgramResult result = runProgram({"verify", clip, "--reader", "--checksum"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.out, HasSubstr("reader:   120 frames proven by checksum\n"));
}

// Groups of 12 pictures: without the entry of frame 5, the key pictures 12 and 24 count as 11 and
// 23, and so does everything that is reached through them.
TEST_F(VerifyCommandTest, ReportsFramesThatAnIndexNumbersWrongly) {
    removeFromIndex(5);
    const ProgramResult result = verifyWithIndex();
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.out, HasSubstr("the index has 24 frames, but reading gave 25"));
    EXPECT_THAT(result.out, HasSubstr("reverse:  11 of 25 frames agree"));
    EXPECT_THAT(result.out, HasSubstr("frame 23: expected time 23/25 s, got 24/25 s, another "
                                      "picture"));
    EXPECT_THAT(result.out, HasSubstr("  and 9 more\n"));
}

TEST_F(VerifyCommandTest, ReportsAFailingAccessWithItsMessage) {
    removeFromIndex(20);
    EXPECT_THAT(verifyWithIndex().out,
                testing::ContainsRegex("frame 24: expected time 24/25 s, got no picture: [^\n]+"));
}

TEST_F(VerifyCommandTest, NamesAnIndexThatCannotBeLoaded) {
    truncateFile(index, 12);
    const ProgramResult result = verifyWithIndex();
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.err, StartsWith("tarn-videoio: " + index + ": "));
}

TEST_F(VerifyCommandTest, ChecksAsManyFramesAsAskedFor) {
    const ProgramResult result = runProgram({"verify", clip, "--samples", "4"});
    EXPECT_THAT(result.out, HasSubstr("reverse:  4 of 4 frames agree"));
    EXPECT_THAT(result.out, HasSubstr("shuffled: 4 of 4 frames agree"));
}

TEST_F(VerifyCommandTest, TakesTheFirstAndTheLastFrameIntoASample) {
    removeFromIndex(20); // then there is no frame 24
    const ProgramResult result = runProgram({"verify", clip, "--index", index, "--samples", "2"});
    EXPECT_THAT(result.out, HasSubstr("reverse:  1 of 2 frames agree\n  frame 24: "));
}

TEST_F(VerifyCommandTest, QuietTellsByTheExitCodeAlone) {
    removeFromIndex(20);
    const ProgramResult result = runProgram({"verify", clip, "--index", index, "--quiet"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out + result.err, "");
}

} // namespace
