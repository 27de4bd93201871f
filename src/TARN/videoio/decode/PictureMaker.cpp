#include "decode/PictureMaker.h"

#include "ffmpeg_compat.h"
#include "picture/filter.h"
#include "picture/swscale.h"

#include <cmath>

namespace tio::ffmpeg::detail {

namespace {

bool hasTag(const AVStream& stream) {
    return av_dict_get(stream.metadata, "rotate", nullptr, 0) != nullptr;
}

/// Clockwise quarter turns; 0 for an angle between.
int turnsOfMatrix(const AVStream& stream) {
    const int32_t* matrix = compat::displayMatrix(stream);
    const double turns = matrix != nullptr ? -av_display_rotation_get(matrix) / 90 : 0;
    constexpr double tolerance = 1e-5; // the angle comes from fixed-point numbers
    if (std::isnan(turns) || std::abs(turns - std::round(turns)) > tolerance)
        return 0;
    return static_cast<int>(std::lround(turns)) & 3;
}

} // namespace

PictureMaker::PictureMaker(PixelFormat pixelFormat)
    : target(pixelFormat == PixelFormat::Default ? PixelFormat::RGB : pixelFormat) {}

PictureMaker::~PictureMaker() = default;

void PictureMaker::turnAs(const AVStream& stream, Turning turning) {
    const bool byMatrix = turning == Turning::ByTagOrMatrix && !hasTag(stream);
    turnBy(stream, byMatrix ? turnsOfMatrix(stream) : getStreamRotation(&stream));
}

void PictureMaker::turnBy(const AVStream& stream, int quarters) {
    if (quarters == 0)
        return;
    dimensionsSwapped = quarters != 2;
    filter = makeRotationFilter(&stream, quarters);
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
