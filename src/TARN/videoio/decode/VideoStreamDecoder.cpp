#include <TARN/videoio/VideoStreamDecoder.h>

#include <utility>

namespace tio::ffmpeg {

VideoStreamDecoder::VideoStreamDecoder(std::shared_ptr<InputFormatContext> context,
                                       PixelFormat format)
    : StreamDecoder(context, required(context).findBestVideoStreamIndex()), videoDecoder(format) {
    videoDecoder.turnsByTagAlone = true;
}

VideoStreamDecoder::~VideoStreamDecoder() = default;

tio::Vec<int, 2> VideoStreamDecoder::getFrameSize() const {
    primeOnce();
    return videoDecoder.getFrameSize();
}

bool VideoStreamDecoder::frameReady() {
    currentFrame = videoDecoder.readNextFrame();
    return currentFrame.frame != nullptr;
}

VideoPacketDecoder::Frame VideoStreamDecoder::readNextFrame() {
    currentFrame = {};
    decodeNextFrame();
    return currentFrame;
}

} // namespace tio::ffmpeg
