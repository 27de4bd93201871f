#pragma once

#include <TARN/videoio/RgbImage.h>

#include <cstdint>
#include <string>

struct AVFrame;
struct AVStream;

/// @file
/// How a picture has to be turned to stand upright, whichever states it: a display matrix, a
/// "rotate" tag or a photo's EXIF. It is one of EXIF's numbers, 1 to 8: 1 upright, 2 mirrored left
/// to right, 3 upside down, 4 mirrored top to bottom; 5 to 8 lie on their side: 5 mirrored along
/// the diagonal from top left, 6 to be turned clockwise, 7 mirrored along the other diagonal, 8 to
/// be turned counter-clockwise.

namespace tio::ffmpeg::detail {

/// One of the eight ways, and whether it is what was stated.
struct Turning {
    int way = 1;       ///< 1 to 8
    bool exact = true; ///< false where none of the eight was stated: the nearest turn then

    /// Whether the upright picture is as wide as the stored one is high.
    [[nodiscard]] bool isOnItsSide() const noexcept { return way >= 5; }

    /// Degrees by which the stored picture is turned clockwise: 0, 90, 180 or 270.
    [[nodiscard]] int degreesClockwise() const noexcept;

    /// Whether it is mirrored left to right after that.
    [[nodiscard]] bool isMirrored() const noexcept;
};

/// Of the nine numbers of a display matrix. A shear or an angle between is taken as the nearest
/// quarter turn, and a matrix that leads everything to one place as upright.
[[nodiscard]] Turning turningOfMatrix(const int32_t* matrix);

/// Of a stream: its display matrix, or where it has none, its "rotate" tag.
[[nodiscard]] Turning turningOf(const AVStream& stream);

/// The orientation of a decoded photo; 1 where it states none, or none of the eight.
[[nodiscard]] int orientationOf(const AVFrame& photo);

/// Quarter turns, 0 to 3, of a "rotate" tag such as "90" or "-90".
/// @throws std::invalid_argument, std::out_of_range for a value that is no such number
[[nodiscard]] int parseQuarterTurns(const std::string& value);

/// The stored image in upright order. The orientation 1 copies nothing.
[[nodiscard]] RgbImage turnUpright(const RgbImage& stored, int orientation);

} // namespace tio::ffmpeg::detail
