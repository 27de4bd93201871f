#pragma once

#include <TARN/core/Rational.h>
#include <TARN/core/Vec.h>

namespace tio::PixelFormat {

/// `size` (height, width) times `scale`, each dimension rounded to nearest and at least 1.
/// @throws tio::Exception if `scale` is not positive or the result has more bytes, as 8-bit RGB,
///         than `int` can count: row distances and offsets in pictures are of that type.
[[nodiscard]] Vec<int, 2> scaledSize(Vec<int, 2> size, Rational<1, int> scale);

} // namespace tio::PixelFormat
