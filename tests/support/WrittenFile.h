#pragma once

#include "ffmpeg_compat.h"
#include "support/Ffmpeg.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// @file
/// What a finished file holds, by FFmpeg called directly.

namespace tio::test {

struct FilePacket {
    int stream;
    int64_t pts;
    int64_t dts;
    int64_t duration;
    bool key;
    std::vector<uint8_t> data;
};

struct FileStream {
    AVMediaType type;
    AVCodecID codec;
    int profile;
    int width;
    int height;
    int sampleRate;
    int channels;
    AVRational timeBase;
    int64_t start;
    int64_t duration; ///< in ticks of the time base
    int64_t frames;   ///< as the container counts them
};

struct FileContents {
    std::string format; ///< FFmpeg's name of the demuxer
    std::vector<FileStream> streams;
    std::vector<FilePacket> packets; ///< in the order of the file

    /// Index of the only stream of its kind.
    [[nodiscard]] int find(AVMediaType type) const {
        for (std::size_t i = 0; i < streams.size(); ++i) {
            if (streams[i].type == type)
                return static_cast<int>(i);
        }
        throw std::runtime_error("test media: no such stream in the file");
    }

    [[nodiscard]] std::vector<FilePacket> of(int stream) const {
        std::vector<FilePacket> own;
        for (const FilePacket& packet : packets) {
            if (packet.stream == stream)
                own.push_back(packet);
        }
        return own;
    }

    [[nodiscard]] std::vector<int64_t> ptsOf(int stream) const {
        std::vector<int64_t> times;
        for (const FilePacket& packet : of(stream))
            times.push_back(packet.pts);
        return times;
    }
};

inline InputPointer openInput(const std::string& path) {
    AVFormatContext* opened = nullptr;
    check(avformat_open_input(&opened, path.c_str(), nullptr, nullptr), "opening " + path);
    InputPointer input(opened);
    check(avformat_find_stream_info(opened, nullptr), "stream info of " + path);
    return input;
}

/// Everything but the decoded pictures and sound.
inline FileContents readFile(const std::string& path) {
    const InputPointer input = openInput(path);
    FileContents contents;
    contents.format = input->iformat->name;
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVStream& stream = *input->streams[i];
        const AVCodecParameters& codec = *stream.codecpar;
        contents.streams.push_back({codec.codec_type, codec.codec_id, codec.profile, codec.width,
                                    codec.height, codec.sample_rate,
                                    ffmpeg::compat::channelCount(codec), stream.time_base,
                                    stream.start_time, stream.duration, stream.nb_frames});
    }
    const PacketPointer packet(checkFound(av_packet_alloc(), "packet"));
    while (av_read_frame(input.get(), packet.get()) >= 0) {
        contents.packets.push_back({packet->stream_index,
                                    packet->pts,
                                    packet->dts,
                                    packet->duration,
                                    (packet->flags & AV_PKT_FLAG_KEY) != 0,
                                    {packet->data, packet->data + packet->size}});
        av_packet_unref(packet.get());
    }
    return contents;
}

/// One decoded block of sound; the samples of one instant lie side by side.
struct FileBlock {
    int64_t pts;
    int channels;
    std::vector<float> samples;

    [[nodiscard]] int rows() const { return static_cast<int>(samples.size()) / channels; }
};

/// The sound of a file whose decoder gives planes of floats, as that of AAC does.
class SoundReader {
public:
    explicit SoundReader(const std::string& path) : input(openInput(path)) {
        index = check(av_find_best_stream(input.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0),
                      "sound of " + path);
        const AVStream& stream = *input->streams[index];
        const AVCodec* codec =
            checkFound(avcodec_find_decoder(stream.codecpar->codec_id), "decoder");
        decoder.reset(checkFound(avcodec_alloc_context3(codec), "decoder"));
        check(avcodec_parameters_to_context(decoder.get(), stream.codecpar), "parameters");
        decoder->pkt_timebase = stream.time_base;
        check(avcodec_open2(decoder.get(), codec, nullptr), "opening the decoder");
    }

    std::vector<FileBlock> readAll() {
        const PacketPointer packet(checkFound(av_packet_alloc(), "packet"));
        while (av_read_frame(input.get(), packet.get()) >= 0) {
            if (packet->stream_index == index)
                decode(packet.get());
            av_packet_unref(packet.get());
        }
        decode(nullptr);
        return std::move(blocks);
    }

private:
    void decode(const AVPacket* packet) {
        check(avcodec_send_packet(decoder.get(), packet), "decoding sound");
        const FramePointer frame(checkFound(av_frame_alloc(), "frame"));
        while (avcodec_receive_frame(decoder.get(), frame.get()) >= 0) {
            if (frame->format != AV_SAMPLE_FMT_FLTP)
                throw std::runtime_error("test media: the sound is not in planes of floats");
            FileBlock block{frame->pts, ffmpeg::compat::channelCount(*frame), {}};
            for (int i = 0; i < frame->nb_samples; ++i) {
                for (int c = 0; c < block.channels; ++c)
                    block.samples.push_back(
                        reinterpret_cast<const float*>(frame->extended_data[c])[i]);
            }
            blocks.push_back(std::move(block));
        }
    }

    InputPointer input;
    CodecPointer decoder;
    int index = -1;
    std::vector<FileBlock> blocks;
};

inline std::vector<FileBlock> readSound(const std::string& path) {
    return SoundReader(path).readAll();
}

} // namespace tio::test
