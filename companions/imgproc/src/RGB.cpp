#include "Bt601.h"
#include "PlanarPicture.h"
#include "PlaneView.h"
#include "Resizer.h"
#include "scaledSize.h"
#include "splitRgb.h"

#include <TARN/core/Exception.h>
#include <TARN/imgproc/PixelFormat.h>

#include <cstring>
#include <libyuv.h>

namespace tio::PixelFormat {

namespace {

/// The one plane of a packed picture, checked.
struct PackedPicture {
    explicit PackedPicture(const Plane& plane)
        : view(plane, plane.rows(), plane.cols()), size(plane.rows(), plane.cols() / 3) {
        if (plane.cols() % 3 != 0)
            throw Exception("A row of packed RGB must hold three bytes per pixel");
    }

    PlaneView view;
    Vec<int, 2> size; // (height, width) in pixels
};

RgbImage withoutGaps(const Plane& plane, const PackedPicture& picture) {
    if (picture.view.step() == plane.cols())
        return RgbImage(picture.size, plane.storage);
    RgbImage image(picture.size);
    for (int row = 0; row < image.rows(); ++row)
        std::memcpy(&image(row, 0), picture.view.row(row), static_cast<std::size_t>(plane.cols()));
    return image;
}

PlanarPicture split(const PackedPicture& picture) {
    PlanarPicture result = makeTightPicture(picture.size, Sampling::Full);
    auto& [red, green, blue] = result.planes;
    for (int row = 0; row < picture.size[0]; ++row)
        splitRgb(picture.view.row(row), red.row(row), green.row(row), blue.row(row),
                 picture.size[1]);
    return result;
}

RgbImage merge(const PlanarPicture& picture) {
    RgbImage image(picture.size);
    const auto& [red, green, blue] = picture.planes;
    libyuv::MergeRGBPlane(red.row(0), red.step(), green.row(0), green.step(), blue.row(0),
                          blue.step(), image(0, 0).begin(), 3 * image.cols(), image.cols(),
                          image.rows());
    return image;
}

} // namespace

RgbImage RGB::Rgb(const Vec<Plane, 1>& planes, Rational<1, int> scale,
                  Resize::Algorithm algorithm) {
    const PackedPicture picture(planes[0]);
    const Vec<int, 2> size = scaledSize(picture.size, scale);
    if (size == picture.size)
        return withoutGaps(planes[0], picture);
    Resizer resizer(Sampling::Full, picture.size, size, algorithm);
    return merge(resizer.resize(split(picture)));
}

YCbCrImage RGB::YCbCr(const Vec<Plane, 1>& planes, Rational<1, int> scale,
                      Resize::Algorithm algorithm) {
    const RgbImage rgb = Rgb(planes, scale, algorithm);
    YCbCrImage image(rgb.size);
    bt601::writeYCbCrOfRgb(rgb.data(), rgb.count, image.data());
    return image;
}

} // namespace tio::PixelFormat
