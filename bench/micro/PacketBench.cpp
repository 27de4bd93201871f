// What is done to each packet: wrapping it, scanning for the index, splitting it into units, and
// turning the samples of a block into floats.

#include "BenchClip.h"
#include "support/Ffmpeg.h"
#include "support/TemporaryFolder.h"

#include <TARN/videoio.h>

#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace tio::bench {
namespace {

using namespace ffmpeg;

struct CloseFormat {
    void operator()(AVFormatContext* context) const noexcept { avformat_free_context(context); }
};

/// A stream that belongs to no file, and a packet of it.
class LooseStream {
public:
    LooseStream(AVCodecID codec, int packetBytes)
        : format(test::checkFound(avformat_alloc_context(), "format")),
          stream(test::checkFound(avformat_new_stream(format.get(), nullptr), "stream")),
          packet(test::checkFound(av_packet_alloc(), "packet")) {
        stream->time_base = {1, 48000};
        stream->codecpar->codec_id = codec;
        stream->codecpar->codec_type = avcodec_get_type(codec);
        test::check(av_new_packet(packet.get(), packetBytes), "packet");
        std::fill_n(packet->data, packetBytes, uint8_t{0x3C});
        packet->pts = packet->dts = 0;
    }

    std::unique_ptr<AVFormatContext, CloseFormat> format;
    AVStream* stream;
    test::PacketPointer packet;
};

void wrapPacket(benchmark::State& state) {
    const LooseStream loose(AV_CODEC_ID_H264, 10000);
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(
            std::make_shared<InputPacket>(loose.packet.get(), loose.stream).get());
}

// FFmpeg's decoders of uncompressed sound do next to nothing, so that what remains is ours.
void convertSamples(benchmark::State& state, AVCodecID codec, int sampleBytes) {
    constexpr int channels = 2;
    constexpr int samples = 1024;
    LooseStream loose(codec, samples * channels * sampleBytes);
    loose.stream->codecpar->sample_rate = 48000;
    av_channel_layout_default(&loose.stream->codecpar->ch_layout, channels);
    AudioPacketDecoder decoder;
    const auto packet = std::make_shared<InputPacket>(loose.packet.get(), loose.stream);
    int64_t converted = 0;
    for ([[maybe_unused]] auto _ : state) {
        packet->getPacket().pts = converted; // a block of no later time is dropped
        decoder.offerPacket(packet);
        converted += decoder.readNextFrame().samples.rows();
    }
    state.SetItemsProcessed(converted);
}

void scanIndex(benchmark::State& state) {
    int64_t frames = 0;
    for ([[maybe_unused]] auto _ : state) {
        state.PauseTiming();
        auto video = std::make_unique<VideoStreamDecoder>(
            std::make_shared<InputFormatContext>(clip()), ffmpeg::PixelFormat::RGB);
        state.ResumeTiming();
        frames += video->getFrameCount();
        state.PauseTiming();
        video.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(frames);
}

// An hour and more at 25 frames a second, of which the clip itself has only the first few.
void loadIndex(benchmark::State& state) {
    const test::TemporaryFolder folder;
    const std::string path = folder.file("index");
    constexpr int64_t frames = 100000;
    std::vector<int64_t> numbers{0};
    for (int64_t frame = 0; frame < frames; ++frame)
        numbers.push_back(frame * 3600);
    std::FILE* const file = test::checkFound(std::fopen(path.c_str(), "wb"), "index file");
    std::fwrite(numbers.data(), sizeof(int64_t), numbers.size(), file);
    std::fclose(file);
    VideoStreamDecoder video(std::make_shared<InputFormatContext>(clip()),
                             ffmpeg::PixelFormat::RGB);
    for ([[maybe_unused]] auto _ : state)
        video.loadSeekingIndex(path);
    state.SetItemsProcessed(frames * static_cast<int64_t>(state.iterations()));
}

void splitUnits(benchmark::State& state) {
    std::vector<uint8_t> bytes;
    for (int unit = 0; unit < 100; ++unit) {
        bytes.insert(bytes.end(), {0, 0, 0, 1, 0x41});
        for (uint32_t i = 0; i < 10000; ++i)
            bytes.push_back(static_cast<uint8_t>((i * 2654435761U) >> 24));
    }
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(videolib::helper::extract_all_nals(
            bytes.data(), bytes.size(), [](size_t, std::vector<unsigned char>&) {}));
    state.SetBytesProcessed(static_cast<int64_t>(bytes.size()) *
                            static_cast<int64_t>(state.iterations()));
}

BENCHMARK(wrapPacket);
BENCHMARK_CAPTURE(convertSamples, u8, AV_CODEC_ID_PCM_U8, 1);
BENCHMARK_CAPTURE(convertSamples, s16, AV_CODEC_ID_PCM_S16LE, 2);
BENCHMARK_CAPTURE(convertSamples, s16p, AV_CODEC_ID_PCM_S16LE_PLANAR, 2);
BENCHMARK_CAPTURE(convertSamples, s32, AV_CODEC_ID_PCM_S32LE, 4);
BENCHMARK_CAPTURE(convertSamples, s32p, AV_CODEC_ID_PCM_S32LE_PLANAR, 4);
BENCHMARK_CAPTURE(convertSamples, flt, AV_CODEC_ID_PCM_F32LE, 4);
BENCHMARK_CAPTURE(convertSamples, dbl, AV_CODEC_ID_PCM_F64LE, 8);
BENCHMARK(scanIndex)->Unit(benchmark::kMillisecond);
BENCHMARK(loadIndex)->Unit(benchmark::kMillisecond);
BENCHMARK(splitUnits)->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace tio::bench
