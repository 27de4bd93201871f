#include "Bt601.h"
#include "PlanarPicture.h"
#include "PlaneView.h"
#include "Resizer.h"
#include "scaledSize.h"

#include <TARN/imgproc/PixelFormat.h>

#include <algorithm>
#include <libyuv.h>

namespace tio::PixelFormat {

namespace {

/// The two planes of a semi-planar picture, checked. Only the rows and columns of chroma that the
/// picture needs are looked at; there may be more.
struct SemiPlanarPicture {
    explicit SemiPlanarPicture(const Vec<Plane, 2>& planes)
        : luma(planes[0], planes[0].rows(), planes[0].cols()),
          chroma(planes[1], halfRoundedUp(planes[0].rows()),
                 int64_t{2} * halfRoundedUp(planes[0].cols())),
          size(planes[0].size) {}

    PlaneView luma;
    PlaneView chroma; // (Cb, Cr) pairs
    Vec<int, 2> size; // (height, width) in pixels
};

/// @param rowsPerChroma rows that share their chroma.
/// @param fillTerms (terms, row, col, pixels): the chroma of so many pixels from (row, col) on.
template <typename Luma, typename FillTerms>
RgbImage writeRgbImage(Vec<int, 2> size, const Luma& luma, int rowsPerChroma, FillTerms fillTerms) {
    RgbImage image(size);
    bt601::ChromaTerms terms;
    for (int top = 0; top < size[0]; top += rowsPerChroma) {
        const int bottom = std::min(top + rowsPerChroma, size[0]);
        for (int col = 0; col < size[1]; col += bt601::spanPixels) {
            const int pixels = std::min(bt601::spanPixels, size[1] - col);
            fillTerms(terms, top, col, pixels);
            for (int row = top; row < bottom; ++row)
                bt601::writeRgb(luma.row(row) + col, terms, pixels, &image(row, col));
        }
    }
    return image;
}

RgbImage toRgb(const SemiPlanarPicture& picture) {
    return writeRgbImage(picture.size, picture.luma, 2,
                         [&](bt601::ChromaTerms& terms, int row, int col, int pixels) {
                             terms.fromPairs(picture.chroma.row(row / 2) + col, pixels);
                         });
}

RgbImage toRgb(const PlanarPicture& picture) {
    const PlaneBuffer& cb = picture.planes[1];
    const PlaneBuffer& cr = picture.planes[2];
    return writeRgbImage(picture.size, picture.planes[0], 1,
                         [&](bt601::ChromaTerms& terms, int row, int col, int pixels) {
                             terms.fromPlanes(cb.row(row) + col, cr.row(row) + col, pixels);
                         });
}

YCbCrImage toYCbCr(const SemiPlanarPicture& picture) {
    YCbCrImage image(picture.size);
    for (int row = 0; row < image.rows(); ++row)
        bt601::writeYCbCrOfPairs(picture.luma.row(row), picture.chroma.row(row / 2), image.cols(),
                                 &image(row, 0));
    return image;
}

YCbCrImage toYCbCr(const PlanarPicture& picture) {
    YCbCrImage image(picture.size);
    const auto& [luma, cb, cr] = picture.planes;
    for (int row = 0; row < image.rows(); ++row)
        bt601::writeYCbCrOfPlanes(luma.row(row), cb.row(row), cr.row(row), image.cols(),
                                  &image(row, 0));
    return image;
}

PlanarPicture split(const SemiPlanarPicture& picture) {
    PlanarPicture result = makeTightPicture(picture.size, Sampling::Quarter);
    auto& [luma, cb, cr] = result.planes;
    libyuv::CopyPlane(picture.luma.row(0), picture.luma.step(), luma.row(0), luma.step(),
                      picture.size[1], picture.size[0]);
    libyuv::SplitUVPlane(picture.chroma.row(0), picture.chroma.step(), cb.row(0), cb.step(),
                         cr.row(0), cr.step(), halfRoundedUp(picture.size[1]),
                         halfRoundedUp(picture.size[0]));
    return result;
}

PlanarPicture resized(const SemiPlanarPicture& picture, Vec<int, 2> size,
                      Resize::Algorithm algorithm) {
    Resizer resizer(Sampling::Quarter, picture.size, size, algorithm);
    return resizer.resize(split(picture));
}

} // namespace

RgbImage NV12::Rgb(const Vec<Plane, 2>& planes, Rational<1, int> scale,
                   Resize::Algorithm algorithm) {
    const SemiPlanarPicture picture(planes);
    const Vec<int, 2> size = scaledSize(picture.size, scale);
    return size == picture.size ? toRgb(picture) : toRgb(resized(picture, size, algorithm));
}

YCbCrImage NV12::YCbCr(const Vec<Plane, 2>& planes, Rational<1, int> scale,
                       Resize::Algorithm algorithm) {
    const SemiPlanarPicture picture(planes);
    const Vec<int, 2> size = scaledSize(picture.size, scale);
    return size == picture.size ? toYCbCr(picture) : toYCbCr(resized(picture, size, algorithm));
}

} // namespace tio::PixelFormat
