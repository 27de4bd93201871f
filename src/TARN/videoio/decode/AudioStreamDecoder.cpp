#include <TARN/videoio/AudioStreamDecoder.h>

#include <utility>

namespace tio::ffmpeg {

AudioStreamDecoder::AudioStreamDecoder(std::shared_ptr<InputFormatContext> context)
    : StreamDecoder(context, required(context).findBestAudioStreamIndex()) {}

AudioStreamDecoder::~AudioStreamDecoder() = default;

int AudioStreamDecoder::getSampleRate() const {
    primeOnce();
    return audioDecoder.getSampleRate();
}

int AudioStreamDecoder::getChannelLayout() const {
    primeOnce();
    return audioDecoder.getChannelLayout();
}

bool AudioStreamDecoder::frameReady() {
    currentFrame = audioDecoder.readNextFrame();
    return currentFrame.samples.count != 0;
}

AudioPacketDecoder::Frame AudioStreamDecoder::readNextFrame() {
    currentFrame = {};
    decodeNextFrame();
    return currentFrame;
}

} // namespace tio::ffmpeg
