#include "picture/orientation.h"

#include "base/checks.h"
#include "base/parseInteger.h"
#include "ffmpeg_compat.h"

#include <TARN/logging/log.h>
#include <TARN/videoio/Types.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <exception>
#include <stdexcept>

namespace tio::ffmpeg {

namespace detail {

namespace {

constexpr int upright = 1;

constexpr std::array<int, 4> turns = {1, 6, 3, 8}; // by quarters, clockwise

constexpr Turning turnedBy(long quarters, bool exact) {
    return {turns[static_cast<size_t>(quarters & 3)], exact};
}

Turning nearestTurn(const int32_t* matrix) {
    const double counterClockwise = av_display_rotation_get(matrix);
    if (std::isnan(counterClockwise))
        return {upright, false};
    return turnedBy(std::lround(-counterClockwise / 90), false);
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

int Turning::degreesClockwise() const noexcept {
    constexpr std::array<int, 8> degrees = {0, 0, 180, 180, 90, 90, 270, 270};
    return degrees[static_cast<size_t>(way - 1)];
}

bool Turning::isMirrored() const noexcept {
    return way == 2 || way == 4 || way == 5 || way == 7;
}

// A display matrix takes the stored column and row to the shown ones: its first column makes the
// shown column, its second the shown row.
Turning turningOfMatrix(const int32_t* matrix) {
    const int32_t columnToColumn = matrix[0];
    const int32_t columnToRow = matrix[1];
    const int32_t rowToColumn = matrix[3];
    const int32_t rowToRow = matrix[4];
    if (columnToRow == 0 && rowToColumn == 0 && columnToColumn != 0 && rowToRow != 0) {
        if (rowToRow > 0)
            return {columnToColumn < 0 ? 2 : upright};
        return {columnToColumn < 0 ? 3 : 4};
    }
    if (columnToColumn != 0 || rowToRow != 0 || columnToRow == 0 || rowToColumn == 0)
        return nearestTurn(matrix);
    if (columnToRow > 0)
        return {rowToColumn > 0 ? 5 : 6};
    return {rowToColumn < 0 ? 7 : 8};
}

Turning turningOf(const AVStream& stream) {
    if (const int32_t* matrix = compat::displayMatrix(stream))
        return turningOfMatrix(matrix);
    return turnedBy(getStreamRotation(&stream), true);
}

// The tag is what EXIF says, on the frame up to FFmpeg 7.1. Release 9 gives the display matrix
// alone, which release 4.3 did not make.
int orientationOf(const AVFrame& photo) {
    if (const auto* tag = av_dict_get(photo.metadata, "Orientation", nullptr, 0))
        return orientationOfTag(tag->value);
    const auto* matrix = av_frame_get_side_data(&photo, AV_FRAME_DATA_DISPLAYMATRIX);
    if (matrix == nullptr || static_cast<size_t>(matrix->size) < 9 * sizeof(int32_t))
        return upright;
    const Turning stated = turningOfMatrix(reinterpret_cast<const int32_t*>(matrix->data));
    return stated.exact ? stated.way : upright;
}

int parseQuarterTurns(const std::string& value) {
    size_t used = 0;
    int degrees = parseInteger(value, &used);
    if (used != value.size())
        throw std::invalid_argument("unexpected rotation value format");
    if (degrees < 0)
        degrees += 360;
    switch (degrees) {
    case 0:
        return 0;
    case 90:
        return 1;
    case 180:
        return 2;
    case 270:
        return 3;
    default:
        throw std::invalid_argument("invalid rotation value");
    }
}

RgbImage turnUpright(const RgbImage& stored, int orientation) {
    if (orientation == upright)
        return stored;
    const bool onItsSide = orientation >= 5;
    RgbImage turned(onItsSide ? Vec<int, 2>(stored.cols(), stored.rows()) : stored.size);
    const Walk walk = walkFor(orientation, stored.rows(), stored.cols());
    for (int row = 0; row < turned.rows(); ++row) {
        std::ptrdiff_t from = walk.first + row * walk.alongColumn;
        for (int col = 0; col < turned.cols(); ++col, from += walk.alongRow)
            turned(row, col) = stored.data()[from];
    }
    return turned;
}

} // namespace detail

int getStreamRotation(const AVStream* stream) {
    if (stream->metadata == nullptr)
        return 0;
    const AVDictionaryEntry* tag = av_dict_get(stream->metadata, "rotate", nullptr, 0);
    if (tag == nullptr || tag->value == nullptr)
        return 0;
    try {
        return detail::parseQuarterTurns(tag->value);
    } catch (const std::exception&) {
        constexpr int levelMalformed = 3;
        log::_output(detail::rootLogger, static_cast<log::Level>(levelMalformed),
                     std::string("Unable to parse video rotation metadata: \"") + tag->value +
                         "\". Assuming no rotation");
        return 0;
    }
}

} // namespace tio::ffmpeg
