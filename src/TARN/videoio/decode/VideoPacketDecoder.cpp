#include "base/checks.h"
#include "ffmpeg_compat.h"
#include "picture/filter.h"
#include "picture/swscale.h"

#include <TARN/videoio/VideoPacketDecoder.h>

#include <utility>

namespace tio::ffmpeg {

VideoPacketDecoder::VideoPacketDecoder(PixelFormat target) : pixelFormat(target) {}

VideoPacketDecoder::VideoPacketDecoder(PixelFormat target, int threadCount)
    : PacketDecoder(threadCount), pixelFormat(target) {}

VideoPacketDecoder::~VideoPacketDecoder() = default;

void VideoPacketDecoder::onCodecOpened() {
    const AVStream& stream = getPendingStream();
    const int rotation = getStreamRotation(&stream);
    if (rotation != 0) {
        dimensionsSwapped = rotation != 2;
        filter = makeRotationFilter(&stream, rotation);
    }
    if (pixelFormat == PixelFormat::Default)
        pixelFormat = PixelFormat::RGB;
    // Not again when this comes once more because it failed: a stream may have no pixel format, and
    // what its first picture needs is made then.
    if (std::exchange(converterAskedFor, true))
        return;
    converter = std::make_shared<SWScaleDecoder>(getFrameSize(), getCodecContext(), pixelFormat);
}

tio::Vec<int, 2> VideoPacketDecoder::getFrameSize() const {
    const AVCodecContext* codec = getCodecContext();
    if (codec == nullptr)
        detail::failAssertion("Frame size is not known before the first packet", "codecContext",
                              {"VideoPacketDecoder", 41});
    return dimensionsSwapped ? tio::Vec<int, 2>(codec->width, codec->height)
                             : tio::Vec<int, 2>(codec->height, codec->width);
}

VideoPacketDecoder::Frame VideoPacketDecoder::readNextFrame() {
    if (!receiveFrame())
        return {};
    auto picture = finishFrame();
    return {std::move(picture), getFrameTime(), getUnitTime()};
}

std::shared_ptr<tio::FrameBase> VideoPacketDecoder::finishFrame() {
    if (filter)
        filter->filterFrame(getFrame());
    matchConverterToFrame();
    return converter->convertFrame(getFrame());
}

// Pictures may change in mid-stream, in damaged files to anything. swscale reads as many rows and
// columns as it was made for, so a converter is never given a picture of another size.
void VideoPacketDecoder::matchConverterToFrame() {
    const AVFrame& decoded = *getFrame();
    if (converter && converter->fits(decoded))
        return;
    converter =
        std::make_shared<SWScaleDecoder>(tio::Vec<int, 2>(decoded.height, decoded.width),
                                         static_cast<AVPixelFormat>(decoded.format), pixelFormat);
}

} // namespace tio::ffmpeg
