#include "GuardedPlane.h"
#include "bt601.h"
#include "pictures.h"

#include <TARN/core/Exception.h>

#include <algorithm>
#include <gtest/gtest.h>

namespace {

using namespace pictures;
using tio::PixelFormat::RGB;

Pixel scatteredPixel(int row, int col) {
    return Pixel(static_cast<uint8_t>(scatter(row, col)), static_cast<uint8_t>(scatter(col, row)),
                 static_cast<uint8_t>(scatter(row + 5, col)));
}

bool isPlain(const tio::PixelFormat::RgbImage& image, const Pixel& colour) {
    return std::all_of(image.data(), image.data() + image.count,
                       [&](const Pixel& pixel) { return pixel == colour; });
}

bt601::Exact exactYCbCr(const Pixel& pixel) {
    return bt601::yCbCrOf(pixel[0] / 255.0, pixel[1] / 255.0, pixel[2] / 255.0);
}

TEST(RGB, SharesThePixelsAtScaleOne) {
    const auto planes = rgbOf(Size(6, 7), scatteredPixel);
    const auto image = RGB::Rgb(planes, Scale(1, 1), Algorithm::Bilinear);
    EXPECT_EQ(image.storage, planes[0].storage);
    EXPECT_EQ(image.size, Size(6, 7));
    EXPECT_EQ(image.step, Size(7, 1));
    EXPECT_EQ(image(5, 6), scatteredPixel(5, 6));
}

TEST(RGB, SharesThePixelsWhenTheFactorChangesNoDimension) {
    const auto planes = rgbOf(Size(3, 3), scatteredPixel);
    EXPECT_EQ(RGB::Rgb(planes, Scale(9, 10), Algorithm::Area).storage, planes[0].storage);
}

TEST(RGB, GapsBetweenRowsAreNotPartOfTheImage) {
    const auto planes = rgbOf(Size(5, 7), scatteredPixel);
    const Vec<Plane, 1> wide = {withGaps(planes[0], 11)};
    for (const Scale scale : {Scale(1), Scale(1, 2), Scale(2)}) {
        EXPECT_TRUE(equal(RGB::Rgb(wide, scale, Algorithm::Bicubic),
                          RGB::Rgb(planes, scale, Algorithm::Bicubic)))
            << "scale " << scale;
    }
}

TEST(RGB, PlainColoursStayWhatTheyAreInEverySize) {
    const Pixel colour(250, 3, 128);
    for (int rows = 1; rows <= 40; rows += rows < 9 ? 1 : 7) {
        for (int cols = 1; cols <= 40; ++cols) {
            const auto planes = rgbOf(Size(rows, cols), [&](int, int) { return colour; });
            for (const Algorithm algorithm : algorithms) {
                for (const Scale scale : {Scale(1, 3), Scale(5, 4), Scale(7, 2)}) {
                    const auto image = RGB::Rgb(planes, scale, algorithm);
                    ASSERT_TRUE(isPlain(image, colour))
                        << rows << "x" << cols << " by " << scale << ", algorithm "
                        << static_cast<int>(algorithm);
                }
            }
        }
    }
}

TEST(RGB, NearestTakesThePixelUnderTheCentre) {
    const auto planes = rgbOf(Size(9, 14), scatteredPixel);
    // No centre of these falls on a border between two pixels.
    for (const Scale scale : {Scale(1, 3), Scale(2), Scale(3), Scale(5)}) {
        const auto image = RGB::Rgb(planes, scale, Algorithm::Nearest);
        for (int row = 0; row < image.rows(); ++row) {
            for (int col = 0; col < image.cols(); ++col) {
                const int fromRow = (2 * row + 1) * 9 / (2 * image.rows());
                const int fromCol = (2 * col + 1) * 14 / (2 * image.cols());
                ASSERT_EQ(image(row, col), scatteredPixel(fromRow, fromCol))
                    << "at " << row << ", " << col << " of scale " << scale;
            }
        }
    }
}

TEST(RGB, AreaHalvesByTheMeanOfFour) {
    const auto planes = rgbOf(Size(16, 22), scatteredPixel);
    const auto image = RGB::Rgb(planes, Scale(1, 2), Algorithm::Area);
    for (int row = 0; row < image.rows(); ++row) {
        for (int col = 0; col < image.cols(); ++col) {
            for (int colour = 0; colour < 3; ++colour) {
                const double sum = scatteredPixel(2 * row, 2 * col)[colour] +
                                   scatteredPixel(2 * row, 2 * col + 1)[colour] +
                                   scatteredPixel(2 * row + 1, 2 * col)[colour] +
                                   scatteredPixel(2 * row + 1, 2 * col + 1)[colour];
                ASSERT_NEAR(image(row, col)[colour], sum / 4, 1.0) << "at " << row << ", " << col;
            }
        }
    }
}

TEST(RGB, InterpolationKeepsARamp) {
    // A straight ramp is the same after any interpolation, away from the borders.
    const auto ramp = rgbOf(Size(4, 40), [](int, int col) {
        return Pixel(static_cast<uint8_t>(6 * col), static_cast<uint8_t>(250 - 6 * col), 100);
    });
    for (const Algorithm algorithm :
         {Algorithm::Bilinear, Algorithm::Bicubic, Algorithm::Lanczos}) {
        const auto image = RGB::Rgb(ramp, Scale(2), algorithm);
        for (int col = 10; col < 70; ++col) {
            const double source = (col + 0.5) / 2 - 0.5;
            ASSERT_NEAR(image(3, col)[0], 6 * source, 2.0) << static_cast<int>(algorithm);
            ASSERT_NEAR(image(3, col)[1], 250 - 6 * source, 2.0) << static_cast<int>(algorithm);
            ASSERT_EQ(image(3, col)[2], 100) << static_cast<int>(algorithm);
        }
    }
}

TEST(RGB, YCbCrOfBasicColours) {
    // Worked out by hand: the weights themselves, 0.886 / 1.772 = 0.5 and so on.
    const struct {
        Pixel rgb;
        bt601::Exact yCbCr;
    } rows[] = {
        {Pixel(0, 0, 0), {0, 0, 0}},
        {Pixel(255, 255, 255), {1, 0, 0}},
        {Pixel(255, 0, 0), {0.299, -0.168736, 0.5}},
        {Pixel(0, 255, 0), {0.587, -0.331264, -0.418688}},
        {Pixel(0, 0, 255), {0.114, 0.5, -0.081312}},
        {Pixel(51, 51, 51), {0.2, 0, 0}},
    };
    for (const auto& row : rows) {
        const auto planes = rgbOf(Size(1, 1), [&](int, int) { return row.rgb; });
        const auto image = RGB::YCbCr(planes, Scale(1), Algorithm::Nearest);
        EXPECT_LT(bt601::distance(image(0, 0), row.yCbCr), 1e-5) << testing::PrintToString(row.rgb);
    }
}

TEST(RGB, YCbCrOfEveryPixelFollowsTheEquations) {
    // More columns than are converted in one go.
    const auto image = RGB::YCbCr(rgbOf(Size(5, 1237), scatteredPixel), Scale(1), Algorithm::Area);
    for (int row = 0; row < 5; ++row) {
        for (int col = 0; col < 1237; ++col)
            ASSERT_LT(bt601::distance(image(row, col), exactYCbCr(scatteredPixel(row, col))), 1e-5)
                << "at " << row << ", " << col;
    }
}

TEST(RGB, YCbCrStaysInItsRange) {
    // The corners and edges of the colour cube, where rounding could step over.
    const auto corner = [](int bit) { return static_cast<uint8_t>(bit ? 255 : 0); };
    const auto planes = rgbOf(Size(8, 256), [&](int row, int col) {
        return Pixel(corner(row & 1), corner(row & 2),
                     row & 4 ? static_cast<uint8_t>(col) : corner(col & 1));
    });
    const auto image = RGB::YCbCr(planes, Scale(1), Algorithm::Area);
    for (int i = 0; i < image.count; ++i) {
        const Vec<float, 3> pixel = image.data()[i];
        ASSERT_TRUE(pixel[0] >= 0.0F && pixel[0] <= 1.0F) << i;
        ASSERT_TRUE(pixel[1] >= -0.5F && pixel[1] <= 0.5F) << i;
        ASSERT_TRUE(pixel[2] >= -0.5F && pixel[2] <= 0.5F) << i;
    }
}

TEST(RGB, YCbCrIsResizedAsRgb) {
    const auto planes = rgbOf(Size(12, 18), scatteredPixel);
    const auto rgb = RGB::Rgb(planes, Scale(2, 3), Algorithm::Bicubic);
    const auto image = RGB::YCbCr(planes, Scale(2, 3), Algorithm::Bicubic);
    ASSERT_EQ(image.size, rgb.size);
    for (int i = 0; i < image.count; ++i)
        ASSERT_LT(bt601::distance(image.data()[i], exactYCbCr(rgb.data()[i])), 1e-5) << i;
}

TEST(RGB, PlanesThatAreNoPictureAreRefused) {
    const Plane good = planeOf(Size(2, 6), scatter);
    Plane columns = good;
    columns.step = Size(1, 2);
    Plane overlapping = good;
    overlapping.step = Size(5, 1);
    for (const Plane& plane :
         {Plane(), Plane(Size(0, 6)), Plane(Size(2, 0)), Plane(Size(2, 5)), columns, overlapping}) {
        EXPECT_THROW((void)RGB::Rgb({plane}, Scale(1), Algorithm::Area), tio::Exception);
        EXPECT_THROW((void)RGB::YCbCr({plane}, Scale(1, 2), Algorithm::Area), tio::Exception);
    }
}

TEST(RGB, ReadsNothingBehindThePlane) {
    for (int cols = 1; cols <= 40; ++cols) {
        const auto planes = rgbOf(Size(3, cols), scatteredPixel);
        const Vec<Plane, 1> guarded = {guardedCopy(planes[0])};
        for (const Scale scale : {Scale(1), Scale(1, 2), Scale(3)}) {
            EXPECT_TRUE(equal(RGB::YCbCr(guarded, scale, Algorithm::Lanczos),
                              RGB::YCbCr(planes, scale, Algorithm::Lanczos)))
                << cols << " columns by " << scale;
        }
    }
}

} // namespace
