#include "pictures.h"

#include <TARN/core/Exception.h>

#include <climits>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

using namespace pictures;
using tio::PixelFormat::NV12;
using tio::PixelFormat::RGB;

Vec<Plane, 1> greyRgb(Size size) {
    return rgbOf(size, [](int, int) { return Pixel(90, 90, 90); });
}

TEST(Scale, SizeIsRoundedToNearestAndAtLeastOne) {
    const struct {
        Size from;
        Scale scale;
        Size to;
    } rows[] = {
        {Size(10, 20), Scale(1, 2), Size(5, 10)}, {Size(10, 20), Scale(3), Size(30, 60)},
        {Size(7, 4), Scale(1, 3), Size(2, 1)},    // 2.33, 1.33
        {Size(5, 8), Scale(1, 3), Size(2, 3)},    // 1.67, 2.67
        {Size(5, 3), Scale(1, 2), Size(3, 2)},    // halves go up
        {Size(3, 9), Scale(1, 1000), Size(1, 1)}, // never nothing
        {Size(8, 6), Scale(-1, -2), Size(4, 3)},  // two signs make a positive factor
        {Size(1, 2), Scale(3, 2), Size(2, 3)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message()
                     << row.from[0] << "x" << row.from[1] << " by " << row.scale);
        EXPECT_EQ(RGB::Rgb(greyRgb(row.from), row.scale, Algorithm::Area).size, row.to);
        EXPECT_EQ(RGB::YCbCr(greyRgb(row.from), row.scale, Algorithm::Area).size, row.to);
        const auto nv12 = plainNv12(row.from, 90, 128, 128);
        EXPECT_EQ(NV12::Rgb(nv12, row.scale, Algorithm::Area).size, row.to);
        EXPECT_EQ(NV12::YCbCr(nv12, row.scale, Algorithm::Area).size, row.to);
    }
}

TEST(Scale, FactorsThatAreNotPositiveAreRefused) {
    for (const Scale scale :
         {Scale(0), Scale(-1), Scale(1, -2), Scale(1, 0), Scale(-1, 0), Scale(0, 0)}) {
        SCOPED_TRACE(testing::Message() << scale);
        EXPECT_THROW((void)RGB::Rgb(greyRgb(Size(4, 4)), scale, Algorithm::Area), tio::Exception);
        EXPECT_THROW((void)NV12::YCbCr(plainNv12(Size(4, 4), 0, 0, 0), scale, Algorithm::Area),
                     tio::Exception);
    }
}

TEST(Scale, ResultsBeyondIntAreRefused) {
    for (const Scale scale :
         {Scale(INT_MAX), Scale(INT_MAX, 2), Scale(20000), Scale(INT_MIN, -1)}) {
        SCOPED_TRACE(testing::Message() << scale);
        EXPECT_THROW((void)RGB::Rgb(greyRgb(Size(2, 2)), scale, Algorithm::Area), tio::Exception);
        EXPECT_THROW((void)NV12::Rgb(plainNv12(Size(2, 2), 0, 0, 0), scale, Algorithm::Area),
                     tio::Exception);
    }
}

TEST(Scale, ExtremeFactorsAreRefusedOrRight) {
    for (const auto& [size, scale] :
         {std::pair(Size(1, 200000), Scale(1, 200000)),
          std::pair(Size(200000, 1), Scale(1, 200000)), std::pair(Size(1, 1), Scale(12000)),
          std::pair(Size(1, 3000), Scale(1, 3000))}) {
        try {
            const auto image = RGB::Rgb(greyRgb(size), scale, Algorithm::Bilinear);
            EXPECT_EQ(image(image.rows() - 1, image.cols() - 1), Pixel(90, 90, 90));
        } catch (const tio::Exception& e) {
            EXPECT_STREQ(e.what(), "The picture cannot be scaled that far");
        }
    }
}

TEST(Scale, UnknownAlgorithmIsRefused) {
    const auto unknown = static_cast<Algorithm>(5);
    EXPECT_THROW((void)RGB::Rgb(greyRgb(Size(4, 4)), Scale(1, 2), unknown), tio::Exception);
    EXPECT_THROW((void)NV12::Rgb(plainNv12(Size(4, 4), 0, 0, 0), Scale(2), unknown),
                 tio::Exception);
}

TEST(Scale, PicturesCanBeConvertedOnManyThreads) {
    const auto planes = plainNv12(Size(64, 64), 81, 90, 240);
    const auto expected = NV12::Rgb(planes, Scale(1, 2), Algorithm::Bicubic);
    std::vector<int> different(3, 0);
    std::vector<std::thread> threads;
    for (int& count : different) {
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i)
                count += !equal(NV12::Rgb(planes, Scale(1, 2), Algorithm::Bicubic), expected);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(different, std::vector<int>(3, 0));
}

} // namespace
