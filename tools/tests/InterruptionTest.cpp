#include "ProgramRun.h"
#include "support/ByteEdits.h"
#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace tio::test;

namespace fs = std::filesystem;

namespace {

constexpr auto moment = std::chrono::microseconds(200);

/// A folder into which the program writes pictures large enough to catch it at it.
class Interruption : public testing::Test {
protected:
    void makeLargeClip() {
        ClipPlan plan;
        plan.width = 3840;
        plan.height = 2160;
        plan.frameCount = 20;
        plan.encoderOptions = {{"preset", "ultrafast"}};
        makeClip(clip, plan);
    }

    [[nodiscard]] bool holdsPartialFile() const {
        for (const auto& entry : fs::directory_iterator(frames)) {
            // Not while it is empty: it is removed then, and made again by what writes into it.
            std::error_code gone;
            if (entry.path().extension() == ".part" && fs::file_size(entry, gone) > 0 && !gone)
                return true;
        }
        return false;
    }

    /// Stops the program in the middle of writing a file.
    /// @returns false when it came to its end before that
    bool catchWriting(RunningProgram& program) const {
        while (!program.hasEnded()) {
            std::this_thread::sleep_for(moment);
            if (!holdsPartialFile())
                continue;
            program.send(SIGSTOP);
            std::this_thread::sleep_for(10 * moment); // a stop is not immediate
            if (holdsPartialFile())
                return true;
            program.send(SIGCONT);
        }
        return false;
    }

    TemporaryFolder folder;
    std::string clip = folder.file("clip.mp4");
    std::string frames = folder.file("frames");
};

class InterruptionTest : public Interruption, public testing::WithParamInterface<int> {};

TEST_P(InterruptionTest, RemovesTheFileThatIsBeingWritten) {
    makeLargeClip();
    fs::create_directory(frames);
    RunningProgram program({"frames", clip, "-o", frames, "--format", "ppm"});
    ASSERT_TRUE(catchWriting(program));
    program.send(GetParam());
    program.send(SIGCONT);
    EXPECT_EQ(program.result().exitCode, 128 + GetParam());
    const auto wholeFile = std::string("P6\n3840 2160\n255\n").size() + size_t{3} * 3840 * 2160;
    for (const auto& entry : fs::directory_iterator(frames)) {
        EXPECT_EQ(entry.path().extension(), ".ppm");
        EXPECT_EQ(entry.file_size(), wholeFile) << entry.path();
    }
}

TEST_P(InterruptionTest, EndsAReadThatIsStuck) {
    const std::string pipe = folder.file("clip.ts");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    RunningProgram program({"frames", pipe, "-o", frames});
    const int writer = ::open(pipe.c_str(), O_WRONLY); // returns when the program reads
    ASSERT_GE(writer, 0);
    program.send(GetParam());
    EXPECT_EQ(program.result().exitCode, 128 + GetParam());
    ::close(writer);
}

// Nobody can clear up after that, but what was there before has to be there still.
TEST_F(Interruption, ByAKillLeavesTheOldFileAndAPartBesideIt) {
    makeLargeClip();
    fs::create_directory(frames);
    const std::string out = frames + "/out.mp4";
    const std::vector<uint8_t> before = {1, 2, 3};
    writeBytes(out, before);
    RunningProgram program({"transcode", clip, out});
    ASSERT_TRUE(catchWriting(program));
    program.send(SIGKILL);
    EXPECT_EQ(program.result().exitCode, 128 + SIGKILL);
    EXPECT_EQ(readBytes(out), before);
    EXPECT_TRUE(holdsPartialFile());
}

INSTANTIATE_TEST_SUITE_P(Signals, InterruptionTest, testing::Values(SIGINT, SIGTERM, SIGHUP));

} // namespace
