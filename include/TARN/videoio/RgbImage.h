#pragma once

#include <TARN/core/Mat.h>
#include <TARN/core/Vec.h>

#include <cstdint>

namespace tio {

/// An 8-bit RGB image: rows are its height, columns its width, elements its pixels (R, G, B).
/// Copies share the pixels.
///
/// Thread rule: like std::shared_ptr. Writing pixels that another thread reads needs a lock of the
/// caller's.
using RgbImage = Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>;

} // namespace tio
