#include "picture/planes.h"

#include <cstddef>
#include <cstring>
#include <utility>

namespace tio::ffmpeg::detail {

Plane makePlane(int rows, int columns) {
    return Plane(tio::Vec<int, 2>(rows, columns));
}

void copyRows(const uint8_t* source, std::ptrdiff_t sourceStride, uint8_t* target,
              std::ptrdiff_t targetStride, std::ptrdiff_t bytes, int rows) {
    for (int row = 0; row < rows; ++row)
        std::memcpy(target + row * targetStride, source + row * sourceStride,
                    static_cast<size_t>(bytes));
}

Plane closeUpRows(Plane plane, int bytes) {
    uint8_t* target = plane.data();
    for (int row = 0; row < plane.rows(); ++row, target += bytes)
        std::memmove(target, &plane(row, 0), static_cast<size_t>(bytes));
    return Plane(tio::Vec<int, 2>(plane.rows(), bytes), std::move(plane.storage));
}

} // namespace tio::ffmpeg::detail
