#include "GuardedPlane.h"
#include "bt601.h"
#include "pictures.h"

#include <TARN/core/Exception.h>

#include <algorithm>
#include <gtest/gtest.h>

namespace {

using namespace pictures;
using tio::PixelFormat::NV12;

Vec<int, 2> scatteredChroma(int row, int col) {
    return {scatter(row + 3, col), scatter(col, row + 9)};
}

Vec<Plane, 2> scattered(Size size) {
    return nv12Of(size, scatter, scatteredChroma);
}

bt601::Exact exactRgb(int row, int col) {
    const Vec<int, 2> chroma = scatteredChroma(row / 2, col / 2);
    return bt601::rgbOfLimited(scatter(row, col), chroma[0], chroma[1]);
}

double clamped(double value, double least, double most) {
    return std::min(most, std::max(least, value));
}

bt601::Exact exactYCbCr(int luma, int cb, int cr) {
    return {clamped((luma - 16) / 219.0, 0, 1), clamped((cb - 128) / 224.0, -0.5, 0.5),
            clamped((cr - 128) / 224.0, -0.5, 0.5)};
}

TEST(NV12, RgbOfTheColourBars) {
    // The codes of fully saturated colours, as test signals define them.
    const struct {
        int luma, cb, cr;
        Pixel rgb;
    } bars[] = {
        {235, 128, 128, Pixel(255, 255, 255)}, {210, 16, 146, Pixel(255, 255, 0)},
        {170, 166, 16, Pixel(0, 255, 255)},    {145, 54, 34, Pixel(0, 255, 0)},
        {106, 202, 222, Pixel(255, 0, 255)},   {81, 90, 240, Pixel(255, 0, 0)},
        {41, 240, 110, Pixel(0, 0, 255)},      {16, 128, 128, Pixel(0, 0, 0)},
    };
    for (const auto& bar : bars) {
        const auto image =
            NV12::Rgb(plainNv12(Size(2, 2), bar.luma, bar.cb, bar.cr), Scale(1), Algorithm::Area);
        for (int colour = 0; colour < 3; ++colour)
            EXPECT_NEAR(image(1, 1)[colour], bar.rgb[colour], 1) << testing::PrintToString(bar.rgb);
    }
}

TEST(NV12, RgbIsWithinOneOfTheExactValue) {
    // Every luma and Cr, with a Cb that passes all values as the rows go on.
    for (int cb = 0; cb < 256; cb += 5) {
        const auto planes = nv12Of(
            Size(512, 512), [](int row, int) { return row / 2; },
            [=](int, int col) { return Vec<int, 2>(cb, col); });
        const auto image = NV12::Rgb(planes, Scale(1), Algorithm::Area);
        int worst = 0;
        for (int row = 0; row < 512; row += 2) {
            for (int col = 0; col < 512; col += 2)
                worst = std::max(worst, bt601::distance(image(row, col),
                                                        bt601::rgbOfLimited(row / 2, cb, col / 2)));
        }
        ASSERT_LE(worst, 1) << "Cb " << cb;
    }
}

TEST(NV12, EveryPixelGetsTheChromaOfItsBlock) {
    for (int rows = 1; rows <= 40; rows += rows < 5 ? 1 : 7) {
        for (int cols = 1; cols <= 40; ++cols) {
            const auto image = NV12::Rgb(scattered(Size(rows, cols)), Scale(1), Algorithm::Area);
            ASSERT_EQ(image.size, Size(rows, cols));
            for (int row = 0; row < rows; ++row) {
                for (int col = 0; col < cols; ++col)
                    ASSERT_LE(bt601::distance(image(row, col), exactRgb(row, col)), 1)
                        << "at " << row << ", " << col << " of " << rows << "x" << cols;
            }
        }
    }
}

TEST(NV12, RowsLongerThanOneSpanAreWhole) {
    const auto image = NV12::Rgb(scattered(Size(3, 1537)), Scale(1), Algorithm::Area);
    for (int row = 0; row < 3; ++row) {
        for (int col = 0; col < 1537; ++col)
            ASSERT_LE(bt601::distance(image(row, col), exactRgb(row, col)), 1)
                << "at " << row << ", " << col;
    }
}

TEST(NV12, YCbCrIsExactWhereNothingIsResized) {
    for (const Size size : {Size(1, 1), Size(2, 3), Size(5, 8), Size(7, 1025)}) {
        const auto image = NV12::YCbCr(scattered(size), Scale(1), Algorithm::Area);
        ASSERT_EQ(image.size, size);
        for (int row = 0; row < size[0]; ++row) {
            for (int col = 0; col < size[1]; ++col) {
                const Vec<int, 2> chroma = scatteredChroma(row / 2, col / 2);
                const auto exact = exactYCbCr(scatter(row, col), chroma[0], chroma[1]);
                ASSERT_LT(bt601::distance(image(row, col), exact), 1e-5) << row << ", " << col;
            }
        }
    }
}

TEST(NV12, YCbCrOfTheEndsOfTheRange) {
    const auto whole = [](int luma, int cb, int cr) {
        return NV12::YCbCr(plainNv12(Size(1, 1), luma, cb, cr), Scale(1), Algorithm::Area)(0, 0);
    };
    EXPECT_EQ(whole(16, 128, 128), (Vec<float, 3>(0.0F, 0.0F, 0.0F)));
    EXPECT_EQ(whole(235, 16, 240), (Vec<float, 3>(1.0F, -0.5F, 0.5F)));
    EXPECT_EQ(whole(255, 0, 255), (Vec<float, 3>(1.0F, -0.5F, 0.5F))) << "clamped";
    EXPECT_EQ(whole(0, 255, 0), (Vec<float, 3>(0.0F, 0.5F, -0.5F))) << "clamped";
}

TEST(NV12, PlainColoursStayWhatTheyAreInEverySize) {
    const auto exact = bt601::rgbOfLimited(120, 90, 180);
    for (int rows = 1; rows <= 40; rows += rows < 9 ? 1 : 7) {
        for (int cols = 1; cols <= 40; ++cols) {
            const auto planes = plainNv12(Size(rows, cols), 120, 90, 180);
            for (const Algorithm algorithm : algorithms) {
                for (const Scale scale : {Scale(1, 3), Scale(5, 4), Scale(7, 2)}) {
                    SCOPED_TRACE(testing::Message()
                                 << rows << "x" << cols << " by " << scale << ", algorithm "
                                 << static_cast<int>(algorithm));
                    const auto image = NV12::Rgb(planes, scale, algorithm);
                    for (int i = 0; i < image.count; ++i)
                        ASSERT_LE(bt601::distance(image.data()[i], exact), 1) << "pixel " << i;
                }
            }
        }
    }
}

TEST(NV12, AreaHalvesLumaByTheMeanOfFourAndKeepsChroma) {
    const auto image = NV12::YCbCr(scattered(Size(16, 24)), Scale(1, 2), Algorithm::Area);
    ASSERT_EQ(image.size, Size(8, 12));
    for (int row = 0; row < 8; ++row) {
        for (int col = 0; col < 12; ++col) {
            const int sum = scatter(2 * row, 2 * col) + scatter(2 * row, 2 * col + 1) +
                            scatter(2 * row + 1, 2 * col) + scatter(2 * row + 1, 2 * col + 1);
            const Vec<int, 2> chroma = scatteredChroma(row, col);
            const auto exact = exactYCbCr(0, chroma[0], chroma[1]);
            ASSERT_NEAR(image(row, col)[0], clamped((sum / 4.0 - 16) / 219, 0, 1), 1.5 / 219);
            ASSERT_NEAR(image(row, col)[1], exact.second, 1e-5);
            ASSERT_NEAR(image(row, col)[2], exact.third, 1e-5);
        }
    }
}

TEST(NV12, ChromaLiesInTheMiddleOfItsPixels) {
    // A picture that equals its mirror image must do so after resizing as well.
    const auto planes = nv12Of(
        Size(8, 8), [](int, int) { return 120; },
        [](int row, int col) { return Vec<int, 2>(col < 2 ? 60 : 196, row < 2 ? 60 : 196); });
    for (const Algorithm algorithm : {Algorithm::Bilinear, Algorithm::Bicubic}) {
        const auto image = NV12::YCbCr(planes, Scale(3), algorithm);
        for (int i = 0; i < 24; ++i) {
            EXPECT_NEAR(image(5, i)[1], -image(5, 23 - i)[1], 1.01 / 224) << "column " << i;
            EXPECT_NEAR(image(i, 5)[2], -image(23 - i, 5)[2], 1.01 / 224) << "row " << i;
        }
    }
}

TEST(NV12, RgbAndYCbCrOfAResizedPictureAgree) {
    // Colours inside the RGB cube, so that nothing is clamped on either way.
    const auto planes = nv12Of(
        Size(10, 14), [](int row, int col) { return 100 + scatter(row, col) / 8; },
        [](int row, int col) {
            return Vec<int, 2>(112 + scatter(row, col) / 8, 112 + scatter(col, row) / 8);
        });
    const auto rgb = NV12::Rgb(planes, Scale(3, 2), Algorithm::Bilinear);
    const auto yCbCr = NV12::YCbCr(planes, Scale(3, 2), Algorithm::Bilinear);
    ASSERT_EQ(rgb.size, yCbCr.size);
    for (int i = 0; i < rgb.count; ++i) {
        const Pixel pixel = rgb.data()[i];
        const auto exact = bt601::yCbCrOf(pixel[0] / 255.0, pixel[1] / 255.0, pixel[2] / 255.0);
        ASSERT_LT(bt601::distance(yCbCr.data()[i], exact), 1.5 / 255) << "pixel " << i;
    }
}

TEST(NV12, ChromaPlaneMayHaveHalfTheRows) {
    const auto full = scattered(Size(7, 9));
    const Vec<Plane, 2> half = {full[0], Plane(Size(4, 10), full[1].storage)};
    for (const Scale scale : {Scale(1), Scale(2)}) {
        EXPECT_TRUE(equal(NV12::Rgb(half, scale, Algorithm::Area),
                          NV12::Rgb(full, scale, Algorithm::Area)));
    }
}

TEST(NV12, GapsBetweenRowsAreNotPartOfTheImage) {
    const auto planes = scattered(Size(6, 9));
    const Vec<Plane, 2> wide = {withGaps(planes[0], 5), withGaps(planes[1], 12)};
    for (const Scale scale : {Scale(1), Scale(1, 2), Scale(2)}) {
        EXPECT_TRUE(equal(NV12::Rgb(wide, scale, Algorithm::Bicubic),
                          NV12::Rgb(planes, scale, Algorithm::Bicubic)));
        EXPECT_TRUE(equal(NV12::YCbCr(wide, scale, Algorithm::Bicubic),
                          NV12::YCbCr(planes, scale, Algorithm::Bicubic)));
    }
}

TEST(NV12, PlanesThatDoNotFitAreRefused) {
    const Plane luma = planeOf(Size(5, 5), scatter);
    const Plane chroma = planeOf(Size(5, 6), scatter);
    const Vec<Plane, 2> bad[] = {
        {Plane(), chroma},
        {luma, Plane()},
        {luma, planeOf(Size(2, 6), scatter)}, // three rows are needed
        {luma, planeOf(Size(5, 5), scatter)}, // six columns are needed
        {withGaps(luma, 1), planeOf(Size(3, 4), scatter)},
    };
    for (const auto& planes : bad) {
        EXPECT_THROW((void)NV12::Rgb(planes, Scale(1), Algorithm::Area), tio::Exception);
        EXPECT_THROW((void)NV12::YCbCr(planes, Scale(2), Algorithm::Area), tio::Exception);
    }
}

TEST(NV12, ReadsNothingBehindThePlanes) {
    for (int cols = 1; cols <= 40; ++cols) {
        const auto planes = scattered(Size(3, cols));
        const Plane usedChroma(Size(2, cols + cols % 2), planes[1].storage);
        const Vec<Plane, 2> guarded = {guardedCopy(planes[0]), guardedCopy(usedChroma)};
        for (const Scale scale : {Scale(1), Scale(1, 2), Scale(3)}) {
            EXPECT_TRUE(equal(NV12::Rgb(guarded, scale, Algorithm::Lanczos),
                              NV12::Rgb(planes, scale, Algorithm::Lanczos)))
                << cols << " columns by " << scale;
            EXPECT_TRUE(equal(NV12::YCbCr(guarded, scale, Algorithm::Lanczos),
                              NV12::YCbCr(planes, scale, Algorithm::Lanczos)))
                << cols << " columns by " << scale;
        }
    }
}

} // namespace
