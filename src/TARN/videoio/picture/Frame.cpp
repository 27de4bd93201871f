#include <TARN/videoio/Frame.h>

#include <utility>

namespace tio {

namespace {

using RgbImage = Mat<Vec<uint8_t, 3>, 2, MatOptions<1, 1>>;
using YCbCrImage = Mat<Vec<float, 3>, 2, MatOptions<1, 1>>;
using Plane = Mat<uint8_t, 2, MatOptions<0, 1>>;

} // namespace

Frame<PixelFormat::RGB>::Frame(Vec<int, 2> pictureSize, Plane packed)
    : size(pictureSize), plane(std::move(packed)) {}

RgbImage Frame<PixelFormat::RGB>::toRgb(Rational<1, int> scale, Resize::Algorithm algorithm) {
    return PixelFormat::RGB::Rgb(Vec<Plane, 1>(plane), scale, algorithm);
}

YCbCrImage Frame<PixelFormat::RGB>::toYCbCr(Rational<1, int> scale, Resize::Algorithm algorithm) {
    return PixelFormat::RGB::YCbCr(Vec<Plane, 1>(plane), scale, algorithm);
}

Frame<PixelFormat::NV12>::Frame(Vec<int, 2> pictureSize, Vec<Plane, 2> both)
    : size(pictureSize), planes(std::move(both)) {}

RgbImage Frame<PixelFormat::NV12>::toRgb(Rational<1, int> scale, Resize::Algorithm algorithm) {
    return PixelFormat::NV12::Rgb(planes, scale, algorithm);
}

YCbCrImage Frame<PixelFormat::NV12>::toYCbCr(Rational<1, int> scale, Resize::Algorithm algorithm) {
    return PixelFormat::NV12::YCbCr(planes, scale, algorithm);
}

} // namespace tio
