#include "PpmFile.h"
#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/Oracle.h"
#include "support/SoundMaker.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/FrameReader.h>

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace tio::test;
using testing::HasSubstr;

namespace fs = std::filesystem;

namespace {

/// How often `work` opens a file.
int openingsOf(const std::string& path, const std::function<void()>& work) {
    const int events = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    // With the reading between two openings, which would otherwise be told as one.
    EXPECT_GE(::inotify_add_watch(events, path.c_str(), IN_OPEN | IN_ACCESS), 0);
    work();
    int openings = 0;
    alignas(inotify_event) std::array<char, 65536> block;
    for (ssize_t size; (size = ::read(events, block.data(), block.size())) > 0;) {
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(block.data() + at);
            openings += (event->mask & IN_OPEN) != 0 ? 1 : 0;
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
    }
    ::close(events);
    return openings;
}

/// What comes through a named pipe while it lives.
class PipedClip {
public:
    PipedClip(const std::string& clip, std::string name) : path(std::move(name)) {
        EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
        const auto bytes = readBytes(clip);
        writer = std::thread([this, bytes] {
            const int pipe = ::open(path.c_str(), O_WRONLY);
            for (size_t at = 0; at < bytes.size();) {
                const ssize_t size = ::write(pipe, bytes.data() + at, bytes.size() - at);
                if (size < 0)
                    break; // the reader has had enough
                at += static_cast<size_t>(size);
            }
            ::close(pipe);
        });
    }
    ~PipedClip() { writer.join(); }
    PipedClip(const PipedClip&) = delete;
    PipedClip& operator=(const PipedClip&) = delete;

    std::string path;

private:
    std::thread writer;
};

class FrameNumbersTest : public testing::Test {
protected:
    static ClipPlan transportStream() {
        ClipPlan plan;
        plan.format = "mpegts";
        plan.frameCount = 50;
        return plan;
    }

    ProgramResult take(const std::string& from, const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments = {"frames", from, "-o", frames, "--format", "ppm"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runProgram(arguments);
    }

    [[nodiscard]] int fileCount() const {
        int count = 0;
        for ([[maybe_unused]] const auto& entry : fs::directory_iterator(frames))
            ++count;
        return count;
    }

    TemporaryFolder folder;
    std::string clip = folder.file("clip.ts");
    std::string frames = folder.file("frames");
};

/// A transport stream joined to itself, whose times begin again in the middle.
class JoinedClipTest : public FrameNumbersTest {
protected:
    void SetUp() override {
        makeClip(clip, transportStream());
        std::vector<uint8_t> bytes = readBytes(clip);
        const std::vector<uint8_t> once = bytes;
        bytes.insert(bytes.end(), once.begin(), once.end());
        writeBytes(joined, bytes);
    }

    std::string joined = folder.file("joined.ts");
};

TEST_F(JoinedClipTest, HasAsManyFramesForEveryCommand) {
    EXPECT_THAT(runProgram({"info", joined, "--count"}).out, HasSubstr("frames        100\n"));
    ASSERT_EQ(take(joined).exitCode, 0);
    EXPECT_EQ(fileCount(), 100);
    EXPECT_THAT(runProgram({"verify", joined, "--reader"}).out,
                HasSubstr("forward:  100 frames read\n"));
}

TEST_F(JoinedClipTest, GivesTheSamePictureWithAnIndexAndWithout) {
    const std::string index = folder.file("joined.index");
    ASSERT_EQ(runProgram({"index", joined, "-o", index, "--frames"}).exitCode, 0);
    for (const std::vector<std::string>& more : {std::vector<std::string>(), {"--index", index}}) {
        ASSERT_EQ(take(joined, more).exitCode, 0);
        EXPECT_EQ(fileCount(), 100);
        EXPECT_EQ(pictureNumberIn(frames + "/frame-000060.ppm"), 10);
        fs::remove_all(frames);
    }
    frames = folder.file("picture.ppm");
    ASSERT_EQ(take(joined, {"--frame", "60"}).exitCode, 0);
    EXPECT_EQ(pictureNumberIn(frames), 10);
}

TEST_F(JoinedClipTest, IsEncodedWholeWithTimesThatGoOn) {
    const std::string out = folder.file("out.mp4");
    const ProgramResult result = runProgram({"transcode", joined, out});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto written = oracleFrames(out);
    ASSERT_EQ(written.size(), 100U);
    for (size_t i = 0; i < written.size(); ++i)
        EXPECT_EQ(written[i].time().numerator * 25,
                  static_cast<int64_t>(i) * written[i].time().denominator)
            << i;
}

TEST_F(JoinedClipTest, KeepsItsSoundWhenItIsEncoded) {
    ClipPlan plan = transportStream();
    plan.audio = true;
    makeClip(clip, plan);
    std::vector<uint8_t> bytes = readBytes(clip);
    const std::vector<uint8_t> once = bytes;
    bytes.insert(bytes.end(), once.begin(), once.end());
    writeBytes(joined, bytes);
    const std::string out = folder.file("out.mkv");
    const ProgramResult result = runProgram({"transcode", joined, out, "--audio-codec", "flac"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto all = static_cast<double>(oracleSound(joined).count());
    EXPECT_NEAR(static_cast<double>(oracleSound(out).count()), all, 0.1 * 48000);
}

// One more than a reader needs: to look at what the clip says of itself.
TEST_F(FrameNumbersTest, FramesAtTimesCostOneOpeningMoreThanAReader) {
    makeClip(clip, transportStream());
    const int needed = openingsOf(clip, [this] {
        tio::ffmpeg::FrameReader reader(clip);
        reader.readFrames({0, 12}, [](const auto&) { return true; });
    });
    ASSERT_GE(needed, 1);
    const int opened = openingsOf(clip, [this] {
        EXPECT_EQ(take(clip, {"--times", "1.5,2"}).exitCode, 0);
    });
    EXPECT_EQ(opened, needed + 1);
}

TEST_F(FrameNumbersTest, FramesOfAPipeAreThoseOfTheFile) {
    makeClip(clip, transportStream());
    const PipedClip pipe(clip, folder.file("pipe.ts"));
    const ProgramResult result = take(pipe.path, {"--from", "45", "--to", "50"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_THAT(result.err, HasSubstr("there is no frame 50: frames run from 0 to 49"));
    EXPECT_FALSE(fs::exists(frames));
}

TEST_F(JoinedClipTest, HasAllItsFramesWhenItComesThroughAPipe) {
    const PipedClip pipe(joined, folder.file("pipe.ts"));
    ASSERT_EQ(take(pipe.path).exitCode, 0);
    EXPECT_EQ(fileCount(), 100);
    EXPECT_EQ(pictureNumberIn(frames + "/frame-000060.ppm"), 10);
}

TEST_F(FrameNumbersTest, InfoCountsThePicturesOfAPipe) {
    makeClip(clip, transportStream());
    const PipedClip pipe(clip, folder.file("pipe.ts"));
    EXPECT_THAT(runProgram({"info", pipe.path, "--count"}).out, HasSubstr("frames        50\n"));
}

TEST_F(FrameNumbersTest, InfoTakesTheCountFromAnIndexThatKnowsItsClip) {
    makeClip(clip, transportStream());
    const std::string index = folder.file("clip.index");
    ASSERT_EQ(runProgram({"index", clip, "-o", index, "--frames"}).exitCode, 0);
    EXPECT_THAT(runProgram({"info", clip, "--index", index}).out, HasSubstr("frames        50\n"));
}

class PipeTest : public FrameNumbersTest,
                 public testing::WithParamInterface<std::vector<std::string>> {};

TEST_P(PipeTest, ServesAsAFileDoes) {
    makeClip(clip, transportStream());
    std::vector<std::string> arguments = GetParam();
    for (std::string& word : arguments)
        word = word == "OUT.png" ? folder.file("out.png")
               : word == "OUT"   ? folder.file("out")
                                 : word;
    arguments.insert(arguments.begin() + 1, clip);
    const std::string expected = runProgram(arguments).out;
    const PipedClip pipe(clip, folder.file("pipe.ts"));
    arguments[1] = pipe.path;
    const ProgramResult result = runProgram(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, PipeTest,
    testing::Values(std::vector<std::string>{"sheet", "-o", "OUT.png"},
                    std::vector<std::string>{"verify", "--reader"},
                    std::vector<std::string>{"frames", "-o", "OUT", "--times", "1"},
                    std::vector<std::string>{"index", "-o", "OUT", "--frames"}));

class OnceOnlyTest : public testing::TestWithParam<std::vector<std::string>> {};

// Before it is opened: there is nobody at the other end.
TEST_P(OnceOnlyTest, RefusesALiveSource) {
    const std::string url = "tcp://127.0.0.1:9";
    std::vector<std::string> arguments = GetParam();
    arguments.insert(arguments.begin() + 1, url);
    const ProgramResult result = runProgram(arguments);
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err, "tarn-videoio: " + url +
                              ": this needs a clip that can be read more than once, such as a "
                              "file or a pipe\n");
}

INSTANTIATE_TEST_SUITE_P(Commands, OnceOnlyTest,
                         testing::Values(std::vector<std::string>{"sheet", "-o", "/dev/null.png"},
                                         std::vector<std::string>{"verify"},
                                         std::vector<std::string>{"frames", "-o", "/tmp", "--times",
                                                                  "1"}));

} // namespace
