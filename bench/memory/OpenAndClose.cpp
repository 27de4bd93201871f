#include "support/ClipMaker.h"
#include "support/TemporaryFolder.h"
#include "tasks.h"

#include <TARN/videoio.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace tio::bench {

namespace {

using ffmpeg::InputFormatContext;
using ffmpeg::OpenOptions;
using ffmpeg::PixelFormat;
using ffmpeg::VideoStreamDecoder;

// One of each family, for each demuxer has memory of its own.
std::vector<std::string> makeClips(const test::TemporaryFolder& folder) {
    std::vector<std::string> paths;
    for (const std::string format : {"mp4", "mov", "matroska", "mpegts"}) {
        test::ClipPlan plan;
        plan.format = format;
        plan.audio = format != "matroska"; // whose muxer grumbles at sound before zero
        plan.rotation = format == "mp4" ? 90 : 0;
        paths.push_back(folder.file("clip." + format));
        test::makeClip(paths.back(), plan);
    }
    return paths;
}

std::shared_ptr<InputFormatContext> open(const std::string& path, bool withOptions) {
    return withOptions ? std::make_shared<InputFormatContext>(path, OpenOptions{})
                       : std::make_shared<InputFormatContext>(path);
}

void readFirst(const std::string& path, int64_t round) {
    VideoStreamDecoder video(open(path, round % 2 == 0), PixelFormat::RGB);
    if (!video.readNextFrame().frame || (round % 10 == 0 && video.getFrameCount() != 25))
        throw std::runtime_error("not the frames of " + path);
}

} // namespace

bool openAndClose(std::ostream& csv, int64_t count) {
    const test::TemporaryFolder folder;
    const std::vector<std::string> clips = makeClips(folder);
    const auto rounds = count / static_cast<int64_t>(clips.size());
    MemoryLog memory(csv, "opens", rounds); // the same clips are open before every look
    for (int64_t round = 0; round < rounds; ++round) {
        for (const std::string& path : clips)
            readFirst(path, round);
        memory.stepDone(round + 1);
    }
    return memory.report();
}

} // namespace tio::bench
