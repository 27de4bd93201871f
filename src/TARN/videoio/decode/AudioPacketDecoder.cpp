#include "base/checks.h"
#include "ffmpeg_compat.h"

#include <TARN/core/Exception.h>
#include <TARN/videoio/AudioPacketDecoder.h>

#include <cstdint>

namespace tio::ffmpeg {

namespace {

using Samples = tio::Mat<float, 2, tio::MatOptions<1, 1>>;

// Unsigned samples are not centred: silence, 128, becomes about 0.5. The header says so.
constexpr float unsigned8Scale = 1.0F / 255.0F;
constexpr float signed16Scale = 1.0F / 32768.0F;      // 2^-15
constexpr float signed32Scale = 1.0F / 2147483648.0F; // 2^-31

template <typename T>
void convertInterleaved(const AVFrame& frame, float scale, Samples& samples) {
    const auto* source = reinterpret_cast<const T*>(frame.extended_data[0]);
    float* target = samples.data();
    for (int i = 0; i < samples.count; ++i)
        target[i] = static_cast<float>(source[i]) * scale;
}

template <typename T>
void convertPlanar(const AVFrame& frame, float scale, Samples& samples) {
    for (int channel = 0; channel < samples.cols(); ++channel) {
        const auto* source = reinterpret_cast<const T*>(frame.extended_data[channel]);
        for (int i = 0; i < samples.rows(); ++i)
            samples(i, channel) = static_cast<float>(source[i]) * scale;
    }
}

using Converter = void (*)(const AVFrame& frame, float scale, Samples& samples);

struct Rule {
    Converter convert;
    float scale;
};

Rule ruleFor(int sampleFormat) {
    switch (sampleFormat) {
    case AV_SAMPLE_FMT_U8:
        return {convertInterleaved<uint8_t>, unsigned8Scale};
    case AV_SAMPLE_FMT_S16:
        return {convertInterleaved<int16_t>, signed16Scale};
    case AV_SAMPLE_FMT_S32:
        return {convertInterleaved<int32_t>, signed32Scale};
    case AV_SAMPLE_FMT_FLT:
        return {convertInterleaved<float>, 1.0F};
    case AV_SAMPLE_FMT_DBL:
        return {convertInterleaved<double>, 1.0F};
    case AV_SAMPLE_FMT_U8P:
        return {convertPlanar<uint8_t>, unsigned8Scale};
    case AV_SAMPLE_FMT_S16P:
        return {convertPlanar<int16_t>, signed16Scale};
    case AV_SAMPLE_FMT_S32P:
        return {convertPlanar<int32_t>, signed32Scale};
    case AV_SAMPLE_FMT_FLTP:
        return {convertPlanar<float>, 1.0F};
    case AV_SAMPLE_FMT_DBLP:
        return {convertPlanar<double>, 1.0F};
    default:
        throw tio::Exception("Unknown sample format");
    }
}

int lowerMask(const AVCodecContext& codec) {
    return static_cast<int>(static_cast<uint32_t>(compat::channelMask(codec)));
}

} // namespace

AudioPacketDecoder::AudioPacketDecoder() = default;
AudioPacketDecoder::~AudioPacketDecoder() = default;

void AudioPacketDecoder::onCodecOpened() {}

const AVCodecContext& AudioPacketDecoder::requireCodec() const {
    if (getCodecContext() == nullptr)
        detail::failAssertion("Sound parameters are not known before the first packet",
                              "codecContext", {"AudioPacketDecoder", 31});
    return *getCodecContext();
}

int AudioPacketDecoder::getSampleRate() const {
    return requireCodec().sample_rate;
}

int AudioPacketDecoder::getChannelLayout() const {
    return lowerMask(requireCodec());
}

AudioPacketDecoder::Frame AudioPacketDecoder::readNextFrame() {
    if (!receiveFrame())
        return {};
    const AVFrame& decoded = *getFrame();
    const AVCodecContext& codec = *getCodecContext();
    Rule rule = ruleFor(codec.sample_fmt);
    // Damaged streams may change their format between the codec's word and the frame.
    if (decoded.format != codec.sample_fmt)
        rule = ruleFor(decoded.format);
    Samples samples(tio::Vec<int, 2>(decoded.nb_samples, compat::channelCount(decoded)));
    rule.convert(decoded, rule.scale, samples);
    return {samples, getFrameTime(), getUnitTime(), codec.sample_rate, lowerMask(codec)};
}

} // namespace tio::ffmpeg
