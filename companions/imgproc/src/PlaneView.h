#pragma once

#include <TARN/imgproc/PixelFormat.h>

#include <cstddef>
#include <cstdint>

namespace tio::PixelFormat {

/// The bytes of a caller's plane, checked once so that the loops need not. Borrows: the plane must
/// outlive it.
class PlaneView {
public:
    /// @throws tio::Exception if the plane has fewer than `rows` rows or `cols` columns, no
    /// storage,
    ///         rows that overlap or bytes that do not follow each other.
    PlaneView(const Plane& plane, int rows, int64_t cols);

    [[nodiscard]] const uint8_t* row(int index) const noexcept {
        return start + std::ptrdiff_t{index} * rowStep;
    }
    [[nodiscard]] int step() const noexcept { return rowStep; }

private:
    const uint8_t* start;
    int rowStep; // bytes
};

} // namespace tio::PixelFormat
