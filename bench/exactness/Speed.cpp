// Measures the frame reader on the walks that the other readers are measured on:
//   tarn_speed CLIP
// The index is made before; making it is measured on its own.

#include "speed.h"

#include <TARN/videoio.h>

#include <iostream>
#include <memory>

int main(int argc, char** argv) try {
    using namespace tio::ffmpeg;
    if (argc != 2)
        return 2;
    const auto input = std::make_shared<InputFormatContext>(argv[1]);
    FrameReaderOptions options;
    tio::bench::measure("tarn", "index", [&] { options.index = FrameIndex::build(input); });
    const int64_t count = options.index->frameCount();
    const auto ignore = [](const FrameReader::Picture&) { return true; };
    {
        FrameReader reader(input, PixelFormat::RGB, options);
        tio::bench::measure("tarn", "random", [&] {
            for (const int64_t frame : tio::bench::randomFrames(count))
                static_cast<void>(reader.readFrame(frame));
        });
        std::cerr << "random: " << reader.counters().picturesDecoded << " pictures decoded\n";
    }
    {
        FrameReader reader(input, PixelFormat::RGB, options);
        tio::bench::measure("tarn", "random-list",
                            [&] { reader.readFrames(tio::bench::randomFrames(count), ignore); });
    }
    {
        FrameReader reader(input, PixelFormat::RGB, options);
        tio::bench::measure("tarn", "every10", [&] {
            for (const int64_t frame : tio::bench::everyTenth(count))
                static_cast<void>(reader.readFrame(frame));
        });
        std::cerr << "every10: " << reader.counters().picturesDecoded << " pictures decoded\n";
    }
    FrameReader reader(input, PixelFormat::RGB, options);
    tio::bench::measure("tarn", "every10-list",
                        [&] { reader.readFrames(tio::bench::everyTenth(count), ignore); });
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
