#include "decode/PictureMaker.h"

#include "ffmpeg_compat.h"
#include "picture/filter.h"
#include "picture/swscale.h"

namespace tio::ffmpeg::detail {

PictureMaker::PictureMaker(PixelFormat pixelFormat)
    : target(pixelFormat == PixelFormat::Default ? PixelFormat::RGB : pixelFormat) {}

PictureMaker::~PictureMaker() = default;

void PictureMaker::turnAs(const AVStream& stream) {
    const int rotation = getStreamRotation(&stream);
    if (rotation == 0)
        return;
    dimensionsSwapped = rotation != 2;
    filter = makeRotationFilter(&stream, rotation);
}

void PictureMaker::expectPicturesOf(AVCodecContext& codec) {
    converter = std::make_shared<SWScaleDecoder>(size(codec), &codec, target);
}

tio::Vec<int, 2> PictureMaker::size(const AVCodecContext& codec) const {
    return dimensionsSwapped ? tio::Vec<int, 2>(codec.width, codec.height)
                             : tio::Vec<int, 2>(codec.height, codec.width);
}

std::shared_ptr<tio::FrameBase> PictureMaker::make(AVFrame& decoded) {
    if (filter)
        filter->filterFrame(&decoded);
    matchConverterTo(decoded);
    return converter->convertFrame(&decoded);
}

// Pictures may change in mid-stream, in damaged files to anything. swscale reads as many rows and
// columns as it was made for, so a converter is never given a picture of another size.
void PictureMaker::matchConverterTo(const AVFrame& upright) {
    if (converter && converter->fits(upright))
        return;
    converter =
        std::make_shared<SWScaleDecoder>(tio::Vec<int, 2>(upright.height, upright.width),
                                         static_cast<AVPixelFormat>(upright.format), target);
}

} // namespace tio::ffmpeg::detail
