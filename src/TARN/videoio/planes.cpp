#include "planes.h"

#include <cstddef>
#include <cstring>

namespace tio::ffmpeg::detail {

Plane makePlane(int rows, int columns) {
    return Plane(tio::Vec<int, 2>(rows, columns));
}

void copyRows(const uint8_t* source, int sourceStride, uint8_t* target, int targetStride, int bytes,
              int rows) {
    for (int row = 0; row < rows; ++row) {
        std::memcpy(target, source, static_cast<size_t>(bytes));
        source += sourceStride;
        target += targetStride;
    }
}

} // namespace tio::ffmpeg::detail
