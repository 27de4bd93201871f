#include "exact/sound/sampleConversion.h"

#include "base/checks.h"

#include <cstdint>
#include <string>

namespace tio::ffmpeg::detail {

namespace {

struct Slice {
    const AVFrame& frame;
    int from;
    int count;
    int channels;
};

float asFloat(uint8_t sample) {
    constexpr int silence = 128;
    return static_cast<float>(sample - silence) * (1.0F / 128.0F);
}
float asFloat(int16_t sample) {
    return static_cast<float>(sample) * (1.0F / 32768.0F); // 2^-15
}
float asFloat(int32_t sample) {
    return static_cast<float>(sample) * (1.0F / 2147483648.0F); // 2^-31
}
float asFloat(int64_t sample) {
    return static_cast<float>(sample) * (1.0F / 9223372036854775808.0F); // 2^-63
}
float asFloat(float sample) {
    return sample;
}
float asFloat(double sample) {
    return static_cast<float>(sample);
}

template <typename T>
void convertInterleaved(const Slice& slice, float* to) {
    const auto* source = reinterpret_cast<const T*>(slice.frame.extended_data[0]) +
                         std::ptrdiff_t{slice.from} * slice.channels;
    const std::ptrdiff_t numbers = std::ptrdiff_t{slice.count} * slice.channels;
    for (std::ptrdiff_t i = 0; i < numbers; ++i)
        to[i] = asFloat(source[i]);
}

template <typename T>
void convertPlanar(const Slice& slice, float* to) {
    for (int channel = 0; channel < slice.channels; ++channel) {
        const auto* source =
            reinterpret_cast<const T*>(slice.frame.extended_data[channel]) + slice.from;
        float* target = to + channel;
        for (int i = 0; i < slice.count; ++i, target += slice.channels)
            *target = asFloat(source[i]);
    }
}

// Two channels are what most sound has: a loop that the compiler can do in vectors.
template <typename T>
void convertTwoPlanes(const Slice& slice, float* to) {
    const auto* left = reinterpret_cast<const T*>(slice.frame.extended_data[0]) + slice.from;
    const auto* right = reinterpret_cast<const T*>(slice.frame.extended_data[1]) + slice.from;
    const auto count = static_cast<std::size_t>(slice.count);
    for (std::size_t i = 0; i < count; ++i) {
        to[2 * i] = asFloat(left[i]);
        to[2 * i + 1] = asFloat(right[i]);
    }
}

template <typename T>
void convert(const Slice& slice, float* to) {
    const auto format = static_cast<AVSampleFormat>(slice.frame.format);
    if (av_sample_fmt_is_planar(format) == 0)
        convertInterleaved<T>(slice, to);
    else if (slice.channels == 2)
        convertTwoPlanes<T>(slice, to);
    else
        convertPlanar<T>(slice, to);
}

} // namespace

void convertSamples(const AVFrame& frame, int from, int count, float* to) {
    const Slice slice{frame, from, count, compat::channelCount(frame)};
    switch (av_get_packed_sample_fmt(static_cast<AVSampleFormat>(frame.format))) {
    case AV_SAMPLE_FMT_U8:
        return convert<uint8_t>(slice, to);
    case AV_SAMPLE_FMT_S16:
        return convert<int16_t>(slice, to);
    case AV_SAMPLE_FMT_S32:
        return convert<int32_t>(slice, to);
    case AV_SAMPLE_FMT_S64:
        return convert<int64_t>(slice, to);
    case AV_SAMPLE_FMT_FLT:
        return convert<float>(slice, to);
    case AV_SAMPLE_FMT_DBL:
        return convert<double>(slice, to);
    default:
        failPlainly("There is no rule for samples of the format " + std::to_string(frame.format));
    }
}

} // namespace tio::ffmpeg::detail
