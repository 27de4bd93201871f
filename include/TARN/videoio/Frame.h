#pragma once

#include <TARN/core/Mat.h>
#include <TARN/core/Rational.h>
#include <TARN/core/Resize.h>
#include <TARN/core/Vec.h>
#include <TARN/imgproc/PixelFormat.h>
#include <TARN/videoio/Export.h>
#include <TARN/videoio/RgbImage.h>

#include <cstdint>

namespace tio {

/// A decoded picture, whatever its layout. Frames are made by decoders and held by
/// std::shared_ptr. They never change once made, and they stay valid when the decoder goes on or
/// goes away. What toRgb() and toYCbCr() give is the caller's own.
/// Thread rule: any threads may read a frame at once.
class TARN_VIDEOIO_API FrameBase {
public:
    /// The picture as 8-bit RGB, rows × columns, resized by `scale` (1/1 keeps the size).
    /// @throws tio::Exception for a scale that gives no picture
    [[nodiscard]] virtual RgbImage
    toRgb(Rational<1, int> scale = {1},
          Resize::Algorithm algorithm = Resize::Algorithm::Area) const = 0;

    /// The picture as Y in [0, 1] and Cb, Cr in [-0.5, 0.5], resized by `scale`.
    /// @throws tio::Exception for a scale that gives no picture
    [[nodiscard]] virtual Mat<Vec<float, 3>, 2, MatOptions<1, 1>>
    toYCbCr(Rational<1, int> scale = {1},
            Resize::Algorithm algorithm = Resize::Algorithm::Area) const = 0;

    /// Height, width in pixels.
    [[nodiscard]] virtual Vec<int, 2> getSize() const noexcept = 0;

protected:
    // Not virtual: frames are made by std::make_shared of their own type, which destroys them.
    ~FrameBase() = default;
};

/// A picture in the layout of one of the classes `tio::PixelFormat::RGB` and
/// `tio::PixelFormat::NV12`.
template <typename Format>
class Frame;

/// A packed RGB picture.
/// Thread rule: as FrameBase.
template <>
class TARN_VIDEOIO_API Frame<PixelFormat::RGB> final : public FrameBase {
public:
    Frame() = default;
    Frame(Vec<int, 2> size, Mat<uint8_t, 2, MatOptions<0, 1>> plane);

    RgbImage toRgb(Rational<1, int> scale, Resize::Algorithm algorithm) const override;
    Mat<Vec<float, 3>, 2, MatOptions<1, 1>> toYCbCr(Rational<1, int> scale,
                                                    Resize::Algorithm algorithm) const override;

    [[nodiscard]] Vec<int, 2> getSize() const noexcept override { return size; }

    Vec<int, 2> size;                        ///< height, width in pixels
    Mat<uint8_t, 2, MatOptions<0, 1>> plane; ///< height × (3 × width) bytes R, G, B
};

/// A picture of a luma plane and an interleaved chroma plane at half the resolution.
/// Thread rule: as FrameBase.
template <>
class TARN_VIDEOIO_API Frame<PixelFormat::NV12> final : public FrameBase {
public:
    Frame() = default;
    Frame(Vec<int, 2> size, Vec<Mat<uint8_t, 2, MatOptions<0, 1>>, 2> planes);

    RgbImage toRgb(Rational<1, int> scale, Resize::Algorithm algorithm) const override;
    Mat<Vec<float, 3>, 2, MatOptions<1, 1>> toYCbCr(Rational<1, int> scale,
                                                    Resize::Algorithm algorithm) const override;

    [[nodiscard]] Vec<int, 2> getSize() const noexcept override { return size; }

    Vec<int, 2> size; ///< height, width in pixels

    /// Luma: height × width bytes. Chroma: height × (width rounded up to even) bytes Cb, Cr, of
    /// which the first ⌈height / 2⌉ rows are the picture and the rest is left as allocated.
    Vec<Mat<uint8_t, 2, MatOptions<0, 1>>, 2> planes;
};

} // namespace tio
