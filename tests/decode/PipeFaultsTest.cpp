#include "FaultsFixture.h"
#include "support/ByteEdits.h"
#include "support/ChildProcess.h"
#include "support/ClipMaker.h"
#include "support/Expectations.h"
#include "support/Muxing.h"
#include "support/Oracle.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FrameIndex.h>
#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/InputStream.h>
#include <TARN/videoio/VideoStreamDecoder.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace tio::ffmpeg {
namespace {

using test::ChildProcess;
using test::FaultsTest;
using test::ffmpegText;
using ::testing::HasSubstr;

class PipeTest : public FaultsTest {
protected:
    void SetUp() override {
        std::signal(SIGPIPE, SIG_IGN); // the writer may find nobody at the other end
        test::ClipPlan plan;
        plan.format = "mpegts";
        plan.frameCount = 60;
        plan.muxerOptions = {{"muxrate", "3000000"}}; // bits a second, filled up
        test::makeClip(clip, plan);
        bytes = test::readBytes(clip);
        ASSERT_GT(bytes.size(), 200000u) << "more than a pipe holds";
        ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    }
    void TearDown() override {
        if (writer.joinable())
            writer.join();
        std::signal(SIGPIPE, SIG_DFL);
    }

    /// Has so many bytes of the clip written into the pipe, whose writer then goes.
    void write(size_t count) {
        writer = std::thread([this, count] {
            const int file = ::open(pipe.c_str(), O_WRONLY | O_CLOEXEC); // waits for a reader
            size_t done = 0;
            while (done < count) {
                const ssize_t now = ::write(file, bytes.data() + done, count - done);
                if (now <= 0)
                    break;
                done += static_cast<size_t>(now);
            }
            ::close(file);
        });
    }

    std::string clip = folder.file("clip.ts");
    std::string pipe = folder.file("pipe.ts");
    std::vector<uint8_t> bytes;
    std::thread writer;
};

TEST_F(PipeTest, APipeWhoseWriterGoesGivesThePicturesThatCameThrough) {
    const size_t half = bytes.size() / 2;
    write(half);
    const auto source = std::make_shared<InputFormatContext>(pipe);
    VideoStreamDecoder decoder(source, PixelFormat::RGB);
    std::vector<Rational> times;
    for (auto frame = decoder.readNextFrame(); frame.frame; frame = decoder.readNextFrame())
        times.push_back(frame.timestamp);
    EXPECT_EQ(source->getEndReason().kind, EndReason::Kind::EndOfStream);
    test::truncateFile(clip, half);
    test::OracleOptions options;
    options.skipDamaged = true; // the last packet is a part of one
    const auto expected = test::oracleFrames(clip, options);
    ASSERT_GT(expected.size(), 10u);
    ASSERT_EQ(times.size(), expected.size());
    for (size_t i = 0; i < times.size(); ++i)
        EXPECT_EQ(times[i], Rational(expected[i].time().numerator, expected[i].time().denominator));
}

TEST_F(PipeTest, APipeWithoutAByteIsNoClip) {
    write(0);
    EXPECT_EQ(test::thrownText<Exception>([this] { InputFormatContext{pipe}; }), invalidData(pipe));
}

// FFmpeg goes back in a pipe as far as it has it in memory.
TEST_F(PipeTest, FramesOfAPipeAreCountedRightOrNotAtAll) {
    write(bytes.size());
    InputStream stream(std::make_shared<InputFormatContext>(pipe), 0);
    while (stream.getNextPacket() != nullptr)
        continue;
    try {
        EXPECT_EQ(stream.getFrameCount(), 60);
    } catch (const Exception& failure) {
        EXPECT_THAT(failure.what(), HasSubstr(": Seeking"));
    }
}

// Opening it again would wait for another writer, for ever if there is none.
TEST_F(PipeTest, FramesOfAPipeAreNotToBeHadByNumber) {
    write(bytes.size());
    const auto source = std::make_shared<InputFormatContext>(pipe);
    const std::string refusal = "\"" + pipe + "\" is a pipe, which cannot be opened once more";
    EXPECT_EQ(test::thrownText<tio::Exception>([&] { FrameReader(source, PixelFormat::RGB); }),
              refusal);
    EXPECT_EQ(
        test::thrownText<tio::Exception>([&] { static_cast<void>(FrameIndex::build(source)); }),
        refusal);
    EXPECT_TRUE(log.contains("root", 4, refusal));
}

// MP4 is completed at its beginning, which FFmpeg knows to be impossible before anything is
// written: nobody is killed by a pipe that no one reads.
TEST_F(PipeTest, APipeIsNoOutput) {
    const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    ChildProcess child([&]() -> std::string {
        std::signal(SIGPIPE, SIG_DFL);
        const auto output = std::make_shared<OutputFormatContext>(pipe);
        const auto parameters = test::videoParameters();
        output->addExpectedStream();
        try {
            output->addStream(parameters.get());
        } catch (const Exception& failure) {
            return failure.what();
        }
        return "opened";
    });
    EXPECT_EQ(child.text(),
              ffmpegText(AVERROR(EINVAL)) + test::placeText("OutputFormatContext", 56));
    EXPECT_EQ(child.signal(), 0);
    ::close(reader);
}

} // namespace
} // namespace tio::ffmpeg
