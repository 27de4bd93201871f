#include <TARN/videoio/Frame.h>

#include <algorithm>
#include <utility>

namespace tio {

namespace {

using YCbCrImage = Mat<Vec<float, 3>, 2, MatOptions<1, 1>>;
using Plane = Mat<uint8_t, 2, MatOptions<0, 1>>;

RgbImage copyOf(const RgbImage& image) {
    RgbImage copy(image.size);
    std::copy_n(image.data(), image.count, copy.data());
    return copy;
}

} // namespace

Frame<PixelFormat::RGB>::Frame(Vec<int, 2> pictureSize, Plane packed)
    : size(pictureSize), plane(std::move(packed)) {}

RgbImage Frame<PixelFormat::RGB>::toRgb(Rational<1, int> scale, Resize::Algorithm algorithm) const {
    RgbImage image = PixelFormat::RGB::Rgb(Vec<Plane, 1>(plane), scale, algorithm);
    // Where nothing had to be converted this is the plane itself, which is not the caller's to
    // write into.
    return image.storage == plane.storage ? copyOf(image) : image;
}

YCbCrImage Frame<PixelFormat::RGB>::toYCbCr(Rational<1, int> scale,
                                            Resize::Algorithm algorithm) const {
    return PixelFormat::RGB::YCbCr(Vec<Plane, 1>(plane), scale, algorithm);
}

Frame<PixelFormat::NV12>::Frame(Vec<int, 2> pictureSize, Vec<Plane, 2> both)
    : size(pictureSize), planes(std::move(both)) {}

RgbImage Frame<PixelFormat::NV12>::toRgb(Rational<1, int> scale,
                                         Resize::Algorithm algorithm) const {
    return PixelFormat::NV12::Rgb(planes, scale, algorithm);
}

YCbCrImage Frame<PixelFormat::NV12>::toYCbCr(Rational<1, int> scale,
                                             Resize::Algorithm algorithm) const {
    return PixelFormat::NV12::YCbCr(planes, scale, algorithm);
}

} // namespace tio
