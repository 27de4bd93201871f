// Any bytes as a media file: it is opened, asked everything, decoded, indexed and sought in.
// Exceptions are what a bad file should give; crashes, hangs and leaks are findings.

#include "MemoryFile.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio.h>

#include <cstdint>
#include <memory>

namespace {

using namespace tio::ffmpeg;

constexpr int64_t mostFrames = 20; // enough to get through a group of pictures

void askEverything(InputFormatContext& input) {
    for (int i = 0; i < input.getStreamCount(); ++i) {
        int width = 0;
        int height = 0;
        input.getResolutionOfStream(i, width, height);
        (void)input.getDurationOfStream(i);
        (void)input.getCodecOfStream(i);
        (void)getStreamRotation(input.getStream(i));
    }
    (void)input.getContainerFormat();
    (void)input.hasAudioStream();
}

void readSome(VideoStreamDecoder& decoder) {
    for (int64_t i = 0; i < mostFrames && decoder.readNextFrame().frame; ++i) {
    }
}

void walkThrough(const std::string& path, PixelFormat format) {
    // With options, because without them an input that cannot be analysed stays open: known, and
    // every other leak would be lost among those.
    auto input = std::make_shared<InputFormatContext>(path, OpenOptions{});
    askEverything(*input);
    VideoStreamDecoder decoder(input, format);
    (void)decoder.getFrameSize();
    readSome(decoder);
    const int64_t count = decoder.getFrameCount();
    decoder.seek(count / 2);
    readSome(decoder);
    decoder.seek(0);
    readSome(decoder);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    const tio::fuzz::MemoryFile file(bytes, count);
    for (const auto format : {PixelFormat::RGB, PixelFormat::NV12}) {
        try {
            walkThrough(file.path(), format);
        } catch (const tio::Exception&) {
        }
    }
    return 0;
}
