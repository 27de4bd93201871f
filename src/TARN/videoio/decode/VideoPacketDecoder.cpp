#include "base/checks.h"
#include "decode/PictureMaker.h"
#include "ffmpeg_compat.h"

#include <TARN/videoio/VideoPacketDecoder.h>

#include <utility>

namespace tio::ffmpeg {

VideoPacketDecoder::VideoPacketDecoder(PixelFormat pixelFormat)
    : pictures(std::make_unique<detail::PictureMaker>(pixelFormat)) {}

VideoPacketDecoder::~VideoPacketDecoder() = default;

void VideoPacketDecoder::onCodecOpened() {
    using Turning = detail::PictureMaker::Turning;
    pictures->turnAs(getPendingStream(), turnsByTagAlone ? Turning::ByTag : Turning::ByTagOrMatrix);
    // Once: a stream may have no pixel format, and what its first picture needs is made then.
    if (!std::exchange(converterAskedFor, true))
        pictures->expectPicturesOf(*getCodecContext());
}

tio::Vec<int, 2> VideoPacketDecoder::getFrameSize() const {
    if (getCodecContext() == nullptr)
        detail::failAssertion("Frame size is not known before the first packet", "codecContext",
                              {"VideoPacketDecoder", 41});
    return pictures->size(*getCodecContext());
}

VideoPacketDecoder::Frame VideoPacketDecoder::readNextFrame() {
    if (!receiveFrame())
        return {};
    auto picture = pictures->make(*getFrame());
    return {std::move(picture), getFrameTime(), getUnitTime()};
}

} // namespace tio::ffmpeg
