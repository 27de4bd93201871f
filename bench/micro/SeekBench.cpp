// What a seek costs, and what it saves by neither converting nor turning the pictures on its way.

#include "BenchClip.h"

#include <TARN/videoio.h>

#include <benchmark/benchmark.h>
#include <cstdint>
#include <memory>

namespace tio::bench {
namespace {

class Reader {
public:
    explicit Reader(const std::string& path)
        : decoder(std::make_shared<ffmpeg::InputFormatContext>(path), ffmpeg::PixelFormat::RGB),
          count(decoder.getFrameCount()) {}

    // A walk over the clip that is the same in every run and never steps to a neighbour.
    int64_t nextTarget() {
        target = (target + count * 5 / 8 + 1) % count;
        return target;
    }

    ffmpeg::VideoStreamDecoder decoder;

private:
    int64_t count;
    int64_t target = 0;
};

void seekAndRead(benchmark::State& state, const std::string& (*path)()) {
    Reader reader(path());
    for ([[maybe_unused]] auto _ : state) {
        reader.decoder.seek(reader.nextTarget());
        benchmark::DoNotOptimize(reader.decoder.readNextFrame());
    }
}

// The same pictures reached by reading every one on the way, as a caller without seek() would.
void landAndReadOn(benchmark::State& state, const std::string& (*path)()) {
    Reader reader(path());
    for ([[maybe_unused]] auto _ : state) {
        const int64_t wanted = reader.nextTarget();
        for (int64_t n = reader.decoder.seekToOrBefore(wanted); n <= wanted; ++n)
            benchmark::DoNotOptimize(reader.decoder.readNextFrame());
    }
}

BENCHMARK_CAPTURE(seekAndRead, upright, clip)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(landAndReadOn, upright, clip)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(seekAndRead, rotated, rotatedClip)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(landAndReadOn, rotated, rotatedClip)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace
} // namespace tio::bench
