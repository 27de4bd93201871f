#include "PlaneView.h"

#include <TARN/core/Exception.h>

namespace tio::PixelFormat {

PlaneView::PlaneView(const Plane& plane, int rows, int64_t cols)
    : start(plane.data()), rowStep(plane.step[0]) {
    if (rows <= 0 || cols <= 0 || start == nullptr)
        throw Exception("A picture without pixels cannot be converted");
    if (plane.rows() < rows || plane.cols() < cols)
        throw Exception("The planes of the picture do not fit together");
    if (rowStep < plane.cols() || plane.step[1] != 1)
        throw Exception("The rows of a plane must be contiguous and must not overlap");
}

} // namespace tio::PixelFormat
