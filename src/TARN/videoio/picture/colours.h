#pragma once

#include "ffmpeg_compat.h"

#include <TARN/videoio/Image.h>

#include <array>

/// @file
/// What the numbers of a picture mean as colours, by ITU-T H.273.

namespace tio::ffmpeg::detail {

/// How much of luma red and blue make up; green is the rest.
struct LumaWeights {
    double red;
    double blue;
};

/// Of a matrix of FFmpeg's; those of BT.601 for one that is not stated, is not known or has none.
[[nodiscard]] LumaWeights lumaWeightsOf(AVColorSpace matrix) noexcept;

/// The colour tags that go into a conversion.
struct ColourTags {
    AVColorSpace matrix = AVCOL_SPC_SMPTE170M; ///< AVCOL_SPC_RGB: the planes are G, B, R
    bool fullRange = false;

    [[nodiscard]] bool operator==(const ColourTags& other) const noexcept {
        return matrix == other.matrix && fullRange == other.fullRange;
    }
};

/// What holds for a picture of this format that states nothing: BT.601 limited; grey and the "yuvj"
/// formats are full.
[[nodiscard]] ColourTags untaggedColours(const AVPixFmtDescriptor& format, AVPixelFormat number);

/// What a picture states, and where it states nothing, what holds then.
/// @param colours  Bt601 for what holds whatever the picture states
[[nodiscard]] ColourTags coloursOf(const AVFrame& picture, Colours colours);

/// Three weights and an addend for each of three results.
using Affine = std::array<std::array<double, 4>, 3>;

/// From stored samples to R, G and B from 0 to 1.
/// @param depths  bits of the three samples: Y, Cb, Cr, or R, G, B where `rgbSamples`
[[nodiscard]] Affine samplesToRgb(const ColourTags& tags, const std::array<int, 3>& depths,
                                  bool rgbSamples);

/// From R, G and B from 0 to 1 to Y, Cb and Cr samples of some depth.
[[nodiscard]] Affine rgbToSamples(const ColourTags& tags, int depth);

/// What two of them do one after the other.
[[nodiscard]] Affine chained(const Affine& first, const Affine& second);

/// Weight and addend that bring a luma sample from 0, black, to 1, white.
[[nodiscard]] std::array<double, 2> lumaToUnit(bool fullRange, int depth) noexcept;

/// Weight and addend that bring a chroma sample to -0.5 to 0.5.
[[nodiscard]] std::array<double, 2> chromaToUnit(bool fullRange, int depth) noexcept;

} // namespace tio::ffmpeg::detail
