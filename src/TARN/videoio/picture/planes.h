#pragma once

#include <TARN/core/Mat.h>

#include <cstddef>
#include <cstdint>

namespace tio::ffmpeg::detail {

/// One plane of a picture: rows × columns bytes.
using Plane = tio::Mat<uint8_t, 2, tio::MatOptions<0, 1>>;

/// A fresh, tightly packed plane with undefined content.
[[nodiscard]] Plane makePlane(int rows, int columns);

/// Copies `rows` rows of `bytes` bytes from a picture with its own distance between rows, which is
/// negative where rows are stored from the bottom up.
void copyRows(const uint8_t* source, std::ptrdiff_t sourceStride, uint8_t* target,
              std::ptrdiff_t targetStride, std::ptrdiff_t bytes, int rows);

/// The same plane with the first `bytes` of each row alone, moved together in place: a copy would
/// drive another picture out of the processor's cache.
[[nodiscard]] Plane closeUpRows(Plane plane, int bytes);

} // namespace tio::ffmpeg::detail
