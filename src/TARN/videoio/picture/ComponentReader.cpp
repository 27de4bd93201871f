#include "picture/ComponentReader.h"

#include "picture/pixelLoops.h"

#include <array>
#include <cstddef>

namespace tio::ffmpeg::detail {

namespace {

constexpr bool isBigEndian = AV_NE(true, false);

bool isChroma(const AVPixFmtDescriptor& format, int component) {
    return (component == 1 || component == 2) && format.nb_components > 2;
}

} // namespace

ComponentReader::ComponentReader(const AVPixFmtDescriptor& ofFormat, int number, int width,
                                 int height)
    : format(&ofFormat),
      component(number),
      parts(ofFormat.comp[number]),
      columnCount(AV_CEIL_RSHIFT(width, isChroma(ofFormat, number) ? ofFormat.log2_chroma_w : 0)),
      rowCount(AV_CEIL_RSHIFT(height, isChroma(ofFormat, number) ? ofFormat.log2_chroma_h : 0)),
      layout(findLayout()) {
    if (layout != Layout::Bytes && layout != Layout::Words)
        unpacked.resize(static_cast<size_t>(columnCount));
}

ComponentReader::Layout ComponentReader::findLayout() const noexcept {
    if ((format->flags & (AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_PAL)) != 0)
        return Layout::Other;
    if (parts.depth == 8 && parts.shift == 0)
        return parts.step == 1 ? Layout::Bytes : Layout::SpreadBytes;
    const bool nativeOrder = ((format->flags & AV_PIX_FMT_FLAG_BE) != 0) == isBigEndian;
    const bool word = parts.depth > 8 && parts.depth <= 16 && parts.step == 2;
    return word && parts.shift == 0 && parts.offset == 0 && nativeOrder ? Layout::Words
                                                                        : Layout::Other;
}

const uint8_t* ComponentReader::bytes(const AVFrame& picture, int row) const noexcept {
    const auto plane = static_cast<size_t>(parts.plane);
    return picture.data[plane] + std::ptrdiff_t{row} * picture.linesize[plane] + parts.offset;
}

const uint16_t* ComponentReader::words(const AVFrame& picture, int row) {
    if (layout == Layout::Words)
        return reinterpret_cast<const uint16_t*>(bytes(picture, row));
    if (layout == Layout::SpreadBytes) {
        const uint8_t* in = bytes(picture, row);
        for (int i = 0; i < columnCount; ++i, in += parts.step)
            unpacked[static_cast<size_t>(i)] = *in;
    } else {
        std::array<const uint8_t*, 4> planes = {picture.data[0], picture.data[1], picture.data[2],
                                                picture.data[3]};
        av_read_image_line(unpacked.data(), planes.data(), picture.linesize, format, 0, row,
                           component, columnCount, 0);
    }
    return unpacked.data();
}

void ComponentReader::read(const AVFrame& picture, int row, float* out) {
    if (layout == Layout::Bytes)
        widen(bytes(picture, row), out, columnCount);
    else
        widen(words(picture, row), out, columnCount);
}

void ComponentReader::add(const AVFrame& picture, int row, float weight, bool first, float* sum) {
    if (layout == Layout::Bytes)
        accumulate(bytes(picture, row), weight, first, sum, columnCount);
    else
        accumulate(words(picture, row), weight, first, sum, columnCount);
}

} // namespace tio::ffmpeg::detail
