#pragma once

#include "support/Ffmpeg.h"
#include "support/WrittenFile.h"

#include <TARN/core/Rational.h>
#include <TARN/videoio/Image.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

/// @file
/// Pictures and sound to be written, and what FFmpeg, called directly, finds in the file.

namespace tio::test {

using Fraction = tio::Rational<1, int64_t>;

inline Fraction secondsOf(int64_t ticks, AVRational timeBase) {
    return Fraction(ticks) * Fraction(timeBase.num, timeBase.den);
}

/// Whether FFmpeg's MP4 can begin a track at any fraction of a second, and not at milliseconds
/// alone; from release 5 on it can. Earlier ones also count the run-in of sound into the file's
/// length.
inline bool beginsAnywhere() {
    const AVOutputFormat* format = av_guess_format("mp4", nullptr, nullptr);
    return av_opt_find(const_cast<AVClass**>(&format->priv_class), "movie_timescale", nullptr, 0,
                       AV_OPT_SEARCH_FAKE_OBJ) != nullptr;
}

/// Smooth enough for lossy codecs, and with another brightness for each number.
inline ffmpeg::Image rgbPicture(int number, int height = 64, int width = 96) {
    ffmpeg::Image picture(ffmpeg::PictureFormat::Rgb8, height, width);
    for (int row = 0; row < height; ++row) {
        uint8_t* pixel = picture.data() + row * picture.stride();
        for (int col = 0; col < width; ++col, pixel += 3) {
            pixel[0] = static_cast<uint8_t>(40 + number * 12 % 160);
            pixel[1] = static_cast<uint8_t>(30 + 150 * row / height);
            pixel[2] = static_cast<uint8_t>(30 + 150 * col / width);
        }
    }
    return picture;
}

/// Any bytes, different in every place.
inline ffmpeg::Image noisePicture(ffmpeg::PictureFormat format, int number, int height, int width) {
    ffmpeg::Image picture(format, height, width);
    uint32_t state = 12345 + 977 * static_cast<uint32_t>(number);
    const bool wide = ffmpeg::bitDepth(format) > 8;
    const uint32_t mask = (1U << ffmpeg::bitDepth(format)) - 1;
    for (int plane = 0; plane < ffmpeg::planeCount(format); ++plane) {
        const ffmpeg::PlaneSize size = ffmpeg::planeSize(format, height, width, plane);
        for (int row = 0; row < size.rows; ++row) {
            uint8_t* bytes = picture.data(plane) + row * picture.stride(plane);
            for (int64_t i = 0; i < size.rowBytes; i += wide ? 2 : 1) {
                state = state * 1664525 + 1013904223;
                const auto value = static_cast<uint16_t>((state >> 12) & mask);
                std::memcpy(bytes + i, &value, wide ? 2 : 1);
            }
        }
    }
    return picture;
}

struct ShownPicture {
    Fraction time; ///< seconds
    FramePointer frame;
};

struct HeardSound {
    int channels = 0;
    int rate = 0;
    Fraction begin;             ///< seconds, of the first sample that is heard
    std::vector<float> samples; ///< those of one time side by side
};

inline float sampleAt(const AVFrame& frame, int channel, int number) {
    const auto format = static_cast<AVSampleFormat>(frame.format);
    const int channels = ffmpeg::compat::channelCount(frame);
    const bool planar = av_sample_fmt_is_planar(format) != 0;
    const uint8_t* plane = frame.extended_data[planar ? channel : 0];
    const int at = planar ? number : number * channels + channel;
    switch (av_get_packed_sample_fmt(format)) {
    case AV_SAMPLE_FMT_FLT:
        return reinterpret_cast<const float*>(plane)[at];
    case AV_SAMPLE_FMT_S32:
        return static_cast<float>(reinterpret_cast<const int32_t*>(plane)[at] / 2147483648.0);
    case AV_SAMPLE_FMT_S16:
        return static_cast<float>(reinterpret_cast<const int16_t*>(plane)[at] / 32768.0);
    default:
        throw std::runtime_error("test media: unknown samples");
    }
}

/// Decodes one stream of a file from end to end, times as the container tells them.
class ReadBack {
public:
    ReadBack(const std::string& path, AVMediaType type) : input(openInput(path)) {
        index = check(av_find_best_stream(input.get(), type, -1, -1, nullptr, 0), "stream");
        const AVCodec* codec =
            checkFound(avcodec_find_decoder(stream().codecpar->codec_id), "decoder");
        decoder.reset(checkFound(avcodec_alloc_context3(codec), "decoder"));
        check(avcodec_parameters_to_context(decoder.get(), stream().codecpar), "parameters");
        decoder->pkt_timebase = stream().time_base;
        check(avcodec_open2(decoder.get(), codec, nullptr), "opening the decoder");
    }

    [[nodiscard]] const AVStream& stream() const { return *input->streams[index]; }
    [[nodiscard]] const AVFormatContext& file() const { return *input; }
    [[nodiscard]] Fraction duration() const {
        return secondsOf(stream().duration, stream().time_base);
    }

    template <typename Take>
    void decodeAll(const Take& take) {
        const PacketPointer packet(checkFound(av_packet_alloc(), "packet"));
        const FramePointer frame(checkFound(av_frame_alloc(), "frame"));
        bool more = true;
        while (more) {
            more = av_read_frame(input.get(), packet.get()) >= 0;
            if (more && packet->stream_index != index) {
                av_packet_unref(packet.get());
                continue;
            }
            check(avcodec_send_packet(decoder.get(), more ? packet.get() : nullptr), "decoding");
            while (avcodec_receive_frame(decoder.get(), frame.get()) >= 0)
                take(*frame);
            av_packet_unref(packet.get());
        }
    }

private:
    InputPointer input;
    CodecPointer decoder;
    int index = -1;
};

inline std::vector<ShownPicture> readPictures(const std::string& path) {
    ReadBack clip(path, AVMEDIA_TYPE_VIDEO);
    std::vector<ShownPicture> pictures;
    clip.decodeAll([&](const AVFrame& frame) {
        pictures.push_back({secondsOf(frame.best_effort_timestamp, clip.stream().time_base),
                            FramePointer(checkFound(av_frame_clone(&frame), "frame"))});
    });
    return pictures;
}

inline std::vector<Fraction> timesIn(const std::string& path) {
    std::vector<Fraction> times;
    for (const ShownPicture& picture : readPictures(path))
        times.push_back(picture.time);
    return times;
}

inline HeardSound readHeard(const std::string& path) {
    ReadBack clip(path, AVMEDIA_TYPE_AUDIO);
    HeardSound sound;
    clip.decodeAll([&](const AVFrame& frame) {
        if (sound.samples.empty())
            sound.begin = secondsOf(frame.pts, clip.stream().time_base); // behind the run-in
        sound.channels = ffmpeg::compat::channelCount(frame);
        sound.rate = frame.sample_rate;
        for (int i = 0; i < frame.nb_samples; ++i) {
            for (int channel = 0; channel < sound.channels; ++channel)
                sound.samples.push_back(sampleAt(frame, channel, i));
        }
    });
    return sound;
}

/// Full-range RGB, 8 bits, of a decoded picture, converted with the matrix that it is tagged with.
inline std::vector<uint8_t> rgbOf(const AVFrame& frame) {
    const int width = frame.width;
    const int height = frame.height;
    const ScalerPointer scaler(checkFound(
        sws_getContext(width, height, static_cast<AVPixelFormat>(frame.format), width, height,
                       AV_PIX_FMT_RGB24, SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT,
                       nullptr, nullptr, nullptr),
        "scaler"));
    const int* matrix = sws_getCoefficients(
        frame.colorspace == AVCOL_SPC_UNSPECIFIED ? SWS_CS_DEFAULT : frame.colorspace);
    const int full = frame.color_range == AVCOL_RANGE_JPEG ? 1 : 0;
    sws_setColorspaceDetails(scaler.get(), matrix, full, matrix, 1, 0, 1 << 16, 1 << 16);
    const int stride = (3 * width + 63) / 64 * 64;
    std::vector<uint8_t> padded(static_cast<std::size_t>(stride) *
                                (static_cast<std::size_t>(height) + 1));
    uint8_t* planes[4] = {padded.data()};
    const int strides[4] = {stride};
    sws_scale(scaler.get(), frame.data, frame.linesize, 0, height, planes, strides);
    std::vector<uint8_t> rgb;
    for (int row = 0; row < height; ++row)
        rgb.insert(rgb.end(), padded.begin() + row * stride,
                   padded.begin() + row * stride + 3 * width);
    return rgb;
}

inline double psnr(const std::vector<uint8_t>& a, const uint8_t* b) {
    double squares = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        squares += (a[i] - b[i]) * (a[i] - b[i]);
    constexpr double full = 255;
    return squares == 0 ? 99
                        : 10 * std::log10(full * full * static_cast<double>(a.size()) / squares);
}

} // namespace tio::test
