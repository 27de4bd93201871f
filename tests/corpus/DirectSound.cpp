#include "Direct.h"
#include "ffmpeg_compat.h"
#include "support/Oracle.h"

#include <cstring>
#include <functional>
#include <thread>

namespace tio::survey {

namespace {

/// Reads sample `number` of memory that holds samples of one format, and scales it.
template <typename Sample>
float read(const uint8_t* memory, int number, double scale) {
    Sample sample;
    std::memcpy(&sample, memory + sizeof sample * static_cast<std::size_t>(number), sizeof sample);
    return static_cast<float>(static_cast<float>(sample) * static_cast<float>(scale));
}

float readSample(AVSampleFormat packed, const uint8_t* memory, int number) {
    switch (packed) {
    case AV_SAMPLE_FMT_U8:
        return read<uint8_t>(memory, number, 1.0F / 255.0F);
    case AV_SAMPLE_FMT_S16:
        return read<int16_t>(memory, number, 1.0 / 32768);
    case AV_SAMPLE_FMT_S32:
        return read<int32_t>(memory, number, 1.0 / 2147483648);
    case AV_SAMPLE_FMT_FLT:
        return read<float>(memory, number, 1);
    case AV_SAMPLE_FMT_DBL:
        return read<double>(memory, number, 1);
    default:
        throw std::runtime_error("direct: no such samples");
    }
}

std::vector<float> samplesOf(const AVFrame& frame) {
    const auto format = static_cast<AVSampleFormat>(frame.format);
    const bool planar = av_sample_fmt_is_planar(format) != 0;
    const int channels = ffmpeg::compat::channelCount(frame);
    std::vector<float> samples;
    for (int row = 0; row < frame.nb_samples; ++row) {
        for (int column = 0; column < channels; ++column)
            samples.push_back(readSample(av_get_packed_sample_fmt(format),
                                         frame.extended_data[planar ? column : 0],
                                         planar ? row : row * channels + column));
    }
    return samples;
}

/// Decodes the best stream of sound, and goes on whatever the decoder fails at.
class SoundTeller {
public:
    SoundTeller(const std::string& path, Facts& told) : input(openDirectly(path)), facts(told) {
        index = bestStream(*input, AVMEDIA_TYPE_AUDIO);
    }

    void tell() {
        const test::PacketPointer packet(test::checkFound(av_packet_alloc(), "packet"));
        while (av_read_frame(input.get(), packet.get()) >= 0) {
            if (packet->stream_index == index && packet->size != 0)
                decode(packet.get());
            av_packet_unref(packet.get());
        }
        if (decoder)
            decode(nullptr);
    }

private:
    void open() {
        const AVStream& stream = *input->streams[index];
        const AVCodec* codec =
            test::checkFound(avcodec_find_decoder(stream.codecpar->codec_id), "decoder");
        decoder.reset(test::checkFound(avcodec_alloc_context3(codec), "decoder"));
        test::check(avcodec_parameters_to_context(decoder.get(), stream.codecpar), "parameters");
        decoder->time_base = stream.time_base;
        decoder->pkt_timebase = stream.time_base;
        decoder->thread_count = static_cast<int>(std::thread::hardware_concurrency());
        test::check(avcodec_open2(decoder.get(), codec, nullptr), "opening the decoder");
    }

    // A stream without a packet needs no decoder.
    void decode(const AVPacket* packet) {
        if (!decoder)
            open();
        avcodec_send_packet(decoder.get(), packet);
        const test::FramePointer frame(test::checkFound(av_frame_alloc(), "frame"));
        constexpr int mostFailures = 64;
        for (int failures = 0; failures < mostFailures;) {
            const int result = avcodec_receive_frame(decoder.get(), frame.get());
            if (result == AVERROR(EAGAIN) || result == AVERROR_EOF)
                return;
            if (result < 0)
                ++failures;
            else if (frame->pts > lastPts)
                tellBlock(*frame);
        }
    }

    void tellBlock(const AVFrame& frame) {
        lastPts = frame.pts;
        if (frame.nb_samples != 0)
            facts.push_back(soundLine(timeText(frame.pts, decoder->pkt_timebase), frame.nb_samples,
                                      ffmpeg::compat::channelCount(frame), decoder->sample_rate,
                                      samplesOf(frame).data()));
    }

    test::InputPointer input;
    Facts& facts;
    test::CodecPointer decoder;
    int index = -1;
    int64_t lastPts = AV_NOPTS_VALUE; // the smallest of all
};

} // namespace

void tellSound(const std::string& path, Facts& facts) {
    SoundTeller(path, facts).tell();
}

std::string soundLine(const std::string& time, int rows, int columns, int rate,
                      const float* samples) {
    const auto count = static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns);
    return "time " + time + ", " + std::to_string(rows) + "x" + std::to_string(columns) + " at " +
           std::to_string(rate) + " Hz, samples " +
           std::to_string(
               test::hashOf(reinterpret_cast<const uint8_t*>(samples), count * sizeof(float)));
}

} // namespace tio::survey
