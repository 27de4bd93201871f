#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"
#include "tasks.h"

#include <TARN/videoio.h>

#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

namespace tio::bench {

namespace {

using ffmpeg::FrameReader;
using ffmpeg::InputFormatContext;
using ffmpeg::PixelFormat;
using ffmpeg::Rational;
using ffmpeg::VideoStreamDecoder;

constexpr int64_t frameCount = 250;

bool measure(std::ostream& csv, const std::string& task, int64_t count,
             const std::function<Rational(int64_t frame)>& timeOf) {
    MemoryLog memory(csv, task, count);
    std::mt19937_64 random(1);
    for (int64_t n = 0; n < count; ++n) {
        const auto frame = static_cast<int64_t>(random() % frameCount);
        if (timeOf(frame) != Rational(frame, 25))
            throw std::runtime_error("not the frame asked for");
        memory.stepDone(n + 1);
    }
    return memory.report();
}

} // namespace

bool seekAndRead(std::ostream& csv, int64_t count) {
    const test::TemporaryFolder folder;
    const std::string path = folder.file("clip.mp4");
    test::ClipPlan plan;
    plan.frameCount = frameCount;
    test::makeClip(path, plan);
    const auto input = std::make_shared<InputFormatContext>(path);
    bool flat = true;
    {
        VideoStreamDecoder video(input, PixelFormat::RGB);
        flat &= measure(csv, "seeks of a stream decoder", count, [&](int64_t frame) {
            video.seek(frame);
            return video.readNextFrame().timestamp;
        });
    }
    FrameReader reader(input, PixelFormat::RGB);
    flat &= measure(csv, "seeks of a frame reader", count,
                    [&](int64_t frame) { return reader.readFrame(frame).time; });
    return flat;
}

} // namespace tio::bench
