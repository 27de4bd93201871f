#include "support/Expectations.h"

#include <TARN/core/Exception.h>
#include <TARN/imgproc/PixelFormat.h>
#include <TARN/videoio/Frame.h>

#include <gtest/gtest.h>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace tio {
namespace {

using Algorithm = Resize::Algorithm;
using Plane = Mat<uint8_t, 2, MatOptions<0, 1>>;
using RgbFrame = Frame<PixelFormat::RGB>;
using Nv12Frame = Frame<PixelFormat::NV12>;
using Scale = Rational<1, int>;

// Frames are destroyed as what they were made as, so the base needs no virtual destructor; one
// would take a place among the virtual functions.
static_assert(std::is_abstract_v<FrameBase>);
static_assert(!std::has_virtual_destructor_v<FrameBase>);

constexpr int height = 36;
constexpr int width = 54;

/// A plane in which no two neighbours are alike.
Plane pattern(int rows, int columns) {
    Plane plane(Vec<int, 2>(rows, columns));
    unsigned value = 1;
    for (int i = 0; i < plane.count; ++i) {
        value = value * 1103515245u + 12345u;
        plane.data()[i] = static_cast<uint8_t>(value >> 16);
    }
    return plane;
}

RgbFrame rgbFrame() {
    return {Vec<int, 2>(height, width), pattern(height, 3 * width)};
}

Nv12Frame nv12Frame() {
    return {Vec<int, 2>(height, width),
            Vec<Plane, 2>(pattern(height, width), pattern(height, width))};
}

template <typename T>
std::vector<T> valuesOf(const Mat<Vec<T, 3>, 2, MatOptions<1, 1>>& image) {
    std::vector<T> values;
    for (int row = 0; row < image.rows(); ++row) {
        for (int column = 0; column < image.cols(); ++column) {
            for (int i = 0; i < 3; ++i)
                values.push_back(image(row, column)[i]);
        }
    }
    return values;
}

/// Same size and the same values in it.
template <typename Image>
void expectEqual(const Image& found, const Image& expected) {
    EXPECT_EQ(found.size, expected.size);
    EXPECT_EQ(valuesOf(found), valuesOf(expected));
}

TEST(Frame, IsEmptyWhenItIsMadeOfNothing) {
    EXPECT_EQ(RgbFrame().plane.count, 0);
    EXPECT_EQ(Nv12Frame().planes[1].count, 0);
    EXPECT_EQ(RgbFrame().size, (Vec<int, 2>(0, 0)));
}

TEST(Frame, HoldsThePlanesItWasMadeOf) {
    const Plane luma = pattern(height, width);
    const Plane chroma = pattern(height, width);
    const Nv12Frame frame(Vec<int, 2>(height, width), Vec<Plane, 2>(luma, chroma));
    EXPECT_EQ(frame.size, (Vec<int, 2>(height, width)));
    EXPECT_EQ(frame.planes[0].storage, luma.storage);
    EXPECT_EQ(frame.planes[1].storage, chroma.storage);
}

TEST(Frame, WritingIntoAnImageChangesNeitherTheFrameNorItsNextImage) {
    const RgbFrame frame = rgbFrame();
    const std::vector<uint8_t> expected(frame.plane.data(), frame.plane.data() + frame.plane.count);
    auto image = frame.toRgb(1, Algorithm::Area);
    EXPECT_EQ(image.size, (Vec<int, 2>(height, width)));
    EXPECT_EQ(valuesOf(image), expected);
    image(0, 0) = Vec<uint8_t, 3>(1, 2, 3);
    image(height - 1, width - 1) = Vec<uint8_t, 3>(4, 5, 6);
    EXPECT_EQ(valuesOf(frame.toRgb(1, Algorithm::Area)), expected);
}

TEST(Frame, TellsItsSizeWhateverItsLayout) {
    const std::shared_ptr<const FrameBase> rgb = std::make_shared<RgbFrame>(rgbFrame());
    const std::shared_ptr<const FrameBase> nv12 = std::make_shared<Nv12Frame>(nv12Frame());
    EXPECT_EQ(rgb->getSize(), (Vec<int, 2>(height, width)));
    EXPECT_EQ(nv12->getSize(), (Vec<int, 2>(height, width)));
}

TEST(Frame, AskedWithoutArgumentsGivesThePictureInItsOwnSize) {
    const std::shared_ptr<FrameBase> frame = std::make_shared<RgbFrame>(rgbFrame());
    EXPECT_EQ(frame->toRgb().size, (Vec<int, 2>(height, width)));
    EXPECT_EQ(frame->toYCbCr().size, (Vec<int, 2>(height, width)));
}

TEST(Frame, AskedWithoutAlgorithmResizesByArea) {
    const std::shared_ptr<FrameBase> frame = std::make_shared<RgbFrame>(rgbFrame());
    expectEqual(frame->toRgb({1, 3}), frame->toRgb({1, 3}, Algorithm::Area));
    expectEqual(frame->toYCbCr({1, 3}), frame->toYCbCr({1, 3}, Algorithm::Area));
}

TEST(Frame, ImagesStayWhenTheFrameIsGone) {
    auto frame = std::make_shared<RgbFrame>(rgbFrame());
    const std::vector<uint8_t> expected(frame->plane.data(),
                                        frame->plane.data() + frame->plane.count);
    const auto image = frame->toRgb(1, Algorithm::Area);
    frame.reset();
    EXPECT_EQ(valuesOf(image), expected);
}

TEST(Frame, RefusesAScaleThatGivesNoPicture) {
    EXPECT_THROW((void)rgbFrame().toRgb(0, Algorithm::Area), Exception);
    EXPECT_THROW((void)nv12Frame().toYCbCr(Scale(-1, 2), Algorithm::Area), Exception);
}

// Neither scale nor algorithm is changed on the way to the converters.
class FrameForwards : public ::testing::TestWithParam<std::tuple<Scale, Algorithm>> {
protected:
    const Scale scale = std::get<0>(GetParam());
    const Algorithm algorithm = std::get<1>(GetParam());
};

TEST_P(FrameForwards, RgbToRgb) {
    RgbFrame frame = rgbFrame();
    expectEqual(frame.toRgb(scale, algorithm),
                PixelFormat::RGB::Rgb(Vec<Plane, 1>(frame.plane), scale, algorithm));
}

TEST_P(FrameForwards, RgbToYCbCr) {
    RgbFrame frame = rgbFrame();
    expectEqual(frame.toYCbCr(scale, algorithm),
                PixelFormat::RGB::YCbCr(Vec<Plane, 1>(frame.plane), scale, algorithm));
}

TEST_P(FrameForwards, Nv12ToRgb) {
    Nv12Frame frame = nv12Frame();
    expectEqual(frame.toRgb(scale, algorithm),
                PixelFormat::NV12::Rgb(frame.planes, scale, algorithm));
}

TEST_P(FrameForwards, Nv12ToYCbCr) {
    Nv12Frame frame = nv12Frame();
    expectEqual(frame.toYCbCr(scale, algorithm),
                PixelFormat::NV12::YCbCr(frame.planes, scale, algorithm));
}

INSTANTIATE_TEST_SUITE_P(Arguments, FrameForwards,
                         ::testing::Combine(::testing::Values(Scale(1), Scale(1, 2), Scale(3, 2)),
                                            ::testing::Values(Algorithm::Nearest, Algorithm::Area,
                                                              Algorithm::Lanczos)));

} // namespace
} // namespace tio
