#include "support/ClipMaker.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio/Exception.h>
#include <TARN/videoio/FrameReader.h>
#include <TARN/videoio/SampleReader.h>
#include <TARN/videoio/Source.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace tio::ffmpeg {
namespace {

/// Readers whose token asks whether `stop` is set.
class ReaderCancellingTest : public ::testing::Test {
protected:
    void SetUp() override {
        options.cancelToken = CancelToken([this] { return stop.load(); });
        test::ClipPlan plan;
        plan.frameCount = 100;
        plan.audio = true;
        test::makeClip(path, plan);
    }

    /// Lets the next question be put at once.
    void answer(bool yes) {
        stop = yes;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }

    /// Stops a call.
    template <typename Call>
    void expectStopped(Call call) {
        answer(true);
        try {
            call();
            ADD_FAILURE() << "not stopped";
        } catch (const Exception& failure) {
            EXPECT_TRUE(failure.isCancelled()) << failure.what();
        }
        answer(false);
    }

    Source fromFile() { return {path, options}; }
    Source fromMemory() {
        std::ifstream file(path, std::ios::binary);
        std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
        return Source::memory(std::move(bytes), "memory", options);
    }

    std::atomic<bool> stop{false};
    OpenOptions options;
    test::TemporaryFolder folder;
    std::string path = folder.file("clip.mp4");
    test::LogCapture log;
};

TEST_F(ReaderCancellingTest, MakingAnIndexIsStopped) {
    const Source clip = fromFile();
    expectStopped([&] { static_cast<void>(FrameIndex::build(clip)); });
    expectStopped([&] { static_cast<void>(SampleIndex::build(clip)); });
    EXPECT_EQ(FrameIndex::build(clip).frameCount(), 100);
}

// Whether the frame lies ahead, in the group of pictures or behind it, or is to be sought.
TEST_F(ReaderCancellingTest, AFrameReaderIsStoppedAndGoesOnExactly) {
    FrameReaderOptions oneThread;
    oneThread.threads = 1;
    for (const Source& clip : {fromFile(), fromMemory()}) {
        FrameReader reader(clip, oneThread);
        for (const int64_t frame : {67, 90, 0, 30}) {
            const Image first = reader.readFrame(frame).image;
            static_cast<void>(reader.readFrame(60));
            expectStopped([&] { static_cast<void>(reader.readFrame(frame)); });
            const auto second = reader.readFrame(frame);
            EXPECT_EQ(second.reached, FrameReader::Reached::Exact) << frame;
            ASSERT_EQ(second.image.byteCount(), first.byteCount());
            const auto bytes = static_cast<size_t>(first.byteCount());
            EXPECT_EQ(std::memcmp(second.image.data(), first.data(), bytes), 0) << frame;
        }
    }
}

TEST_F(ReaderCancellingTest, ASampleReaderIsStoppedAndGoesOnExactly) {
    SampleReader reader(fromFile());
    constexpr int count = 20000;
    const SampleReader::Samples all = reader.readSamples(0, reader.sampleCount());
    for (const int64_t first : {int64_t{0}, reader.sampleCount() / 2}) {
        static_cast<void>(reader.readSamples(reader.sampleCount() - 10, 10));
        expectStopped([&] { static_cast<void>(reader.readSamples(first, count)); });
        const SampleReader::Samples part = reader.readSamples(first, count);
        // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): every bit
        EXPECT_EQ(std::memcmp(part.data(), all.data() + first, count * sizeof(float)), 0) << first;
    }
}

} // namespace
} // namespace tio::ffmpeg
