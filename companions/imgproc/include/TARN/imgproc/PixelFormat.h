#pragma once

#include <TARN/core/Mat.h>
#include <TARN/core/Rational.h>
#include <TARN/core/Resize.h>
#include <TARN/core/Vec.h>
#include <TARN/imgproc/Export.h>

#include <cstdint>

/// Memory layouts of 8-bit pictures, each a class that turns its planes into images.
///
/// Common to all functions here:
/// - `scale` is the factor of both dimensions. Each dimension of the result is that of the input
///   times the factor, rounded to nearest and at least 1. Any factor that leaves the size as it is
///   counts as 1/1: nothing is resampled.
/// - Colours follow ITU-R BT.601. Chroma is taken to lie in the middle of the pixels it covers.
/// - Planes may have any row distance `step[0]` of at least their columns; `step[1]` must be 1.
/// They
///   are read, never written.
/// - `tio::Exception` is thrown for planes that are empty or do not fit together, for a factor that
///   is not positive or has a zero denominator, for an algorithm that does not exist, and for a
///   result of more than 2^31 - 1 bytes (as 8-bit RGB) or one that no converter can produce.
///
/// Thread rule: no state; every function may be called from any thread.
namespace tio::PixelFormat {

/// One plane of bytes.
using Plane = Mat<uint8_t, 2, MatOptions<0, 1>>;

/// Pixels of (R, G, B), each 0 to 255; rows follow each other without gaps.
using RgbImage = Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>;

/// Pixels of (Y, Cb, Cr): Y in [0, 1] from black to white, Cb and Cr in [-0.5, 0.5].
using YCbCrImage = Mat<Vec<float, 3>, 2, MatOptions<1, 1>>;

/// Packed 8-bit RGB: one plane of height rows and 3 x width columns, bytes R, G, B, R, G, B, ...
struct TARN_IMGPROC_API RGB {
    /// The picture as RGB. At scale 1/1 a plane without gaps between its rows is handed on as it
    /// is: the result shares its storage and no pixel is copied.
    [[nodiscard]] static RgbImage Rgb(const Vec<Plane, 1>& planes, Rational<1, int> scale,
                                      Resize::Algorithm algorithm);

    /// The picture as YCbCr of full range: RGB is resized first, then each pixel is converted.
    [[nodiscard]] static YCbCrImage YCbCr(const Vec<Plane, 1>& planes, Rational<1, int> scale,
                                          Resize::Algorithm algorithm);
};

/// Semi-planar 4:2:0 of limited range (luma 16 to 235, chroma 16 to 240).
///
/// Plane 0 is luma, height rows and width columns. Plane 1 holds pairs of Cb and Cr, each for two
/// by two pixels: at least (height + 1) / 2 rows and an even number of columns that is at least the
/// width. Further rows are ignored, whatever they hold.
struct TARN_IMGPROC_API NV12 {
    /// The picture as RGB; each value is within 1 of the exact one before resizing.
    [[nodiscard]] static RgbImage Rgb(const Vec<Plane, 2>& planes, Rational<1, int> scale,
                                      Resize::Algorithm algorithm);

    /// The picture as YCbCr. Values beyond the limited range are clamped to the range above.
    [[nodiscard]] static YCbCrImage YCbCr(const Vec<Plane, 2>& planes, Rational<1, int> scale,
                                          Resize::Algorithm algorithm);
};

} // namespace tio::PixelFormat
