#pragma once

#include <TARN/core/Mat.h>
#include <TARN/core/Vec.h>

#include <cstdint>

struct AVFrame;

/// @file
/// How a camera was held when it took a photo, as one of EXIF's numbers, 1 to 8: 1 upright, 2
/// mirrored left to right, 3 upside down, 4 mirrored top to bottom; 5 to 8 lie on their side: 5
/// mirrored along the diagonal from top left, 6 to be turned clockwise, 7 mirrored along the other
/// diagonal, 8 to be turned counter-clockwise.

namespace tio::ffmpeg::detail {

/// The orientation of a decoded photo; 1 where it states none, or none of the eight.
[[nodiscard]] int orientationOf(const AVFrame& photo);

/// The stored image in upright order. The orientation 1 copies nothing.
[[nodiscard]] Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>
turnUpright(const Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>& stored, int orientation);

} // namespace tio::ffmpeg::detail
