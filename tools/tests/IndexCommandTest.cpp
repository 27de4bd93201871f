#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Oracle.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace tio::test;
using testing::StartsWith;

namespace fs = std::filesystem;

namespace {

class IndexCommandTest : public testing::Test {
protected:
    void SetUp() override { makeClip(clip, {}); }

    TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
    std::string index = folder.file("clip.index");
};

std::vector<int64_t> numbersIn(const std::string& path) {
    const std::vector<uint8_t> bytes = readBytes(path);
    std::vector<int64_t> numbers(bytes.size() / sizeof(int64_t));
    std::memcpy(numbers.data(), bytes.data(), numbers.size() * sizeof(int64_t));
    return numbers;
}

TEST_F(IndexCommandTest, StoresTheTimesOfAllFrames) {
    std::vector<int64_t> expected;
    for (const OraclePacket& packet : oraclePackets(clip))
        expected.push_back(packet.pts);
    std::sort(expected.begin(), expected.end());
    ASSERT_EQ(runProgram({"index", clip, "-o", index}).exitCode, 0);
    std::vector<int64_t> stored = numbersIn(index);
    stored.erase(stored.begin()); // the first number is no time
    EXPECT_EQ(stored, expected);
}

TEST_F(IndexCommandTest, PrintsTheFrameCount) {
    EXPECT_EQ(runProgram({"index", clip, "-o", index}).out, index + ": 25 frames\n");
}

TEST_F(IndexCommandTest, StoresAnIndexWithChecksums) {
    EXPECT_EQ(runProgram({"index", clip, "-o", index, "--checksums"}).out,
              index + ": 25 frames with checksums\n");
    const std::string verified = runProgram({"verify", clip, "--reader", "--index", index}).out;
    EXPECT_THAT(verified, testing::HasSubstr("reader:   50 frames proven by checksum\n"));
}

TEST_F(IndexCommandTest, SaysThatAFrameIndexCannotBeWritten) {
    const std::string missing = folder.file("none/clip.index");
    const ProgramResult result = runProgram({"index", clip, "-o", missing, "--frames"});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.err, StartsWith("tarn-videoio: " + missing + ": "));
}

TEST_F(IndexCommandTest, WritesWhatVerifyAgreesWith) {
    ASSERT_EQ(runProgram({"index", clip, "-o", index}).exitCode, 0);
    EXPECT_EQ(runProgram({"verify", clip, "--index", index}).exitCode, 0);
}

TEST_F(IndexCommandTest, WritesIntoAPipe) {
    const std::string pipe = folder.file("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_EQ(runProgram({"index", clip, "-o", index}).exitCode, 0);
    ASSERT_EQ(runProgram({"index", clip, "-o", pipe}).exitCode, 0);
    std::vector<uint8_t> piped(readBytes(index).size() + 1);
    piped.resize(
        static_cast<size_t>(std::max<ssize_t>(0, ::read(reader, piped.data(), piped.size()))));
    EXPECT_EQ(piped, readBytes(index));
    ::close(reader);
}

// Standard output may be a file that has a name, and must not lose it to another.
TEST_F(IndexCommandTest, WritesIntoStandardOutput) {
    const std::string redirected = folder.file("redirected");
    writeBytes(redirected, {});
    ProgramSetup setup;
    setup.standardOutput = redirected;
    ASSERT_EQ(runProgram({"index", clip, "-o", index}).exitCode, 0);
    ASSERT_EQ(runProgram({"index", clip, "-o", "/dev/stdout", "--quiet"}, setup).exitCode, 0);
    EXPECT_EQ(readBytes(redirected), readBytes(index));
    EXPECT_TRUE(fs::is_symlink("/dev/stdout"));
}

TEST_F(IndexCommandTest, WritesBehindALink) {
    const std::string link = folder.file("link");
    fs::create_directory(folder.path() / "elsewhere");
    writeBytes(folder.file("elsewhere/old"), {});
    fs::create_symlink("elsewhere/old", link);
    ASSERT_EQ(runProgram({"index", clip, "-o", link}).exitCode, 0);
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(numbersIn(folder.file("elsewhere/old")).size(), 26);
}

TEST_F(IndexCommandTest, PointsToTheOtherIndexWhereFramesHaveNoTime) {
    ClipPlan plan;
    plan.format = "h264";
    const std::string raw = folder.file("clip.h264");
    makeClip(raw, plan);
    const ProgramResult result = runProgram({"index", raw, "-o", index});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err,
              "tarn-videoio: " + raw +
                  ": no index can be stored: frames have no time, or times do not rise; "
                  "index --frames stores one of any clip\n");
    EXPECT_EQ(runProgram({"index", raw, "-o", index, "--frames"}).exitCode, 0);
    EXPECT_THAT(runProgram({"verify", raw}).err, testing::HasSubstr("verify --reader checks"));
}

TEST_F(IndexCommandTest, OfFramesIsNotForBareSeeking) {
    ASSERT_EQ(runProgram({"index", clip, "-o", index, "--frames"}).exitCode, 0);
    const ProgramResult result = runProgram({"verify", clip, "--index", index});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err,
              "tarn-videoio: " + index + ": an index of index --frames is for verify --reader\n");
}

TEST_F(IndexCommandTest, RefusesAClipInWhichFramesShareATime) {
    ClipPlan plan;
    plan.encoder = "mjpeg";
    plan.pixelFormat = "yuvj420p";
    Track track = encodeVideo(plan);
    track.packets.at(7).pts = track.packets.at(9).pts;
    const std::string twins = folder.file("twins.mkv");
    writePackets(twins, "matroska", {track});
    const ProgramResult result = runProgram({"index", twins, "-o", index});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.err, StartsWith("tarn-videoio: " + twins + ": no index can be stored"));
    EXPECT_FALSE(fs::exists(index));
}

} // namespace
