#include "base/checks.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/AudioPacketEncoder.h>

#include <utility>

namespace tio::ffmpeg {

namespace {

constexpr detail::Places at("AudioPacketEncoder");

} // namespace

AudioPacketEncoder::AudioPacketEncoder(int channelLayout, int sampleRate, Rational unitTime)
    : PacketEncoder(unitTime.numerator != 0 ? unitTime : Rational(1, sampleRate), AV_CODEC_ID_AAC) {
    compat::setChannelMask(*codecContext, static_cast<uint32_t>(channelLayout));
    codecContext->sample_rate = sampleRate;
    codecContext->sample_fmt = AV_SAMPLE_FMT_FLTP;
    openCodec(nullptr);
    frame = av_frame_alloc();
    if (frame == nullptr)
        detail::failAssertion("Could not allocate frame", "frame", at(44));
    frame->sample_rate = codecContext->sample_rate;
    frame->format = codecContext->sample_fmt;
    compat::copyChannels(*frame, *codecContext);
    frame->pts = -1; // so that the first block without a time is at 0
}

AudioPacketEncoder::~AudioPacketEncoder() = default;

size_t AudioPacketEncoder::getFrameWidth() const noexcept {
    if ((codecContext->codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) != 0)
        return 0;
    return static_cast<size_t>(codecContext->frame_size);
}

// The first block fixes the length. Releasing its buffer also resets the frame's format, so that
// FFmpeg refuses to make one of another length, and says so.
void AudioPacketEncoder::resizeFrame(int rows) {
    if (frame->nb_samples == rows && frame->data[0] != nullptr)
        return;
    if (frame->nb_samples != 0)
        av_frame_unref(frame);
    frame->nb_samples = rows;
    detail::checkResult(av_frame_get_buffer(frame, 1), at(79));
}

std::vector<OutputPacket> AudioPacketEncoder::writeNextFrame(Samples samples, Rational time) {
    requireFrame();
    const int channels = compat::channelCount(*codecContext);
    if (samples.cols() != channels)
        detail::failAssertion("A block of " + std::to_string(samples.cols()) +
                                  " channels does not fit an encoder of " +
                                  std::to_string(channels),
                              "samples.cols() == channels", at(91));
    resizeFrame(samples.rows());
    for (int channel = 0; channel < channels; ++channel) {
        auto* plane = reinterpret_cast<float*>(frame->data[channel]);
        for (int i = 0; i < samples.rows(); ++i)
            plane[i] = samples(i, channel);
    }
    return encodeFrameAt(time);
}

std::vector<OutputPacket> AudioPacketEncoder::writeNextFrame(Samples samples) {
    return writeNextFrame(std::move(samples), getFrameTime() + getUnitTime());
}

} // namespace tio::ffmpeg
