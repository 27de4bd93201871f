// Reading a whole clip: the library beside FFmpeg called directly with the same settings. The ratio
// of the two is what counts; both run in one process, one after the other, again and again.

#include "BenchClip.h"
#include "FfmpegReader.h"

#include <TARN/videoio.h>

#include <benchmark/benchmark.h>
#include <cstdint>
#include <memory>

extern "C" {
#include <libavutil/pixfmt.h>
}

namespace tio::bench {
namespace {

int64_t readAll(ffmpeg::PixelFormat format) {
    auto input = std::make_shared<ffmpeg::InputFormatContext>(clip());
    ffmpeg::VideoStreamDecoder decoder(input, format);
    int64_t frames = 0;
    while (decoder.readNextFrame().frame)
        ++frames;
    return frames;
}

void decodeByLibrary(benchmark::State& state, ffmpeg::PixelFormat format) {
    int64_t frames = 0;
    for ([[maybe_unused]] auto _ : state)
        frames += readAll(format);
    state.SetItemsProcessed(frames);
}

void decodeByFfmpeg(benchmark::State& state, AVPixelFormat format) {
    int64_t frames = 0;
    for ([[maybe_unused]] auto _ : state)
        frames += readAllByFfmpeg(clip(), format);
    state.SetItemsProcessed(frames);
}

BENCHMARK_CAPTURE(decodeByLibrary, rgb, ffmpeg::PixelFormat::RGB)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(decodeByFfmpeg, rgb, AV_PIX_FMT_RGB24)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(decodeByLibrary, nv12, ffmpeg::PixelFormat::NV12)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(decodeByFfmpeg, nv12, AV_PIX_FMT_NV12)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace
} // namespace tio::bench
