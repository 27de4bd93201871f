// Measures the reading of sound by number beside the plain loop over FFmpeg, each round of both in
// turn, every other round the other way about:
//   tarn_sound_speed CLIP ROUNDS [PART]
// CLIP is of AAC, FLAC or PCM in stereo. PART is one of index, loop,
// vector-loop, blocks, second and nothing, to do only
// that, once, under a counter of instructions; without it everything is measured. Prints
// NAME,TASK,seconds,CPU seconds, one line for each run.

#include "speed.h"
#include "support/Ffmpeg.h"

#include <TARN/videoio.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace tio::bench {
namespace {

using ffmpeg::SampleIndex;
using ffmpeg::SampleReader;
using ffmpeg::SampleReaderOptions;

constexpr int64_t blockSamples = 4096;

/// What the plain loop makes of a frame: floats, the channels of a sample side by side, one by one.
void convertEach(const AVFrame& frame, std::vector<float>& block) {
    const auto samples = static_cast<size_t>(frame.nb_samples);
    constexpr size_t width = 2;
    block.resize(samples * width);
    const auto format = static_cast<AVSampleFormat>(frame.format);
    for (size_t i = 0; i < samples; ++i)
        for (size_t channel = 0; channel < width; ++channel) {
            float& to = block[i * width + channel];
            if (format == AV_SAMPLE_FMT_FLTP)
                to = reinterpret_cast<const float*>(frame.extended_data[channel])[i];
            else if (format == AV_SAMPLE_FMT_S16)
                to = static_cast<float>(
                         reinterpret_cast<const int16_t*>(frame.data[0])[i * width + channel]) *
                     (1.0F / 32768.0F);
            else
                throw std::runtime_error("such samples are not measured");
        }
}

/// The same in loops that the compiler can do in vectors, for two channels, as the clips that are
/// measured have.
void convertTwo(const AVFrame& frame, std::vector<float>& block) {
    const auto samples = static_cast<size_t>(frame.nb_samples);
    block.resize(2 * samples);
    float* to = block.data();
    if (frame.format == AV_SAMPLE_FMT_FLTP) {
        const auto* left = reinterpret_cast<const float*>(frame.extended_data[0]);
        const auto* right = reinterpret_cast<const float*>(frame.extended_data[1]);
        for (size_t i = 0; i < samples; ++i) {
            to[2 * i] = left[i];
            to[2 * i + 1] = right[i];
        }
    } else if (frame.format == AV_SAMPLE_FMT_S16) {
        const auto* from = reinterpret_cast<const int16_t*>(frame.data[0]);
        for (size_t i = 0; i < 2 * samples; ++i)
            to[i] = static_cast<float>(from[i]) * (1.0F / 32768.0F);
    } else {
        throw std::runtime_error("such samples are not measured");
    }
}

/// The plain loop: one packet, one frame and one buffer, used again and again.
template <void convert(const AVFrame&, std::vector<float>&)>
double decodeByLoop(const std::string& path) {
    AVFormatContext* opened = nullptr;
    test::check(avformat_open_input(&opened, path.c_str(), nullptr, nullptr), "opening " + path);
    const test::InputPointer input(opened);
    test::check(avformat_find_stream_info(opened, nullptr), "stream info");
    const int index =
        test::check(av_find_best_stream(opened, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0), "sound");
    const AVStream& stream = *opened->streams[index];
    const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
    const test::CodecPointer decoder(test::checkFound(avcodec_alloc_context3(codec), "decoder"));
    test::check(avcodec_parameters_to_context(decoder.get(), stream.codecpar), "parameters");
    decoder->pkt_timebase = stream.time_base;
    test::check(avcodec_open2(decoder.get(), codec, nullptr), "opening the decoder");
    const test::PacketPointer packet(test::checkFound(av_packet_alloc(), "packet"));
    const test::FramePointer frame(test::checkFound(av_frame_alloc(), "frame"));
    std::vector<float> block;
    double sum = 0;
    for (bool more = true; more;) {
        more = av_read_frame(opened, packet.get()) >= 0;
        if (more && packet->stream_index != index) {
            av_packet_unref(packet.get());
            continue;
        }
        avcodec_send_packet(decoder.get(), more ? packet.get() : nullptr);
        av_packet_unref(packet.get());
        while (avcodec_receive_frame(decoder.get(), frame.get()) == 0) {
            convert(*frame, block);
            sum += double{block.front()};
        }
    }
    return sum;
}

double readBlocks(const std::string& path, const SampleIndex& index, int channels) {
    SampleReaderOptions options;
    options.index = index;
    SampleReader reader(path, options);
    std::vector<float> block(static_cast<size_t>(blockSamples * channels));
    double sum = 0;
    const int64_t total = reader.sampleCount();
    for (int64_t first = 0; first < total; first += blockSamples) {
        reader.readSamples(first, std::min(blockSamples, total - first), block.data());
        sum += double{block.front()};
    }
    return sum;
}

/// A second from a random place, with a new reader: opening the file counts.
double readSecond(const std::string& path, const std::string& stored, std::mt19937_64& random) {
    SampleReaderOptions options;
    options.index = SampleIndex::load(stored);
    SampleReader reader(path, options);
    const auto last =
        static_cast<uint64_t>(std::max<int64_t>(reader.sampleCount() - reader.sampleRate(), 1));
    const auto samples =
        reader.readSamples(static_cast<int64_t>(random() % last), reader.sampleRate());
    return double{samples(0, 0)};
}

/// The same with a reader that is there already.
double readNextSecond(SampleReader& reader, std::mt19937_64& random) {
    const auto last = static_cast<uint64_t>(reader.sampleCount() - reader.sampleRate());
    const auto samples =
        reader.readSamples(static_cast<int64_t>(random() % last), reader.sampleRate());
    return double{samples(0, 0)};
}

/// Everything that is measured of a clip.
class Measurement {
public:
    explicit Measurement(std::string clip) : path(std::move(clip)), stored(path + ".sound-index") {
        const SampleReader reader(path);
        index = reader.index();
        channels = reader.channelCount();
        if (channels != 2)
            throw std::runtime_error("only stereo is measured");
        index->save(stored);
    }
    Measurement(const Measurement&) = delete;
    Measurement& operator=(const Measurement&) = delete;
    ~Measurement() { std::remove(stored.c_str()); }

    void makeIndex() { count += SampleIndex::build(path).sampleCount(); }
    void loop() { sum += decodeByLoop<convertEach>(path); }
    void vectorLoop() { sum += decodeByLoop<convertTwo>(path); }
    void blocks() { sum += readBlocks(path, *index, channels); }
    void second() { sum += readSecond(path, stored, random); }

    void round(int number) {
        const auto ours = [&] { measure("tarn", "blocks", [&] { blocks(); }); };
        const auto theirs = [&] { measure("loop", "blocks", [&] { loop(); }); };
        const auto vectors = [&] { measure("vector-loop", "blocks", [&] { vectorLoop(); }); };
        if (number % 2 == 0) {
            ours();
            theirs();
            vectors();
        } else {
            vectors();
            theirs();
            ours();
        }
        measure("tarn", "index", [&] { makeIndex(); });
        for (int i = 0; i < seconds; ++i)
            measure("tarn", "second", [&] { second(); });
        SampleReaderOptions options;
        options.index = index;
        SampleReader reader(path, options);
        for (int i = 0; i < seconds; ++i)
            measure("tarn", "next-second", [&] { sum += readNextSecond(reader, random); });
    }

    [[nodiscard]] bool part(const std::string& name) {
        if (name == "index")
            makeIndex();
        else if (name == "loop")
            loop();
        else if (name == "vector-loop")
            vectorLoop();
        else if (name == "blocks")
            blocks();
        else if (name == "second")
            second();
        return name == "index" || name == "loop" || name == "vector-loop" || name == "blocks" ||
               name == "second" || name == "nothing";
    }

    /// Keeps the compiler from leaving work out.
    [[nodiscard]] double made() const { return sum + static_cast<double>(count); }

private:
    static constexpr int seconds = 10;
    std::string path;
    std::string stored;
    std::optional<SampleIndex> index;
    int channels = 0;
    std::mt19937_64 random{23};
    double sum = 0;
    int64_t count = 0;
};

} // namespace
} // namespace tio::bench

int main(int argc, char** argv) try {
    if (argc != 3 && argc != 4)
        return 2;
    tio::bench::Measurement measurement(argv[1]);
    bool known = true;
    if (argc == 4)
        known = measurement.part(argv[3]);
    else
        for (int round = 0; round < std::atoi(argv[2]); ++round)
            measurement.round(round);
    std::cerr << measurement.made() << "\n";
    return known ? 0 : 2;
} catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
}
