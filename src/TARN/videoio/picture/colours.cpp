#include "picture/colours.h"

#include <algorithm>

namespace tio::ffmpeg::detail {

namespace {

double largest(int depth) {
    return static_cast<double>((int64_t{1} << depth) - 1);
}

// Limited range is stated for 8 bits: 16 to 235 and 16 to 240. Each bit more doubles that.
double grown(double eightBit, int depth) {
    return eightBit * static_cast<double>(int64_t{1} << depth) / 256;
}

/// R, G, B of Y, Cb, Cr, all in units.
std::array<std::array<double, 3>, 3> unitMatrix(AVColorSpace matrix) {
    if (matrix == AVCOL_SPC_YCGCO)
        return {{{1, -1, 1}, {1, 1, 0}, {1, -1, -1}}};
    const auto [red, blue] = lumaWeightsOf(matrix);
    const double green = 1 - red - blue;
    return {{{1, 0, 2 * (1 - red)},
             {1, -2 * blue * (1 - blue) / green, -2 * red * (1 - red) / green},
             {1, 2 * (1 - blue), 0}}};
}

/// Y, Cb, Cr of R, G, B, all in units.
std::array<std::array<double, 3>, 3> inverseMatrix(AVColorSpace matrix) {
    if (matrix == AVCOL_SPC_YCGCO)
        return {{{0.25, 0.5, 0.25}, {-0.25, 0.5, -0.25}, {0.5, 0, -0.5}}};
    const auto [red, blue] = lumaWeightsOf(matrix);
    const double green = 1 - red - blue;
    const double toCb = 0.5 / (1 - blue);
    const double toCr = 0.5 / (1 - red);
    return {{{red, green, blue},
             {-red * toCb, -green * toCb, 0.5},
             {0.5, -green * toCr, -blue * toCr}}};
}

// One name for each matrix, so that tags which mean the same are the same.
AVColorSpace distinctMatrix(AVColorSpace stated) {
    switch (stated) {
    case AVCOL_SPC_RGB:
    case AVCOL_SPC_BT709:
    case AVCOL_SPC_FCC:
    case AVCOL_SPC_SMPTE240M:
    case AVCOL_SPC_YCGCO:
    case AVCOL_SPC_BT2020_NCL:
        return stated;
    case AVCOL_SPC_BT2020_CL: // taken as the other, as FFmpeg does
        return AVCOL_SPC_BT2020_NCL;
    default:
        return AVCOL_SPC_SMPTE170M;
    }
}

bool isGrey(const AVPixFmtDescriptor& format) {
    return format.nb_components <= 2 && (format.flags & AV_PIX_FMT_FLAG_RGB) == 0;
}

bool isStatedFull(AVPixelFormat format) {
    switch (format) {
    case AV_PIX_FMT_YUVJ411P:
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ440P:
    case AV_PIX_FMT_YUVJ444P:
        return true;
    default:
        return false;
    }
}

} // namespace

LumaWeights lumaWeightsOf(AVColorSpace matrix) noexcept {
    switch (matrix) {
    case AVCOL_SPC_BT709:
        return {0.2126, 0.0722};
    case AVCOL_SPC_FCC:
        return {0.30, 0.11};
    case AVCOL_SPC_SMPTE240M:
        return {0.212, 0.087};
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
        return {0.2627, 0.0593};
    default:
        return {0.299, 0.114};
    }
}

ColourTags untaggedColours(const AVPixFmtDescriptor& format, AVPixelFormat number) {
    if ((format.flags & AV_PIX_FMT_FLAG_RGB) != 0)
        return {AVCOL_SPC_RGB, true};
    return {AVCOL_SPC_SMPTE170M, isGrey(format) || isStatedFull(number)};
}

ColourTags coloursOf(const AVFrame& picture, Colours colours) {
    const auto number = static_cast<AVPixelFormat>(picture.format);
    const AVPixFmtDescriptor& format = *av_pix_fmt_desc_get(number);
    ColourTags tags = untaggedColours(format, number);
    if (colours == Colours::Bt601)
        return tags;
    // RGB is taken as full range, whatever is stated, as FFmpeg takes it.
    if ((format.flags & AV_PIX_FMT_FLAG_RGB) != 0)
        return tags;
    tags.matrix = distinctMatrix(picture.colorspace);
    if (picture.color_range != AVCOL_RANGE_UNSPECIFIED && !isStatedFull(number))
        tags.fullRange = picture.color_range == AVCOL_RANGE_JPEG;
    return tags;
}

std::array<double, 2> lumaToUnit(bool fullRange, int depth) noexcept {
    const double scale = 1 / (fullRange ? largest(depth) : grown(219, depth));
    return {scale, fullRange ? 0 : -scale * grown(16, depth)};
}

std::array<double, 2> chromaToUnit(bool fullRange, int depth) noexcept {
    const double scale = 1 / (fullRange ? largest(depth) : grown(224, depth));
    return {scale, -scale * grown(128, depth)};
}

Affine samplesToRgb(const ColourTags& tags, const std::array<int, 3>& depths, bool rgbSamples) {
    Affine result{};
    if (rgbSamples || tags.matrix == AVCOL_SPC_RGB) {
        // Stored as if they were Y, Cb, Cr, they are G, B, R.
        const std::array<size_t, 3> from =
            rgbSamples ? std::array<size_t, 3>{0, 1, 2} : std::array<size_t, 3>{2, 0, 1};
        for (size_t row = 0; row < 3; ++row) {
            const auto unit = lumaToUnit(rgbSamples || tags.fullRange, depths[from[row]]);
            result[row][from[row]] = unit[0];
            result[row][3] = unit[1];
        }
        return result;
    }
    const auto matrix = unitMatrix(tags.matrix);
    const std::array<std::array<double, 2>, 3> units = {lumaToUnit(tags.fullRange, depths[0]),
                                                        chromaToUnit(tags.fullRange, depths[1]),
                                                        chromaToUnit(tags.fullRange, depths[2])};
    for (size_t row = 0; row < 3; ++row)
        for (size_t i = 0; i < 3; ++i) {
            result[row][i] = matrix[row][i] * units[i][0];
            result[row][3] += matrix[row][i] * units[i][1];
        }
    return result;
}

Affine rgbToSamples(const ColourTags& tags, int depth) {
    const auto matrix = inverseMatrix(tags.matrix);
    Affine result{};
    for (size_t row = 0; row < 3; ++row) {
        const auto unit =
            row == 0 ? lumaToUnit(tags.fullRange, depth) : chromaToUnit(tags.fullRange, depth);
        for (size_t i = 0; i < 3; ++i)
            result[row][i] = matrix[row][i] / unit[0];
        result[row][3] = -unit[1] / unit[0];
    }
    return result;
}

Affine chained(const Affine& first, const Affine& second) {
    Affine result{};
    for (size_t row = 0; row < 3; ++row) {
        for (size_t i = 0; i < 4; ++i)
            for (size_t k = 0; k < 3; ++k)
                result[row][i] += second[row][k] * first[k][i];
        result[row][3] += second[row][3];
    }
    return result;
}

} // namespace tio::ffmpeg::detail
