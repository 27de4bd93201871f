#include "exact/PictureDelivery.h"

#include "base/checks.h"
#include "picture/planes.h"

#include <TARN/videoio/Types.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace tio::ffmpeg::detail {

namespace {

using RgbFrame = tio::Frame<tio::PixelFormat::RGB>;
using Nv12Frame = tio::Frame<tio::PixelFormat::NV12>;

/// The pixels of a frame as an image that does not own them. NV12 frames have rows of an even
/// number of chroma bytes, and room for as many rows of them as of luma.
ImageView viewOf(RgbFrame& frame) {
    return {PictureFormat::Rgb8,
            frame.size[0],
            frame.size[1],
            {frame.plane.data()},
            {std::ptrdiff_t{3} * frame.size[1]}};
}

ImageView viewOf(Nv12Frame& frame) {
    return {PictureFormat::Nv12,
            frame.size[0],
            frame.size[1],
            {frame.planes[0].data(), frame.planes[1].data()},
            {frame.size[1], frame.size[1] + frame.size[1] % 2}};
}

ImageView viewOf(tio::FrameBase& frame, PictureFormat format) {
    return format == PictureFormat::Nv12 ? viewOf(static_cast<Nv12Frame&>(frame))
                                         : viewOf(static_cast<RgbFrame&>(frame));
}

std::shared_ptr<tio::FrameBase> makeFrame(PictureFormat format, int height, int width) {
    const tio::Vec<int, 2> size(height, width);
    if (format == PictureFormat::Rgb8)
        return std::make_shared<RgbFrame>(size, makePlane(height, 3 * width));
    return std::make_shared<Nv12Frame>(
        size, tio::Vec<Plane, 2>(makePlane(height, width), makePlane(height, width + width % 2)));
}

void copyPixels(const ImageView& from, const ImageView& to) {
    for (int plane = 0; plane < planeCount(from.format); ++plane) {
        const auto at = static_cast<size_t>(plane);
        const PlaneSize size = planeSize(from.format, from.height, from.width, plane);
        copyRows(from.planes[at], from.strides[at], to.planes[at], to.strides[at], size.rowBytes,
                 size.rows);
    }
}

} // namespace

PictureDelivery::PictureDelivery(const PictureConverter::Target& wanted)
    : target(wanted), converter(wanted) {}

// A tag that cannot be read is logged each time that it is asked for.
void PictureDelivery::turnAs(const AVStream& stream) {
    const AVDictionaryEntry* entry = av_dict_get(stream.metadata, "rotate", nullptr, 0);
    std::string text = entry != nullptr ? entry->value : "";
    if (tag == text)
        return;
    tag = std::move(text);
    constexpr std::array<int, 4> turns = {1, 6, 3, 8};
    quartersOfTag = getStreamRotation(&stream) & 3;
    turning = compat::displayMatrix(stream) != nullptr
                  ? turningOf(stream)
                  : Turning{turns[static_cast<size_t>(quartersOfTag)]};
}

PictureDelivery::Size PictureDelivery::sizeOf(const AVFrame& picture) {
    const Size size{converter.heightFor(picture, turning.way),
                    converter.widthFor(picture, turning.way)};
    const auto same = [&](const Size& other) {
        return other.height == size.height && other.width == size.width;
    };
    if (std::none_of(sizes.begin(), sizes.end(), same))
        sizes.push_back(size);
    return size;
}

void PictureDelivery::requirePossible(const ImageView& view, int height, int width) const {
    for (const Size& size : sizes)
        if (view.height == size.height && view.width == size.width)
            return converter.requireFitting(view, size.height, size.width);
    converter.requireFitting(view, height, width);
}

// Where the stream decoders take the same colours and turn the same way, a picture is theirs, bit
// for bit.
bool PictureDelivery::isAsStreamDecodersGiveIt(const AVFrame& picture) const {
    constexpr std::array<int, 4> turns = {1, 6, 3, 8};
    return target.height == 0 && turns[static_cast<size_t>(quartersOfTag)] == turning.way &&
           av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture.format)) != nullptr &&
           coloursOf(picture, target.colours) == coloursOf(picture, Colours::Bt601);
}

Image PictureDelivery::image(FrameDecoder& decoder) {
    const Size size = sizeOf(decoder.decoded());
    Image made(target.format, size.height, size.width);
    writeTo(made.view(), decoder);
    return made;
}

void PictureDelivery::writeTo(const ImageView& view, FrameDecoder& decoder) {
    const AVFrame& picture = decoder.decoded();
    const Size size = sizeOf(picture);
    const bool asStored =
        target.colours == Colours::Bt601 &&
        (target.format == PictureFormat::Rgb8 || target.format == PictureFormat::Nv12) &&
        isAsStreamDecodersGiveIt(picture);
    converter.requireFitting(view, size.height, size.width);
    if (asStored)
        copyPixels(viewOf(*decoder.picture(quartersOfTag), target.format), view);
    else
        converter.convert(picture, turning.way, view);
}

std::shared_ptr<tio::FrameBase> PictureDelivery::frame(FrameDecoder& decoder) {
    const AVFrame& picture = decoder.decoded();
    if (isAsStreamDecodersGiveIt(picture))
        return decoder.picture(quartersOfTag);
    const Size size = sizeOf(picture);
    auto made = makeFrame(target.format, size.height, size.width);
    converter.convert(picture, turning.way, viewOf(*made, target.format));
    return made;
}

int64_t byteCountOf(const tio::FrameBase& frame, PictureFormat format) {
    if (format == PictureFormat::Nv12) {
        const auto& planes = static_cast<const Nv12Frame&>(frame).planes;
        return int64_t{planes[0].count} + planes[1].count;
    }
    return static_cast<const RgbFrame&>(frame).plane.count;
}

} // namespace tio::ffmpeg::detail
