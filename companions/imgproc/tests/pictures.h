#pragma once

#include <TARN/imgproc/PixelFormat.h>

#include <cstdint>

/// Pictures that tests make, and the calls that they make most.
namespace pictures {

using tio::Vec;
using tio::PixelFormat::Plane;
using Size = Vec<int, 2>;
using Scale = tio::Rational<1, int>;
using Algorithm = tio::Resize::Algorithm;
using Pixel = Vec<uint8_t, 3>;

constexpr Algorithm algorithms[] = {Algorithm::Nearest, Algorithm::Bilinear, Algorithm::Area,
                                    Algorithm::Bicubic, Algorithm::Lanczos};

/// A plane whose bytes are `byteAt(row, col)`.
template <typename ByteAt>
Plane planeOf(Size size, ByteAt byteAt) {
    Plane plane(size);
    for (int row = 0; row < size[0]; ++row) {
        for (int col = 0; col < size[1]; ++col)
            plane(row, col) = static_cast<uint8_t>(byteAt(row, col));
    }
    return plane;
}

/// Packed RGB whose pixels are `pixelAt(row, col)`.
template <typename PixelAt>
Vec<Plane, 1> rgbOf(Size size, PixelAt pixelAt) {
    return {planeOf(Size(size[0], 3 * size[1]), [&](int row, int col) {
        const Pixel pixel = pixelAt(row, col / 3);
        return pixel[col % 3];
    })};
}

/// NV12 with the chroma plane as the video decoder allocates it: as many rows as luma, of which the
/// converter must leave the lower half alone; it holds `rubbish`.
template <typename LumaAt, typename ChromaAt>
Vec<Plane, 2> nv12Of(Size size, LumaAt lumaAt, ChromaAt chromaAt) {
    constexpr int rubbish = 77;
    const int usedRows = (size[0] + 1) / 2;
    const int evenWidth = size[1] + size[1] % 2;
    return {planeOf(size, lumaAt), planeOf(Size(size[0], evenWidth), [&](int row, int col) {
                return row < usedRows ? chromaAt(row, col / 2)[col % 2] : rubbish;
            })};
}

/// NV12 of one colour.
inline Vec<Plane, 2> plainNv12(Size size, int luma, int cb, int cr) {
    return nv12Of(
        size, [=](int, int) { return luma; }, [=](int, int) { return Vec<int, 2>(cb, cr); });
}

/// A value from 0 to 255 that differs between neighbours; the same in every run.
inline int scatter(int row, int col) {
    return (row * 151 + col * 97 + row * col * 31) % 256;
}

/// A copy of `plane` whose rows lie `gap` bytes apart; the gaps hold other bytes.
inline Plane withGaps(const Plane& plane, int gap) {
    const int step = plane.cols() + gap;
    Plane wide = planeOf(Size(plane.rows(), step), [&](int row, int col) {
        return col < plane.cols() ? plane(row, col) : 0xEE;
    });
    wide.size = plane.size;
    wide.count = plane.count;
    return wide;
}

/// Whether two images have the same size and pixels.
template <typename Image>
bool equal(const Image& a, const Image& b) {
    if (a.size != b.size)
        return false;
    for (int row = 0; row < a.rows(); ++row) {
        for (int col = 0; col < a.cols(); ++col) {
            if (a(row, col) != b(row, col))
                return false;
        }
    }
    return true;
}

} // namespace pictures
