#include <TARN/videoio/AudioStreamEncoder.h>

#include <utility>

namespace tio::ffmpeg {

namespace {

Rational effectiveTimeBase(Rational timeBase, int sampleRate) {
    return timeBase.numerator != 0 ? timeBase : Rational(1, sampleRate);
}

} // namespace

AudioStreamEncoder::AudioStreamEncoder(std::shared_ptr<OutputFormatContext> context,
                                       int channelLayout, int sampleRate, Rational timeBase)
    : StreamEncoder(std::move(context), effectiveTimeBase(timeBase, sampleRate),
                    std::make_shared<AudioPacketEncoder>(channelLayout, sampleRate, timeBase)) {}

AudioStreamEncoder::~AudioStreamEncoder() = default;

size_t AudioStreamEncoder::getFrameWidth() const noexcept {
    return encoderAs<AudioPacketEncoder>().getFrameWidth();
}

void AudioStreamEncoder::writeNextFrame(AudioPacketEncoder::Samples samples, Rational time) {
    requireShortPause(time);
    writePackets(encoderAs<AudioPacketEncoder>().writeNextFrame(std::move(samples), time), time);
}

// Every block gets the same time, as every image of the video encoder does. The header says so.
void AudioStreamEncoder::writeNextFrame(AudioPacketEncoder::Samples samples) {
    writeNextFrame(std::move(samples), timeWithoutTime());
}

} // namespace tio::ffmpeg
