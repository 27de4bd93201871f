#include "picture/orientation.h"

#include "base/parseInteger.h"
#include "ffmpeg_compat.h"

#include <cstddef>
#include <stdexcept>

namespace tio::ffmpeg::detail {

namespace {

constexpr int upright = 1;

using Image = Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>;

// A display matrix takes the stored column and row to the shown ones: its first column makes the
// shown column, its second the shown row.
int orientationOfMatrix(const int32_t* matrix) {
    const int32_t columnToColumn = matrix[0];
    const int32_t columnToRow = matrix[1];
    const int32_t rowToColumn = matrix[3];
    const int32_t rowToRow = matrix[4];
    if (columnToRow == 0 && rowToColumn == 0) {
        if (rowToRow > 0)
            return columnToColumn < 0 ? 2 : upright;
        return columnToColumn < 0 ? 3 : 4;
    }
    if (columnToColumn != 0 || rowToRow != 0)
        return upright; // no quarter turn
    if (columnToRow > 0)
        return rowToColumn > 0 ? 5 : 6;
    return rowToColumn < 0 ? 7 : 8;
}

int orientationOfTag(const char* value) {
    try {
        const int orientation = parseInteger(value);
        return orientation >= 1 && orientation <= 8 ? orientation : upright;
    } catch (const std::logic_error&) { // no number
        return upright;
    }
}

/// Where the pixels of the upright image lie in the stored one.
struct Walk {
    std::ptrdiff_t first;
    std::ptrdiff_t alongRow;    // to the next pixel of an upright row
    std::ptrdiff_t alongColumn; // to the next row
};

Walk walkFor(int orientation, std::ptrdiff_t rows, std::ptrdiff_t cols) {
    const std::ptrdiff_t topRight = cols - 1;
    const std::ptrdiff_t bottomLeft = (rows - 1) * cols;
    const std::ptrdiff_t bottomRight = rows * cols - 1;
    switch (orientation) {
    case 2:
        return {topRight, -1, cols};
    case 3:
        return {bottomRight, -1, -cols};
    case 4:
        return {bottomLeft, 1, -cols};
    case 5:
        return {0, cols, 1};
    case 6:
        return {bottomLeft, -cols, 1};
    case 7:
        return {bottomRight, -cols, -1};
    case 8:
        return {topRight, cols, -1};
    default:
        return {0, 1, cols};
    }
}

} // namespace

// The tag is what EXIF says, on the frame up to FFmpeg 7.1. Release 9 gives the display matrix
// alone, which release 4.3 did not make.
int orientationOf(const AVFrame& photo) {
    if (const auto* tag = av_dict_get(photo.metadata, "Orientation", nullptr, 0))
        return orientationOfTag(tag->value);
    const auto* matrix = av_frame_get_side_data(&photo, AV_FRAME_DATA_DISPLAYMATRIX);
    if (matrix == nullptr || static_cast<size_t>(matrix->size) < 9 * sizeof(int32_t))
        return upright;
    return orientationOfMatrix(reinterpret_cast<const int32_t*>(matrix->data));
}

Image turnUpright(const Image& stored, int orientation) {
    if (orientation == upright)
        return stored;
    const bool onItsSide = orientation >= 5;
    Image turned(onItsSide ? Vec<int, 2>(stored.cols(), stored.rows()) : stored.size);
    const Walk walk = walkFor(orientation, stored.rows(), stored.cols());
    for (int row = 0; row < turned.rows(); ++row) {
        std::ptrdiff_t from = walk.first + row * walk.alongColumn;
        for (int col = 0; col < turned.cols(); ++col, from += walk.alongRow)
            turned(row, col) = stored.data()[from];
    }
    return turned;
}

} // namespace tio::ffmpeg::detail
